#include "secret_input.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include "errors.h"

namespace tavcfg {

namespace {

/** Throws Failure with what errno says. */
[[noreturn]] void FailWithErrno(const char *what) {
    throw Failure(fmt::format("{}: {}", what, std::generic_category().message(errno)));
}

/**
 * Keeps the signals that would end or stop the process waiting, until the holder is gone: the terminal must not be left
 * without echo. They then do what they always do; when one of them stopped the process, the destructor returns after it
 * is continued.
 */
class HeldSignals {
  public:
    HeldSignals() {
        sigprocmask(SIG_BLOCK, nullptr, &former_);
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP}) {
            if (sigismember(&former_, number) == 0) {  // else it would still wait when the holder is gone
                sigaddset(&signals, number);
            }
        }
        waiting_ = signalfd(-1, &signals, SFD_CLOEXEC);
        if (waiting_ == -1) {
            FailWithErrno("cannot wait for signals");
        }
        sigprocmask(SIG_BLOCK, &signals, nullptr);
    }
    ~HeldSignals() {
        close(waiting_);
        sigprocmask(SIG_SETMASK, &former_, nullptr);
    }
    HeldSignals(const HeldSignals &) = delete;
    HeldSignals &operator=(const HeldSignals &) = delete;

    /** Waits for standard input. Returns false when a signal came first, which goes on waiting. */
    bool WaitForInput() const {
        pollfd sources[] = {{STDIN_FILENO, POLLIN, 0}, {waiting_, POLLIN, 0}};
        while (poll(sources, 2, -1) == -1) {
            if (errno != EINTR) {
                FailWithErrno("cannot wait for standard input");
            }
        }
        return sources[1].revents == 0;
    }

  private:
    int waiting_;  // readable when a signal waits
    sigset_t former_;
};

/** Keeps what is typed off the screen, but for the line feeds. What was typed before is dropped: it was seen. */
class EchoOff {
  public:
    EchoOff() {
        if (tcgetattr(STDIN_FILENO, &former_) == -1) {
            FailWithErrno("cannot ask the terminal");
        }
        termios hidden = former_;
        hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        hidden.c_lflag |= ICANON | ECHONL;
        if (tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden) == -1) {
            FailWithErrno("cannot switch the echo of the terminal off");
        }
    }
    ~EchoOff() { tcsetattr(STDIN_FILENO, TCSAFLUSH, &former_); }
    EchoOff(const EchoOff &) = delete;
    EchoOff &operator=(const EchoOff &) = delete;

  private:
    termios former_;
};

/** Shows a prompt on the terminal, wherever the output goes. */
void Prompt(const std::string &text) {
    const int terminal = open("/dev/tty", O_WRONLY | O_NOCTTY | O_CLOEXEC);
    static_cast<void>(!write(terminal != -1 ? terminal : STDERR_FILENO, text.data(), text.size()));
    if (terminal != -1) {
        close(terminal);
    }
}

/** Takes the end of the line off, which some systems write with a carriage return, and refuses what is more or less
 * than one line of text. */
void CheckLine(const char *what, size_t size, SecretText *text) {
    if (size == 0) {
        throw Failure(fmt::format("there is no {} on standard input", what));
    }
    char *const bytes = text->data();
    if (bytes[size - 1] == '\n') {
        size -= size > 1 && bytes[size - 2] == '\r' ? 2 : 1;
    }
    if (size >= TAV_PWD_BUFFER_SIZE) {
        throw Failure(fmt::format("the {} is longer than {} bytes", what, TAV_PWD_BUFFER_SIZE - 1));
    }
    if (memchr(bytes, '\0', size) != nullptr) {
        throw Failure(fmt::format("the {} holds a zero byte", what));
    }
    if (memchr(bytes, '\n', size) != nullptr) {
        throw Failure(fmt::format("the {} is more than one line", what));
    }
    bytes[size] = '\0';
}

/**
 * Reads a line from standard input.
 *
 * @param wait  called before each read; when it returns false, reading ends
 * @return whether a line was read
 */
template <typename Wait>
bool ReadInput(const char *what, bool isTerminal, SecretText *text, Wait wait) {
    char *const bytes = text->data();
    for (size_t size = 0; wait();) {
        const ssize_t got = read(STDIN_FILENO, bytes + size, SecretText::capacity() - size);
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got == -1) {
            FailWithErrno("cannot read standard input");
        }
        size += static_cast<size_t>(got);
        if (got == 0 || size == SecretText::capacity() || (isTerminal && bytes[size - 1] == '\n')) {
            CheckLine(what, size, text);
            return true;
        }
    }
    return false;
}

/** Asks once for a hidden line, and again after each signal that the process outlives. */
void AskHidden(const char *what, const std::string &prompt, SecretText *text) {
    for (bool isRead = false; !isRead;) {
        const HeldSignals signals;  // outlives the other: the echo is back when they get through
        const EchoOff echoOff;
        Prompt(prompt);
        isRead = ReadInput(what, true, text, [&] { return signals.WaitForInput(); });
    }
}

}  // namespace

SecretText::~SecretText() {
    explicit_bzero(bytes_, sizeof(bytes_));
}

uint32_t SecretText::size() const {
    return static_cast<uint32_t>(strlen(bytes_));
}

void ReadLine(const char *what, Asking asking, SecretText *text) {
    const bool isTerminal = isatty(STDIN_FILENO) == 1;
    if (!isTerminal || asking == Asking::kShown) {
        if (isTerminal) {
            Prompt(fmt::format("Enter the {}: ", what));
        }
        ReadInput(what, isTerminal, text, [] { return true; });
        return;
    }
    AskHidden(what, fmt::format("Enter the {}: ", what), text);
    if (asking == Asking::kHiddenTwice) {
        SecretText again;
        AskHidden(what, fmt::format("Enter the {} again: ", what), &again);
        if (strcmp(text->data(), again.data()) != 0) {
            throw Failure(fmt::format("the second {} is not the first one", what));
        }
    }
}

void PrintSecret(const SecretText &text) {
    setvbuf(stdout, nullptr, _IONBF, 0);
    if (fputs(text.data(), stdout) == EOF || fputc('\n', stdout) == EOF) {
        FailWithErrno("cannot write to standard output");
    }
}

}  // namespace tavcfg
