/*
 * The bus over a server beside this machine's own: what a message takes, and a message and its answer. The other
 * process receives, or sends back what it gets. Sending over a server ends when the receiver has the message, on this
 * machine when the kernel has it.
 */
#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

#include <thread>

#include "../tests/support/nats_server.h"
#include "platform/dms_message.h"
#include "report.h"
#include "tav_posix_bus.h"

namespace tav::bench {
namespace {

constexpr uint32_t kSelf = 1, kEcho = 9, kSink = 10;
constexpr uint32_t kThreads = 4;

/** What carries the messages. */
enum class Transport { kLocal, kServers };

const char *NameOf(Transport transport) {
    return transport == Transport::kLocal ? "local" : "servers";
}

/** Lets this process use a transport from now on. */
void Use(Transport transport, const NatsServer &server) {
    if (transport == Transport::kLocal) {
        unsetenv("TAV_BUS_URL");
    } else {
        setenv("TAV_BUS_URL", server.Url().c_str(), 1);
    }
}

/** Sends a message, again as long as the receiver is full. */
void Send(uint32_t sender, uint32_t receiver, uint32_t size) {
    uint32_t code = EAGAIN;
    while (code == EAGAIN) {
        code = TAV_AdjustSendMsg(receiver, 0, 0, memset(MEL_MsgAlloc_F(sender, size, "bench", 1), 0, size), size);
    }
    Require(code == 0, "sending");
}

/** Receives a message. Returns its length. */
uint32_t Receive(TAV_Posix_BusPort *port) {
    void *message = nullptr;
    uint32_t length = 0;
    Require(TAV_Posix_BusReceive(port, -1, &message, &length) == 0, "receiving");
    DMS_MsgFree(0, message);
    return length;
}

TAV_Posix_BusPort *Bind(uint32_t id) {
    TAV_Posix_BusPort *port = nullptr;
    Require(TAV_Posix_BusBind(id, &port) == 0, "binding");
    return port;
}

/** Starts the other process, before this one uses the bus. Returns once its components are bound. */
void StartOther(Transport transport, const NatsServer &server) {
    int ready[2];
    Require(pipe(ready) == 0, "pipe");
    if (fork() == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        Use(transport, server);
        TAV_Posix_BusPort *const echo = Bind(kEcho), *const sink = Bind(kSink);
        Require(write(ready[1], "", 1) == 1, "pipe");
        const std::jthread drain([=] {
            for (;;) {
                Receive(sink);
            }
        });
        for (;;) {
            Send(kEcho, kSelf, Receive(echo));
        }
    }
    char byte = 0;
    Require(read(ready[0], &byte, 1) == 1, "the other process");
}

/** Measures `count` messages; `exchange` takes how many. */
template <typename Exchange>
void RegisterExchange(const std::string &name, Transport transport, const NatsServer &server, uint32_t count,
                      Exchange exchange) {
    Register(name + "/" + NameOf(transport), benchmark::kMicrosecond, [=, &server](benchmark::State &state) {
        Use(transport, server);
        for ([[maybe_unused]] auto _ : state) {
            state.SetIterationTime(Seconds([&] { exchange(count); }) / count);
        }
    });
}

void RegisterTransport(Transport transport, const NatsServer &server) {
    Use(transport, server);
    TAV_Posix_BusPort *const port = Bind(kSelf);
    for (const auto &[what, size] : {std::pair("64 B", 64u), std::pair("16 KiB", 16384u)}) {
        const auto send = [size = size](uint32_t count) {
            for (uint32_t i = 0; i < count; ++i) {
                Send(kSelf, kSink, size);
            }
        };
        RegisterExchange(std::string("send ") + what, transport, server, 2000, send);
        RegisterExchange(std::string("answer ") + what, transport, server, 500, [=, size = size](uint32_t count) {
            for (uint32_t i = 0; i < count; ++i) {
                Send(kSelf, kEcho, size);
                Receive(port);
            }
        });
        RegisterExchange(std::string("4 send ") + what, transport, server, 4000, [=](uint32_t count) {
            std::vector<std::jthread> threads;
            for (uint32_t i = 0; i < kThreads; ++i) {
                threads.emplace_back(send, count / kThreads);
            }
        });
    }
}

void PrintTable(CollectingReporter &times) {
    PrintHeading("servers");
    for (const std::string size : {"64 B", "16 KiB"}) {
        for (const std::string measure : {"send ", "4 send ", "answer "}) {
            PrintMedians(times, measure + size, "us", "servers", "local", 0);
        }
    }
    printf(
        "\nsend    a message of one thread to another process. 4 send: of four threads, per message of them all.\n"
        "answer  a message, and the one that comes back.\n");
}

void RunAll(int argc, char **argv) {
    const TempFolder folder("fleet_bench");
    setenv("TAV_BUS_PATH", folder.Path().c_str(), 1);
    const NatsServer server;
    ReadOptions(argc, argv);
    for (const Transport transport : {Transport::kLocal, Transport::kServers}) {
        StartOther(transport, server);
    }
    for (const Transport transport : {Transport::kLocal, Transport::kServers}) {
        RegisterTransport(transport, server);
    }
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintTable(reporter);
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    return tav::bench::RunGuarded("fleet_bench", [=] { tav::bench::RunAll(argc, argv); });
}
