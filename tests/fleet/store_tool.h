/*
 * The tool as a process that publishes or follows, and a server with streams.
 */
#ifndef TAV_TESTS_FLEET_STORE_TOOL_H
#define TAV_TESTS_FLEET_STORE_TOOL_H

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "bytes.h"
#include "nats_server.h"

/** What a process writes, line by line. */
class Output {
  public:
    explicit Output(int fd) : fd_(fd) {}
    Output(Output &&other) noexcept : fd_(std::exchange(other.fd_, -1)), read_(std::move(other.read_)) {}
    Output &operator=(Output &&other) noexcept {
        std::swap(fd_, other.fd_);
        std::swap(read_, other.read_);
        return *this;
    }
    ~Output() { close(fd_); }

    /** The next line; what has come by then when there is none within half a minute, or no more. */
    std::string Line() {
        size_t end = 0;
        while ((end = read_.find('\n')) == std::string::npos && ReadMore()) {
        }
        return std::exchange(read_, end == std::string::npos ? "" : read_.substr(end + 1)).substr(0, end);
    }

    /** All that is left, once the process has ended. */
    std::string Rest() {
        while (ReadMore()) {
        }
        return std::exchange(read_, "");
    }

  private:
    bool ReadMore() {
        pollfd wanted{fd_, POLLIN, 0};
        char bytes[4096];
        const ssize_t length = poll(&wanted, 1, 30'000) > 0 ? read(fd_, bytes, sizeof(bytes)) : 0;
        read_.append(bytes, length > 0 ? static_cast<size_t>(length) : 0);
        return length > 0;
    }

    int fd_;
    std::string read_;  // and not handed out yet
};

/** A run of the tool, killed when it is still going at the end. */
class Tool {
  public:
    /** Starts "tavcfg ARGUMENTS", without a shell. */
    explicit Tool(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), TAVCFG_PROGRAM);
        std::vector<char *> words;
        for (std::string &argument : arguments) {
            words.push_back(argument.data());
        }
        words.push_back(nullptr);
        int outEnds[2], errorEnds[2];
        if (pipe2(outEnds, O_CLOEXEC) != 0 || pipe2(errorEnds, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        process_ = fork();
        if (process_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(outEnds[1], STDOUT_FILENO);
            dup2(errorEnds[1], STDERR_FILENO);
            execv(words[0], words.data());
            _exit(127);
        }
        close(outEnds[1]);
        close(errorEnds[1]);
        out = Output(outEnds[0]);
        error = Output(errorEnds[0]);
    }
    Tool(Tool &&other) noexcept
        : out(std::move(other.out)), error(std::move(other.error)), process_(std::exchange(other.process_, 0)) {}
    Tool &operator=(Tool &&other) noexcept {
        std::swap(process_, other.process_);
        out = std::move(other.out);
        error = std::move(other.error);
        return *this;
    }
    ~Tool() {
        if (process_ > 0) {
            End(SIGKILL);
        }
    }

    void Signal(int signal) const { kill(process_, signal); }

    /** Waits for its end, which a signal may bring about: its exit code, or the signal's number, negative. */
    int End(int signal = 0) {
        if (signal != 0) {
            Signal(signal);
        }
        int status = 0;
        waitpid(std::exchange(process_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    Output out{-1}, error{-1};

  private:
    pid_t process_ = 0;
};

/** A server with streams, which it keeps when it is killed, and the words that lead the tool to a bucket of it. */
struct StoreServer {
    explicit StoreServer(const std::string &configuration = {})
        : server("jetstream { store_dir: \"" + folder.Path() + "\" }\n" + configuration) {}

    Tool Start(const std::string &command, const std::string &file, const std::vector<std::string> &more = {}) const {
        std::vector<std::string> words{command, file, "--url", server.Url(), "--bucket", "b"};
        words.insert(words.end(), more.begin(), more.end());
        return Tool(words);
    }

    TempFolder folder;
    NatsServer server;
};

#endif
