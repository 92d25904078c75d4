// The message bus: what holds whatever carries the messages, between real processes; and this machine's bus by itself:
// real sockets, other users, and datagrams that are no messages.
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <thread>

#include "bus_peer.h"
#include "bytes.h"
#ifdef TAV_FLEET
#include "nats_server.h"
#endif
#include "platform/dms_message.h"
#include "platform/mel_environment.h"
#include "platform/mel_memory.h"
#include "tav_posix.h"
#include "tav_posix_bus.h"

/** What happens elsewhere between the platform's look at an announcement and its removal. */
static std::function<void()> beforeRename = [] {};
extern "C" int renameat(int fromFolder, const char *from, int toFolder, const char *to) noexcept {
    std::exchange(beforeRename, [] {})();
    return renameat2(fromFolder, from, toFolder, to, 0);
}

namespace {

using Port = std::unique_ptr<TAV_Posix_BusPort, decltype(&TAV_Posix_BusUnbind)>;
using Codes = std::vector<int64_t>;  // of several calls, in their order
constexpr uint32_t kMax = UINT32_MAX, kMagic = 0x54415642;

Port Bind(uint32_t id, uint32_t expected = 0) {
    TAV_Posix_BusPort *port = nullptr;
    EXPECT_EQ(TAV_Posix_BusBind(id, &port), expected);
    EXPECT_EQ(port != nullptr, expected == 0);
    return Port(port, TAV_Posix_BusUnbind);
}

int64_t Send(uint32_t sender, uint32_t receiver, uint32_t size = 16, uint32_t excess = 0) {
    void *const message = memset(MEL_MsgAlloc_F(sender, size, "test", 1), 1, size);
    return TAV_AdjustSendMsg(receiver, 0, 0, message, size + excess);
}

/** Receives a message. Returns the code, or the negative id of the sender. */
int64_t Receive(const Port &port, int32_t timeoutMs = 50) {
    void *message = nullptr;
    uint32_t length = 0;
    const uint32_t code = TAV_Posix_BusReceive(port.get(), timeoutMs, &message, &length);
    const int64_t result = code == 0 ? -int64_t{DMS_MsgSendCidGet(message)} : code;
    DMS_MsgFree(0, message);
    return result;
}

const sockaddr *AddressOf(uint32_t id) {
    static sockaddr_un address = {AF_UNIX, {}};
    snprintf(address.sun_path, sizeof(address.sun_path), "%s/%u", getenv("TAV_BUS_PATH"), id);
    return reinterpret_cast<const sockaddr *>(&address);
}

/** A datagram, byte by byte, to component 7. */
void SendRaw(size_t size, uint32_t receiver = 7, uint32_t magic = kMagic, uint16_t version = 1, uint32_t from = 6) {
    Bytes data = Join({Host32(magic), Host16(version), Host16(0), Host32(from), Host32(receiver), Host32(0)});
    data.resize(size);
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    sendto(sender, data.data(), size, MSG_DONTWAIT, AddressOf(7), sizeof(sockaddr_un));
    close(sender);
}

// Runs statements in a process of its own; what they expect must hold there.
#define IN_CHILD(...) EXPECT_EXIT(([&] { __VA_ARGS__; }(), _exit(HasFailure() ? 1 : 0)), testing::ExitedWithCode(0), "")

/** Returns who serves a VS, or a negative code. */
int64_t Served(uint32_t vsId, uint32_t component = 180) {
    uint32_t id = 0;
    const uint32_t code = CMF_GetPIDByVR(component, 0, kMax, vsId, &id);
    return code == 0 ? int64_t{id} : -int64_t{code};
}

uint32_t Serve(const Port &port, uint32_t vsId) {
    return TAV_Posix_BusServe(port.get(), 180, kMax, vsId);
}

TAV_Posix_BusCounts Counts() {
    TAV_Posix_BusCounts counts;
    TAV_Posix_BusAccount(&counts);
    return counts;
}

/** Chooses what carries the messages: sockets in a folder, or a server that all tests share, which keeps them apart. */
void SetTransport(const std::string &transport, const TempFolder &folder) {
    setenv("TAV_BUS_PATH", folder.Path("bus").c_str(), 1);
    unsetenv("TAV_BUS_URL");
#ifdef TAV_FLEET
    if (transport == "servers") {
        static const NatsServer server;
        static int test = 0;
        setenv("TAV_BUS_URL", server.Url().c_str(), 1);
        setenv("TAV_BUS_PREFIX", ("test" + std::to_string(++test)).c_str(), 1);
        Send(1, 2);  // connects, and the connection stays
    }
#endif
}

/** Every test leaves nothing behind: no message, no block, no descriptor. */
class LocalBus : public testing::Test {
  protected:
    explicit LocalBus(const std::string &transport = "local") {
        SetTransport(transport, folder_);
        left_ = Left();
        before_ = Counts();
    }
    ~LocalBus() override {
        std::vector<uint64_t> left = Left();
        left[2] = std::max(left[2], left_[2]);  // a thread of the client library may have had a file open at first
        EXPECT_EQ(left, left_);
    }
    static std::vector<uint64_t> Left() {
        TAV_Posix_MemAccount memory;
        TAV_Posix_MemTotal(&memory);
        const int lowestFree = dup(0);
        close(lowestFree);
        return {Counts().alive, memory.blocks, static_cast<uint64_t>(lowestFree)};
    }
    TempFolder folder_;
    std::vector<uint64_t> left_;
    TAV_Posix_BusCounts before_;
};

/** What is promised over both transports. */
class Bus : public LocalBus, public testing::WithParamInterface<const char *> {
  protected:
    Bus() : LocalBus(GetParam()) {}
    bool IsLocal() const { return GetParam() == std::string("local"); }
};
constexpr const char *kTransports[] = {"local",
#ifdef TAV_FLEET
                                       "servers"
#endif
};
INSTANTIATE_TEST_SUITE_P(, Bus, testing::ValuesIn(kTransports), [](const auto &test) { return test.param; });

TEST_P(Bus, MessagesOfAnotherProcessComeWholeAndWithZerosBehind) {
    const Port port = Bind(7);
    BusPeer peer;
    for (const uint32_t size : {16u, 17u, 65535u}) {
        void *message = MEL_MsgAlloc_F(8, size, "test", 1);
        EXPECT_EQ(DMS_MsgRecvIidGet(message), 0u);
        DMS_MsgFree(8, message);
        EXPECT_EQ(peer.Do("send 8 7 " + std::to_string(size) + " 103 259"), 0);
        MEL_Free_F(memset(MEL_Malloc_F(0, 0, size + 65568, "test", 2), 0xFF, size + 65568), "test", 3);
        uint32_t length = 0;
        ASSERT_EQ(TAV_Posix_BusReceive(port.get(), 1000, &message, &length), 0u);
        const auto *const bytes = static_cast<const uint8_t *>(message);
        EXPECT_EQ(Bytes(bytes, bytes + length + 65536), Join({Filled(size, 0x5A), Filled(65536, 0)}));
        EXPECT_EQ((Codes{DMS_MsgSendCidGet(message), DMS_MsgRecvCidGet(message), DMS_MsgRecvIidGet(message),
                         DMS_MEL_MSG_GET_INTF(message), DMS_MEL_MSG_GET_SUB_INTF(message)}),
                  (Codes{8, 7, 0x103, 1, 3}));
        DMS_MsgFree(7, message);
    }
}

TEST_P(Bus, FailedSendsTellWhyAndStillTakeTheMessage) {
    BusPeer peer;
    EXPECT_EQ((Codes{peer.Do("bind 9"), peer.Do("bind 10")}), (Codes{0, 0}));
    EXPECT_EQ((Codes{Send(7, 8), Send(7, 9, 15), Send(7, 9, 65536), Send(7, 9, 40, 1)}),
              (Codes{ENOENT, EINVAL, EMSGSIZE, EMSGSIZE}));
    while (Send(7, 9, 65535) == 0 && Counts().sent - before_.sent < 10000) {
    }
    EXPECT_EQ((Codes{Send(7, 9, 65535), Send(7, 10, 65535)}), (Codes{EAGAIN, 0})) << "one full queue, and another one";
    EXPECT_EQ((Codes{peer.Do("receive 9 0"), Send(7, 9), peer.Do("receive 10 0")}), (Codes{-7, 0, -7}));
    EXPECT_EQ(Counts().sendFailures - before_.sendFailures, 6u);
}

TEST_F(LocalBus, PathsThatLeadNowhereAreRefused) {
    const Port port = Bind(7);
    std::filesystem::create_symlink("7", folder_.Path("bus/10"));
    EXPECT_EQ(Send(7, 10), ENOTSOCK);
    setenv("TAV_BUS_PATH", ("/" + std::string(97, 'x')).c_str(), 1);
    EXPECT_EQ(Send(7, 7), ENAMETOOLONG);
    setenv("TAV_BUS_PATH", "bus", 1);
    Bind(8, EINVAL);
    EXPECT_EQ((Codes{Send(7, 7), Served(1)}), (Codes{EINVAL, -EINVAL}));
}

TEST_P(Bus, ComponentZeroIsNobody) {
    Bind(0, EINVAL);
    const Port port = Bind(7);
    EXPECT_EQ((Codes{TAV_Posix_BusServe(port.get(), 0, kMax, 1), TAV_Posix_BusServe(nullptr, 180, kMax, 1),
                     TAV_Posix_BusBind(8, nullptr), CMF_GetPIDByVR(180, 0, kMax, 1, nullptr),
                     TAV_Posix_BusReceive(nullptr, 0, nullptr, nullptr)}),
              Codes(5, EINVAL));
    EXPECT_EQ((Codes{Send(7, 0), Send(0, 7), Receive(port)}), (Codes{EINVAL, EINVAL, ETIMEDOUT}));
}

TEST_F(LocalBus, NobodyTakesWhatIsSentToComponentZero) {
    const Port port = Bind(7);
    for (const char *const nobody : {"0", "00", "0x0"}) {
        std::filesystem::remove(folder_.Path("bus/180.4294967295.1"));
        std::filesystem::create_symlink(nobody, folder_.Path("bus/180.4294967295.1"));
        EXPECT_EQ(Served(1), -EINVAL) << nobody;
    }
    const int taker = socket(AF_UNIX, SOCK_DGRAM, 0);  // lies in wait for what is sent to an unknown component
    ASSERT_EQ(bind(taker, AddressOf(0), sizeof(sockaddr_un)), 0);
    SendRaw(36, 7, kMagic, 1, 0);
    EXPECT_EQ((Codes{Send(7, 0), Receive(port)}), (Codes{EINVAL, ETIMEDOUT}));
    close(taker);
}

TEST_P(Bus, ReceivingWaitsAsLongAsItIsTold) {
    const Port port = Bind(7);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Receive(port), ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
    signal(SIGALRM, [](int) {});
    ualarm(50000, 0);
    EXPECT_EQ(Receive(port, -1), EINTR);
    BusPeer peer;
    peer.Tell("send 6 7 16");
    EXPECT_EQ((Codes{Receive(port, -1), Receive(port, 0)}), (Codes{-6, ETIMEDOUT}));
    EXPECT_EQ(peer.Result(), "0");
}

TEST_F(LocalBus, DropsWhatIsNoMessageAndWaitsNoLonger) {
    const Port port = Bind(7);
    const struct {
        size_t size;
        uint32_t receiver, magic;
        uint16_t version;
    } junk[] = {{0, 7, kMagic, 1},  {35, 7, kMagic, 1}, {65556, 7, kMagic, 1},
                {36, 8, kMagic, 1}, {36, 7, 99, 1},     {36, 7, kMagic, 2}};
    for (const auto &[size, receiver, magic, version] : junk) {
        SendRaw(size, receiver, magic, version);
        SendRaw(36);
        EXPECT_EQ(Receive(port), -6) << size;
    }
    EXPECT_EQ(Counts().refused - before_.refused, 6u);
    EXPECT_EQ(Counts().received - before_.received, 6u);
    SendRaw(0);
    SendRaw(36);
    EXPECT_EQ((Codes{Receive(port, 0), Receive(port, 0)}), (Codes{-6, ETIMEDOUT}));  // one look sees all
}

/** What a port has dropped, by user. */
std::map<uint32_t, TAV_Posix_BusRefusal> Refusals(const Port &port) {
    std::map<uint32_t, TAV_Posix_BusRefusal> all;
    const auto visit = [](const TAV_Posix_BusRefusal *refusal, void *context) {
        static_cast<decltype(all) *>(context)->emplace(refusal->user, *refusal);
    };
    TAV_Posix_BusVisitRefusals(port.get(), visit, &all);
    return all;
}

TEST_F(LocalBus, RefusalsAreCountedByUserAsFarAsThereIsRoom) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, who may send as anybody";
    }
    const Port port = Bind(7);
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    for (uid_t user = 1000; user < 1040; ++user) {
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
        char byte = 0;  // an emulator sends nothing where there is none
        iovec part = {&byte, 1};
        msghdr header = {const_cast<sockaddr *>(AddressOf(7)), sizeof(sockaddr_un), &part, 1, control, 0, 0};
        header.msg_controllen = sizeof(control);
        *CMSG_FIRSTHDR(&header) = {CMSG_LEN(sizeof(ucred)), SOL_SOCKET, SCM_CREDENTIALS};
        const ucred credentials = {getpid(), user, 0};
        memcpy(CMSG_DATA(CMSG_FIRSTHDR(&header)), &credentials, sizeof(credentials));
        EXPECT_EQ(sendmsg(sender, &header, 0), 1);
        EXPECT_EQ(Receive(port, 0), ETIMEDOUT);
    }
    close(sender);
    std::map<uint32_t, TAV_Posix_BusRefusal> refusals = Refusals(port);
    EXPECT_EQ(refusals.size(), 32u);
    EXPECT_EQ(refusals[1030].count, 1u);
    EXPECT_EQ(refusals[TAV_POSIX_BUS_SEVERAL_USERS].count, 9u);
}

/** Starts a process of a user that sends to component 7 without pause, as a component, until it is killed. */
pid_t StartFlood(uint32_t from, uid_t user) {
    const pid_t flooder = fork();
    if (flooder != 0) {
        return flooder;
    }
    const Bytes data = Join({Host32(kMagic), Host16(1), Host16(0), Host32(from), Host32(7), Filled(100, 0)});
    const int sender = socket(AF_UNIX, SOCK_DGRAM, 0);
    for (const bool isUser = setuid(user) == 0; isUser;) {
        sendto(sender, data.data(), data.size(), MSG_DONTWAIT, AddressOf(7), sizeof(sockaddr_un));
    }
    _exit(1);
}

/**
 * One who sends without pause costs others no message, here one who sends 100 in a second, as long as what floods is
 * refused. Beside a flood that is not, senders may be told that there is no room; what was sent arrives.
 */
TEST_F(LocalBus, AFloodTakesNothingFromOthers) {
    const Port other = Bind(9);
    std::filesystem::permissions(folder_.Path(), std::filesystem::perms(0755));
    std::filesystem::permissions(folder_.Path("bus"), std::filesystem::perms(01777));
    for (const uint32_t from : {9u, 0u}) {  // 0 is refused, from whomever it comes
        const Port port = Bind(7);
        std::filesystem::permissions(folder_.Path("bus/7"), std::filesystem::perms(0777));
        const uid_t user = from == 0 && geteuid() == 0 ? 4711 : geteuid();
        const uint32_t refusedBefore = Counts().refused;
        const pid_t flooder = StartFlood(from, user);
        int64_t failed = 0, received = 0, last = -1;
        std::atomic<bool> isDone = false;
        std::jthread rightful([&] {
            for (uint32_t size = 16; size < 116; ++size) {
                failed += Send(8, 7, size) != 0;
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
            isDone = true;
        });
        const auto receive = [&](int32_t timeoutMs) {
            void *message = nullptr;
            uint32_t length = 0;
            if (TAV_Posix_BusReceive(port.get(), timeoutMs, &message, &length) != 0) {
                return false;
            }
            if (DMS_MsgSendCidGet(message) == 8) {
                EXPECT_GT(length, last) << "in their order, and once";
                last = length;
                ++received;
            }
            DMS_MsgFree(7, message);
            return true;
        };
        while (!isDone) {
            receive(100);
        }
        rightful.join();
        kill(flooder, SIGKILL);
        waitpid(flooder, nullptr, 0);
        while (receive(0)) {
        }
        EXPECT_EQ(received, 100 - failed) << from;
        EXPECT_TRUE(from == 9 || failed == 0) << failed;
        const TAV_Posix_BusRefusal refused = Refusals(port)[user];
        EXPECT_EQ(refused.count, Counts().refused - refusedBefore);
        EXPECT_EQ(refused.process, refused.count > 0 ? flooder : 0);
        EXPECT_EQ(refused.component, refused.count > 0 ? from : 0);
        EXPECT_TRUE(from == 9 || refused.count > 0);
    }
}

TEST_P(Bus, WhatIsSentWaitsUntilItIsReceived) {
    const Port port = Bind(7);
    BusPeer peer;
    const auto isReady = [&] {
        pollfd wanted = {TAV_Posix_BusFd(port.get()), POLLIN, 0};
        return poll(&wanted, 1, 0) == 1;
    };
    constexpr int64_t kKept = TAV_POSIX_BUS_MAX_WAITING;
    int64_t sent = 0, received = 0;
    for (int64_t round = 0; round < kKept / 4; ++round) {  // 10 come and 1 is taken, until no more may wait
        for (int i = 0; i < 10; ++i) {
            sent += peer.Do("send 8 7 16") == 0;
        }
        received += Receive(port, 0) == -8;
        ASSERT_TRUE(isReady());
    }
    EXPECT_EQ(received, kKept / 4);
    EXPECT_GE(sent, received - 1 + kKept);
    EXPECT_LT(sent, 10 * received) << "there is no more room: senders are told";
    EXPECT_EQ(Counts().refused, before_.refused);
    while (Receive(port, 0) == -8) {
        ++received;
    }
    EXPECT_EQ(received, sent) << "nothing that was sent is lost";
    EXPECT_EQ((Codes{isReady(), Receive(port, 0)}), (Codes{0, ETIMEDOUT}));
    EXPECT_EQ((Codes{peer.Do("send 8 7 16"), isReady()}), (Codes{0, 1}));  // and is dropped with the port
}

TEST_P(Bus, OneProcessHoldsAComponent) {
    BusPeer killed, peer;
    EXPECT_EQ((Codes{killed.Do("bind 7"), killed.Do("serve 7 180 1"), Served(1)}), (Codes{0, 0, 7}));
    Bind(7, EADDRINUSE);
    killed.Kill();
    if (IsLocal()) {  // where a socket and an announcement stay behind in the folder
        EXPECT_EQ((Codes{Send(8, 7), Served(1)}), (Codes{ECONNREFUSED, 7}));
    }
    Port port = Bind(7);
    EXPECT_EQ(peer.Do("bind 7"), EADDRINUSE);
    Bind(7, EADDRINUSE);
    EXPECT_EQ((Codes{peer.Do("send 8 7 16"), Receive(port), Served(1)}), (Codes{0, -8, -ENOENT}));
    const pid_t child = fork();
    if (child == 0) {
        pause();  // with the port's descriptors
    }
    port.reset();
    EXPECT_EQ((Codes{Send(8, 7), peer.Do("send 8 7 16"), peer.Do("bind 7")}), (Codes{ENOENT, ENOENT, 0}));
    kill(child, SIGKILL);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
}

TEST_P(Bus, TheLastAnnouncementCountsUntilItsPortGoes) {
    Port port = Bind(7);
    BusPeer peer;
    EXPECT_EQ(peer.Do("bind 4294967295"), 0);
    EXPECT_EQ((Codes{Serve(port, 1), Serve(port, 2), peer.Do("serve 4294967295 180 2")}), Codes(3, 0));
    EXPECT_EQ((Codes{peer.Do("find 180 1"), peer.Do("find 180 2"), Served(1), Served(2), Served(2, 181)}),
              (Codes{7, kMax, 7, kMax, -ENOENT}));
    EXPECT_EQ((Codes{Serve(port, 2), peer.Do("find 180 2")}), (Codes{0, 7}));
    EXPECT_EQ((Codes{peer.Do("serve 4294967295 180 1"), Served(1)}), (Codes{0, kMax}));
    port.reset();
    EXPECT_EQ((Codes{Served(1), Served(2)}), (Codes{kMax, -ENOENT}));
    EXPECT_EQ((Codes{peer.Do("unbind 4294967295"), Served(1)}), (Codes{0, -ENOENT}));
}

TEST_P(Bus, EchoesComeBackInTheirOrder) {
    BusPeer peer;
    EXPECT_EQ((Codes{peer.Do("bind 9"), peer.Do("echo 9")}), (Codes{0, 0}));
    const auto exchange = [&](uint32_t id) {
        const Port port = Bind(id);
        for (uint32_t size = 16; size < 300; ++size) {
            int64_t sent = Send(id, 9, size);
            while (sent == EAGAIN) {  // three send to one
                sent = Send(id, 9, size);
            }
            EXPECT_EQ((Codes{sent, Receive(port, 5000)}), (Codes{0, -9})) << size;
        }
    };
    {
        const std::jthread threads[] = {std::jthread(exchange, 1), std::jthread(exchange, 2),
                                        std::jthread(exchange, 3)};
    }
    EXPECT_EQ(peer.Result(), "0");
}

TEST_F(LocalBus, AnnouncementsMoveWhileOthersGo) {
    Port first = Bind(7), last = Bind(kMax);
    EXPECT_EQ((Codes{Serve(first, 1), Serve(last, 2)}), Codes(2, 0));
    beforeRename = [&] { EXPECT_EQ(Serve(last, 1), 0u); };  // while the one goes, the other takes its place
    first.reset();
    EXPECT_EQ(Served(1), kMax);
    std::filesystem::create_hard_link(folder_.Path("bus/180.4294967295.2"), folder_.Path("bus/180.4294967295.3"));
    EXPECT_EQ(Served(3), -EACCES);  // its maker has announced another VS
}

TEST_F(LocalBus, NothingStandsInTheWayOfAnAnnouncement) {
    Port port = Bind(7);
    for (const char *const obstacle : {"bus/7.new", "bus/7.old"}) {
        std::filesystem::create_directory(folder_.Path(obstacle));
    }
    const std::string other = folder_.Path("bus/180.4294967295.2"), leftOver = folder_.Path("bus/7.f00.tmp");
    std::filesystem::create_symlink("7", leftOver);
    std::filesystem::create_symlink("7", other);
    EXPECT_TRUE(geteuid() != 0 || lchown(other.c_str(), 4711, 4711) == 0);
    EXPECT_EQ((Codes{Serve(port, 1), Served(1)}), (Codes{0, 7}));
    port.reset();
    EXPECT_EQ(Served(1), -ENOENT);
    EXPECT_FALSE(std::filesystem::is_symlink(leftOver));
    EXPECT_EQ(std::filesystem::is_symlink(other), geteuid() == 0) << "another user's is not touched";
}

TEST_F(LocalBus, AFolderInOtherHandsIsRefused) {
    const std::string bus = folder_.Path("bus");
    const auto expect = [](uint32_t code) {  // of binding, announcing and sending
        const Port port = Bind(7, code);
        EXPECT_EQ((Codes{Send(8, 7), Served(1)}), (Codes{code, -int64_t{code == 0 ? ENOENT : code}}));
    };
    expect(0);
    for (const mode_t mode : {0755, 01770, 01777, 0770, 0777, 0702}) {
        ASSERT_EQ(chmod(bus.c_str(), mode), 0);
        expect((mode & 022) == 0 || (mode & 01000) != 0 ? 0 : EACCES);
    }
    if (geteuid() == 0) {  // somebody's folder, where somebody could and could not have put it
        ASSERT_EQ((Codes{chown(bus.c_str(), 4711, 4711), chmod(bus.c_str(), 01777)}), Codes(2, 0));
        for (const mode_t mode : {0755, 01777, 0775}) {
            ASSERT_EQ(chmod(folder_.Path().c_str(), mode), 0);
            expect(mode == 0755 ? 0 : EACCES);
        }
        ASSERT_EQ((Codes{chmod(folder_.Path().c_str(), 0755), chown(folder_.Path().c_str(), 4711, 0)}), Codes(2, 0));
        expect(EACCES);
    }
}

TEST_F(LocalBus, OtherUsersSpeakForThemselvesAlone) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const auto leave = [](uid_t user = 4711) {
        ASSERT_EQ((Codes{setgroups(0, nullptr), setgid(user), setuid(user)}), Codes(3, 0));
    };
    const auto open = [&](const char *name) { ASSERT_EQ(chmod(folder_.Path(name).c_str(), 01777), 0); };
    Port port = Bind(7), second = Bind(8);
    open("");
    open("bus");
    IN_CHILD(leave(); EXPECT_EQ(Send(5, 7), EACCES); Bind(8, EACCES));
    open("bus/7");
    EXPECT_EQ((Codes{Send(5, 7), Receive(port)}), (Codes{0, -5}));  // 5 is no one's: the same user may use it
    second.reset();  // so that others can give its name to a socket of theirs
    IN_CHILD(leave(); const int squatter = bind(socket(AF_UNIX, SOCK_DGRAM, 0), AddressOf(8), sizeof(sockaddr_un));
             EXPECT_EQ((Codes{squatter, Send(8, 7), Send(5, 7)}), Codes(3, 0)));
    IN_CHILD(leave(65534); Bind(10); EXPECT_EQ(Send(10, 7), 0));
    EXPECT_EQ((Codes{Receive(port), Send(7, 8)}), (Codes{ETIMEDOUT, EACCES}));
    Bind(8);
    IN_CHILD(leave(); EXPECT_EQ((Codes{Serve(*new Port(Bind(9)), 1), Served(1), Send(9, 7)}), (Codes{0, 9, 0})));
    std::filesystem::remove(folder_.Path("bus/9"));  // unbound
    EXPECT_EQ((Codes{Receive(port), Served(1), Send(9, 7), Receive(port)}), (Codes{-9, -EACCES, 0, ETIMEDOUT}));
    Bind(9, EACCES);
    EXPECT_EQ(Serve(port, 1), 0u);
    IN_CHILD(leave(); EXPECT_EQ(Served(1), 7); EXPECT_NE(Serve(port, 1), 0u));
}

TEST_P(Bus, ThreadsLoseNothing) {
    const Port port = Bind(7);
    const auto exchange = [&] {
        for (uint32_t size = 16; size < 500; ++size) {
            EXPECT_EQ((Codes{Send(7, 7, size), Receive(port, 5000)}), (Codes{0, -7}));
        }
    };
    const std::jthread threads[] = {std::jthread(exchange), std::jthread(exchange), std::jthread(exchange)};
}

TEST_F(LocalBus, MessagesAreReturnedOnce) {
    alignas(8) char foreign[128] = {};
    EXPECT_DEATH(DMS_MsgFree(7, foreign + 64), "DMS_MsgFree: 0x[0-9a-f]+ is not a live message");
    EXPECT_DEATH(DMS_MsgSendCidSet(foreign + 65, 1), "DMS_MsgSendCidSet: ");
#if !defined(__SANITIZE_ADDRESS__)  // which reports these first
    void *const message = MEL_MsgAlloc_F(7, 400, "test", 1);
    EXPECT_DEATH((DMS_MsgFree(7, message), DMS_MsgFree(7, message)), "DMS_MsgFree: ");
    EXPECT_DEATH((TAV_AdjustSendMsg(8, 0, 0, message, 16), DMS_MsgFree(7, message)), "DMS_MsgFree: ");
    DMS_MsgFree(7, message);
#endif
}

TEST(Environment, SettingsAreWholeNumbers) {
    const std::pair<const char *, Codes> settings[] = {
        {"0", {0, 0}}, {"4294967295", {0, kMax}}, {"0xfF", {0, 255}}, {"010", {0, 10}}, {"", {ENOENT, 77}}};
    const auto read = [](const char *text) {
        uint32_t value = 77;
        setenv("TAV_ENV_4294967295", text, 1);
        const uint32_t code = MEL_GetEnvValue(kMax, &value);
        return Codes{code, value};
    };
    for (const auto &[text, expected] : settings) {
        EXPECT_EQ(read(text), expected) << text;
    }
    for (const char *const text : {"0x", " 1", "1 ", "-1", "+1", "0x100000000", "0x-1"}) {
        EXPECT_EQ(read(text), (Codes{EINVAL, 77})) << text;
    }
}

}  // namespace
