#include "bus_peer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

BusPeer::BusPeer(const std::map<std::string, std::string> &changes, const char *program) : complaints_(tmpfile()) {
    program = program != nullptr ? program : BUS_PEER;
    int commands[2], results[2];
    if (complaints_ == nullptr || pipe2(commands, O_CLOEXEC) != 0 || pipe2(results, O_CLOEXEC) != 0) {
        throw std::runtime_error("pipes for a peer");
    }
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(commands[0], STDIN_FILENO);
        dup2(results[1], STDOUT_FILENO);
        dup2(fileno(complaints_), STDERR_FILENO);
        for (const auto &[variable, value] : changes) {
            setenv(variable.c_str(), value.c_str(), 1);
        }
        execl(program, program, nullptr);
        _exit(127);
    }
    close(commands[0]);
    close(results[1]);
    commands_ = fdopen(commands[1], "w");
    results_ = fdopen(results[0], "r");
}

BusPeer::~BusPeer() {
    fclose(commands_);
    if (process_ > 0) {
        waitpid(process_, nullptr, 0);
    }
    fclose(results_);
    fclose(complaints_);
}

void BusPeer::Tell(const std::string &command) {
    fputs((command + "\n").c_str(), commands_);
    fflush(commands_);
}

std::string BusPeer::Result() {
    char line[4096] = "";
    if (fgets(line, sizeof(line), results_) == nullptr) {
        throw std::runtime_error("the peer has ended: " + Complaints());
    }
    std::string result = line;
    result.pop_back();
    return result;
}

std::string BusPeer::Ask(const std::string &command) {
    Tell(command);
    return Result();
}

std::string BusPeer::Complaints() const {
    char text[4096];
    const ssize_t length = pread(fileno(complaints_), text, sizeof(text), 0);
    return {text, length > 0 ? static_cast<size_t>(length) : 0};
}

void BusPeer::Signal(int number) const {
    kill(process_, number);
}

void BusPeer::Kill() {
    Signal(SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = 0;
}
