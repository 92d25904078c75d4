#include "bus_process.h"

#include <poll.h>
#include <sys/signalfd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <system_error>

#include "platform/dms_message.h"
#include "tav_posix.h"

namespace {

/** The codes of the bus are the system's error numbers. */
void Require(uint32_t code, const std::string &what) {
    if (code != 0) {
        throw std::system_error(static_cast<int>(code), std::generic_category(), what);
    }
}

}  // namespace

uint32_t BusMessage::Sender() const {
    return DMS_MsgSendCidGet(Get());
}

void BusMessage::Free::operator()(void *message) const {
    DMS_MsgFree(owner, message);
}

BusPort::BusPort(uint32_t componentId) : componentId_(componentId) {
    TAV_Posix_BusPort *port = nullptr;
    Require(TAV_Posix_BusBind(componentId, &port), "binding component " + std::to_string(componentId));
    port_.reset(port);
}

void BusPort::Serve(uint32_t kind, uint32_t virtualRouter, uint32_t vsId) {
    Require(TAV_Posix_BusServe(port_.get(), kind, virtualRouter, vsId), "serving VS " + std::to_string(vsId));
}

std::optional<BusMessage> BusPort::Receive() {
    void *message = nullptr;
    uint32_t length = 0;
    const uint32_t code = TAV_Posix_BusReceive(port_.get(), 0, &message, &length);
    if (code == ETIMEDOUT || code == EINTR) {
        return std::nullopt;  // nothing there, or something that the bus refused on our behalf
    }
    Require(code, "receiving");
    return BusMessage(componentId_, message, length);
}

void BusPort::Send(uint32_t receiver, Bytes content) {
    const auto length = static_cast<uint32_t>(content.size());
    void *message = MEL_MsgAlloc_F(componentId_, length, "examples", __LINE__);
    if (message == nullptr) {
        throw std::bad_alloc();
    }
    memcpy(message, content.data(), content.size());
    // The message is the bus's from here on, also when sending fails: there is nothing to free.
    Require(TAV_AdjustSendMsg(receiver, 0, 0, message, length), "sending to component " + std::to_string(receiver));
}

int CatchStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    const bool isBlocked = sigprocmask(SIG_BLOCK, &signals, nullptr) == 0;
    const int descriptor = isBlocked ? signalfd(-1, &signals, SFD_CLOEXEC) : -1;
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category(), "waiting for signals");
    }
    return descriptor;
}

std::vector<bool> WaitForInput(std::initializer_list<int> descriptors, int timeoutMs) {
    std::vector<pollfd> polled;
    for (const int descriptor : descriptors) {
        polled.push_back({descriptor, POLLIN, 0});
    }
    if (poll(polled.data(), polled.size(), timeoutMs) < 0 && errno != EINTR) {
        throw std::system_error(errno, std::generic_category(), "waiting");
    }
    std::vector<bool> readable;
    for (const pollfd &each : polled) {
        readable.push_back(each.revents != 0);  // an end or an error shows when it is read
    }
    return readable;
}

int RunAccounted(const char *name, const std::function<void()> &run) {
    setvbuf(stdout, nullptr, _IOLBF, 0);  // line by line, also into a file that someone follows
    int status = 0;
    try {
        run();
    } catch (const std::exception &error) {
        fprintf(stderr, "%s: %s\n", name, error.what());
        status = 1;
    }
    TAV_Posix_MemAccount account = {};
    TAV_Posix_MemTotal(&account);
    printf("Memory still taken from the platform: %llu blocks\n", static_cast<unsigned long long>(account.blocks));
    return account.blocks == 0 ? status : 1;
}
