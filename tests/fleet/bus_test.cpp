// The bus over servers: what holds beside what both transports promise (tests/hosted/bus_test.cpp). Servers that end
// and come back, users and their permissions, claims, foreign byte order, what a process is told that cannot connect.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nats/nats.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

#include "bus_peer.h"
#include "bytes.h"
#include "nats_server.h"
#include "platform/dms_message.h"
#include "tav_posix_bus.h"

namespace {

using Codes = std::vector<int64_t>;
using std::chrono::milliseconds;
using testing::HasSubstr;

/** Seconds that a call takes. */
double Seconds(const std::function<void()> &call) {
    const auto begin = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/** Repeats a command until it has a result, for five seconds. */
void Await(BusPeer &peer, const std::string &command, int64_t result) {
    int64_t last = peer.Do(command);
    for (int i = 0; i < 250 && last != result; ++i) {
        std::this_thread::sleep_for(milliseconds(20));
        last = peer.Do(command);
    }
    EXPECT_EQ(last, result) << command;
}

/** The environment of a process that uses a server. */
std::map<std::string, std::string> On(const NatsServer &server) {
    return {{"TAV_BUS_URL", server.Url()}};
}

/** How many messages a test sends: a few, or as many as the environment asks for. */
uint32_t Messages(uint32_t few) {
    const char *const wanted = getenv("TAV_TEST_MESSAGES");
    return wanted != nullptr ? static_cast<uint32_t>(std::stoul(wanted)) : few;
}

/** The outcomes that a stream has reported, by code. */
std::map<int, uint32_t> Outcomes(const std::string &report) {
    std::map<int, uint32_t> outcomes;
    std::istringstream words(report);
    char colon = 0;
    uint32_t times = 0;
    for (int code = 0; words >> code >> colon >> times;) {
        outcomes[code] = times;
    }
    return outcomes;
}

/** How many sockets of a process reach the programs that it starts, and how many do not. */
Codes Sockets(const BusPeer &peer) {
    Codes counts(2);
    const std::string process = "/proc/" + std::to_string(peer.Process());
    for (const auto &entry : std::filesystem::directory_iterator(process + "/fd")) {
        std::ifstream info(process + "/fdinfo/" + entry.path().filename().string());
        std::string words;
        uint32_t flags = 0;
        info >> words >> words >> words >> std::oct >> flags;
        if (std::filesystem::read_symlink(entry).string().starts_with("socket:")) {
            ++counts[(flags & O_CLOEXEC) != 0];
        }
    }
    return counts;
}

TEST(FleetBus, BringsAllMessagesOnceAndInOrder) {
    const NatsServer server;
    BusPeer sender(On(server)), receiver(On(server));
    const std::string count = std::to_string(Messages(5000));
    EXPECT_EQ(receiver.Do("bind 7"), 0);
    receiver.Tell("drain 7 " + count);
    EXPECT_EQ(sender.Ask("stream 8 7 " + count), "0:" + count + " ");
    EXPECT_EQ(receiver.Result(), count + " 0");
}

TEST(FleetBus, AServerThatComesBackFindsEverythingBound) {
    NatsServer server;
    BusPeer sender(On(server)), receiver(On(server));
    EXPECT_EQ((Codes{receiver.Do("bind 7"), receiver.Do("serve 7 180 1"), sender.Do("find 180 1")}), (Codes{0, 0, 7}));
    receiver.Tell("receive 7 20000");
    server.Kill();
    EXPECT_LT(Seconds([&] { Await(sender, "send 8 7 16", ENOTCONN); }), 1);
    EXPECT_LT(Seconds([&] { EXPECT_EQ(sender.Do("find 180 1"), -ENOTCONN); }), 0.5);
    EXPECT_LT(Seconds([&] { EXPECT_EQ(sender.Do("bind 9"), ENOTCONN); }), 0.5);
    EXPECT_EQ(BusPeer(On(server)).Do("bind 9"), ECONNREFUSED);
    server.Start();
    Await(sender, "send 8 7 16", 0);
    EXPECT_EQ(receiver.Result(), "-8");
    EXPECT_EQ((Codes{receiver.Do("receive 7 0"), sender.Do("find 180 1"), sender.Do("bind 7")}),
              (Codes{ETIMEDOUT, 7, EADDRINUSE}));
    EXPECT_EQ(Sockets(receiver), (Codes{0, 1}));
}

TEST(FleetBus, WhatIsSentWhileServersEndHasArrivedOrFailed) {
    NatsServer server;
    BusPeer sender(On(server)), receiver(On(server));
    EXPECT_EQ(receiver.Do("bind 7"), 0);
    receiver.Tell("drain 7 4294967295");  // until nothing comes
    sender.Tell("stream 8 7 " + std::to_string(Messages(4000)));
    for (int i = 0; i < 3; ++i) {
        std::this_thread::sleep_for(milliseconds(200));
        server.Kill();
        std::this_thread::sleep_for(milliseconds(100));
        server.Start();
    }
    std::map<int, uint32_t> outcomes = Outcomes(sender.Result());
    uint32_t received = 0, wrong = 0;
    std::istringstream(receiver.Result()) >> received >> wrong;
    EXPECT_EQ(wrong, 0u) << "none twice, none out of order";
    EXPECT_GE(received, outcomes[0]) << "what was sent has arrived";
    EXPECT_LE(received, outcomes[0] + outcomes[ECONNRESET] + outcomes[ETIMEDOUT]) << "what has failed has not";
    EXPECT_GT(outcomes[0], 0u);
    EXPECT_GT(outcomes[ENOTCONN], 0u);
}

/** Two servers of one cluster. */
struct Cluster {
    NatsServer first{"server_name: a\ncluster { name: both, listen: \"127.0.0.1:-1\" }"};
    NatsServer second{"server_name: b\ncluster { name: both, listen: \"127.0.0.1:-1\", routes: [\"" +
                      first.ClusterUrl() + "\"] }"};
};

TEST(FleetBus, OneOfManyBindsAComponent) {
    const Cluster cluster;
    BusPeer peers[] = {BusPeer(On(cluster.first)), BusPeer(On(cluster.first)), BusPeer(On(cluster.second)),
                       BusPeer(On(cluster.second))};
    const double seconds = Seconds([&] { EXPECT_EQ(peers[0].Do("bind 9"), 0); });
    EXPECT_GE(seconds, 0.05) << "so long news of another claimant may be on the way";
    Await(peers[3], "send 8 9 16", 0);  // the servers know of each other
    for (int round = 0; round < 10; ++round) {
        for (BusPeer &peer : peers) {
            peer.Tell("bind 7");
        }
        Codes codes;
        for (BusPeer &peer : peers) {
            codes.push_back(std::stoll(peer.Result()));
        }
        EXPECT_THAT(codes, testing::UnorderedElementsAre(0, EADDRINUSE, EADDRINUSE, EADDRINUSE)) << round;
        for (size_t i = 0; i < codes.size(); ++i) {
            if (codes[i] == 0) {
                EXPECT_EQ(peers[i].Do("unbind 7"), 0);
            }
        }
    }
}

TEST(FleetBus, AStoppedHolderKeepsItsComponent) {
    const NatsServer server;
    BusPeer holder(On(server)), other(On(server));
    EXPECT_EQ(holder.Do("bind 7"), 0);
    holder.Signal(SIGSTOP);
    EXPECT_LT(Seconds([&] { EXPECT_EQ(other.Do("bind 7"), EADDRINUSE); }), 3);
    EXPECT_LT(Seconds([&] { EXPECT_EQ(other.Do("send 8 7 16"), ETIMEDOUT); }), 1.5);
    EXPECT_LT(Seconds([&] { EXPECT_EQ(other.Do("send 8 7 16"), ETIMEDOUT); }), 0.2);
    holder.Signal(SIGCONT);
    Await(other, "send 8 7 16", 0);
    // The first message, which was told to have failed, has arrived late; the second one was not sent.
    EXPECT_EQ((Codes{holder.Do("receive 7 1000"), holder.Do("receive 7 1000"), holder.Do("receive 7 50")}),
              (Codes{-8, -8, ETIMEDOUT}));
}

TEST(FleetBus, AComponentThatWasBoundElsewhereMeanwhileIsLost) {
    const NatsServer server("ping_interval: \"100ms\"\nping_max: 1");
    BusPeer first(On(server)), second(On(server));
    EXPECT_EQ((Codes{first.Do("bind 7"), first.Do("serve 7 180 1")}), (Codes{0, 0}));
    EXPECT_EQ((Codes{first.Do("bind 6"), first.Do("serve 6 180 2")}), (Codes{0, 0}));
    EXPECT_EQ((Codes{second.Do("send 8 7 16"), second.Do("find 180 1")}), (Codes{0, 7}));
    first.Signal(SIGSTOP);  // until the server takes it for dead
    Await(second, "bind 7", 0);
    EXPECT_EQ((Codes{second.Do("bind 9"), second.Do("serve 9 180 1"), second.Do("serve 9 180 2")}), (Codes{0, 0, 0}));
    first.Signal(SIGCONT);
    EXPECT_EQ((Codes{first.Do("receive 7 5000"), first.Do("receive 7 5000")}), (Codes{-8, EADDRINUSE}));
    EXPECT_THAT(first.Complaints(), HasSubstr("component 7 has been bound by another process meanwhile\n"));
    EXPECT_EQ((Codes{first.Do("send 6 7 16"), second.Do("receive 7 1000")}), (Codes{0, -6}));
    Await(first, "find 180 1", 9);
    Await(first, "find 180 2", 9);
    Await(second, "send 7 6 16", 0);
    EXPECT_EQ(first.Do("unbind 7"), 0);
    EXPECT_EQ(second.Do("send 8 7 16"), 0);
}

/** A connection past the platform, for what no component sends. */
class RawConnection {
  public:
    explicit RawConnection(const NatsServer &server, const std::string &user = "", const std::string &password = "") {
        natsOptions *options = nullptr;
        natsOptions_Create(&options);
        natsOptions_SetURL(options, server.Url().c_str());
        natsOptions_SetUserInfo(options, user.c_str(), password.c_str());
        EXPECT_EQ(natsConnection_Connect(&connection_, options), NATS_OK);
        natsOptions_Destroy(options);
    }
    ~RawConnection() { natsConnection_Destroy(connection_); }

    /** Asks, and returns the answer; nothing when there is none. */
    std::string Ask(const std::string &subject, const Bytes &data) {
        natsMsg *reply = nullptr;
        natsConnection_Request(&reply, connection_, subject.c_str(), data.data(), static_cast<int>(data.size()), 500);
        const std::string answer = reply != nullptr ? natsMsg_GetData(reply) : "";
        natsMsg_Destroy(reply);
        return answer;
    }

    /** Returns how many messages come on a subject in half a second. */
    uint64_t Listen(const std::string &subject, const std::function<void()> &meanwhile) {
        natsSubscription *subscription = nullptr;
        natsMsg *message = nullptr;
        natsConnection_SubscribeSync(&subscription, connection_, subject.c_str());
        natsConnection_Flush(connection_);
        meanwhile();
        const bool hasCome = natsSubscription_NextMsg(&message, subscription, 500) == NATS_OK;
        natsMsg_Destroy(message);
        natsSubscription_Destroy(subscription);
        return hasCome;
    }

    /** Gives one answer to all that comes on a subject, from now on. */
    void Answer(const std::string &subject, const char *answer) {
        const auto handle = [](natsConnection *connection, natsSubscription * /*subscription*/, natsMsg *message,
                               void *text) {
            natsConnection_PublishString(connection, natsMsg_GetReply(message), static_cast<const char *>(text));
            natsMsg_Destroy(message);
        };
        natsSubscription *subscription = nullptr;
        natsConnection_Subscribe(&subscription, connection_, subject.c_str(), handle, const_cast<char *>(answer));
        natsConnection_Flush(connection_);
        subscriptions_.emplace_back(subscription, natsSubscription_Destroy);
    }

  private:
    natsConnection *connection_ = nullptr;
    std::vector<std::unique_ptr<natsSubscription, void (*)(natsSubscription *)>> subscriptions_;
};

TEST(FleetBus, AComponentOutlastsWhatTheServerStillHasOfItsOldConnection) {
    const NatsServer server("ping_interval: \"100ms\"\nping_max: 1");
    BusPeer holder(On(server)), sender(On(server));
    EXPECT_EQ((Codes{holder.Do("bind 7"), holder.Do("bind 9")}), (Codes{0, 0}));
    holder.Signal(SIGSTOP);  // until the server takes it for dead
    Await(sender, "send 8 7 16", ENOENT);
    RawConnection ghost(server);
    ghost.Listen("tav.b.7", [&] {
        holder.Signal(SIGCONT);
        std::this_thread::sleep_for(milliseconds(2500));
        EXPECT_EQ((Codes{sender.Do("send 8 7 16"), sender.Do("send 8 9 16")}), (Codes{EAGAIN, 0}));
    });
    Await(sender, "send 8 7 16", 0);
    EXPECT_EQ((Codes{holder.Do("receive 7 0"), sender.Do("bind 7")}), (Codes{-8, EADDRINUSE}));
    EXPECT_EQ(holder.Complaints(), "");
}

TEST(FleetBus, AComponentThatGivesWayToAnotherThatComesBackIsLost) {
    const NatsServer server("ping_interval: \"100ms\"\nping_max: 1");
    BusPeer holder(On(server)), sender(On(server));
    EXPECT_EQ(holder.Do("bind 7"), 0);
    holder.Signal(SIGSTOP);  // until the server takes it for dead
    Await(sender, "send 8 7 16", ENOENT);
    RawConnection silent(server), other(server);
    silent.Listen("tav.b.7", [&] {
        holder.Signal(SIGCONT);
        std::string answer;
        for (int i = 0; i < 20 && answer.empty(); ++i) {
            answer = other.Ask("tav.b.7", Text("0 of whatever name"));
        }
        EXPECT_EQ(answer, "held") << "to one that did not hold it before";
        EXPECT_EQ(other.Ask("tav.b.7", Text("1 of greater name")), "free");
    });
    Await(holder, "receive 7 100", EADDRINUSE);  // behind what had come before
}

TEST(FleetBus, ReceivingSaysThatTheCredentialsAreNoLongerGood) {
    const TempFolder folder;
    const std::string user = folder.Path("user");
    NatsServer server("authorization { user: anna, password: secret }");
    WriteFile(user, Text("anna\nsecret\n"));
    chmod(user.c_str(), 0600);
    auto environment = On(server);
    environment["TAV_BUS_CREDENTIALS"] = user;
    BusPeer peer(environment);
    EXPECT_EQ((Codes{peer.Do("bind 7"), peer.Do("send 8 7 16")}), (Codes{0, 0}));
    server.Kill();
    server.Configure("authorization { user: anna, password: other }");
    server.Start();
    EXPECT_EQ(peer.Do("receive 7 5000"), -8) << "what had come before";
    EXPECT_EQ((Codes{peer.Do("receive 7 5000"), peer.Do("receive 7 0")}), (Codes{ENOTCONN, ENOTCONN}));
    EXPECT_THAT(peer.Complaints(), HasSubstr(": the connection has ended: Authorization Violation\n"));
    WriteFile(user, Text("anna\nother\n"));
    EXPECT_EQ((Codes{peer.Do("unbind 7"), peer.Do("bind 7"), peer.Do("send 8 7 16")}), (Codes{0, 0, 0}));
    EXPECT_EQ(peer.Do("receive 7 0"), -8);
}

TEST(FleetBus, TheLaterAnnouncementCountsWhateverTheClocksSay) {
    const NatsServer server;
    BusPeer peer(On(server));
    RawConnection ahead(server);
    ahead.Answer("tav.s.180.4294967295.1.ask", "4102444800000 6");
    ahead.Answer("tav.s.180.4294967295.2.ask", "soon 6");
    EXPECT_EQ((Codes{peer.Do("find 180 1"), peer.Do("find 180 2")}), (Codes{6, -EINVAL}));
    EXPECT_EQ((Codes{peer.Do("bind 7"), peer.Do("serve 7 180 1")}), (Codes{0, 0}));
    for (const char *const news : {"4102444800000 6", "4102444800002", "4102444800002 six", "4102444800002 0"}) {
        EXPECT_EQ(ahead.Ask("tav.s.180.4294967295.1.new", Text(news)), "4102444800001 7") << news;
    }
    EXPECT_EQ(ahead.Ask("tav.s.180.4294967295.1.new", Text("4102444800002 9")), "");
}

/** The server's configuration that docs/fleet.md shows. */
std::string DocumentedConfiguration() {
    const Bytes bytes = ReadFile(TAV_SOURCES "/docs/fleet.md");
    const std::string document(bytes.begin(), bytes.end());
    const size_t begin = document.find("```conf\n") + 8;
    return document.substr(begin, document.find("```", begin) - begin);
}

/** An envelope, byte by byte, and the smallest message behind it. */
Bytes Envelope(uint32_t from, uint32_t to, uint32_t magic = 0x54415642, uint16_t version = 1, size_t size = 36) {
    Bytes data = Join({Host32(magic), Host16(version), Host16(0), Host32(from), Host32(to), Host32(0)});
    data.resize(size);
    return data;
}

TEST(FleetBus, UsersSpeakForTheirOwnComponentsAlone) {
    const NatsServer server(DocumentedConfiguration());
    const TempFolder folder;
    const auto as = [&](const std::string &user, const std::string &password) {
        auto environment = On(server);
        environment["TAV_BUS_CREDENTIALS"] = folder.Path(user);
        WriteFile(folder.Path(user), Text(user + "\n" + password + "\n"));
        chmod(folder.Path(user).c_str(), 0600);
        return environment;
    };
    BusPeer watcher(as("watcher", "change me")), subscriber(as("subscriber", "change me, too"));
    EXPECT_EQ((Codes{watcher.Do("bind 200"), subscriber.Do("bind 201"), subscriber.Do("serve 201 180 1")}),
              (Codes{0, 0, 0}));
    EXPECT_EQ((Codes{watcher.Do("find 180 1"), subscriber.Do("send 201 200 16"), watcher.Do("send 200 201 16")}),
              (Codes{201, 0, 0}));
    EXPECT_EQ((Codes{watcher.Do("receive 200 100"), subscriber.Do("receive 201 100")}), (Codes{-201, -200}));

    EXPECT_EQ((Codes{subscriber.Do("send 200 200 16"), subscriber.Do("bind 200"), watcher.Do("bind 202"),
                     watcher.Do("serve 200 180 1")}),
              (Codes{EACCES, EACCES, EACCES, EACCES}));
    EXPECT_EQ(watcher.Do("find 180 1"), 201) << "what could not be announced is not";
    EXPECT_THAT(subscriber.Complaints(), HasSubstr("Permissions Violation for Publish to \"tav.m.200.200\"\n"));
    RawConnection thief(server, "subscriber", "change me, too");
    EXPECT_EQ(thief.Ask("tav.m.201.200", Envelope(200, 200)), "sender") << "a forged envelope";
    EXPECT_EQ(thief.Ask("tav.m.200.200", Envelope(200, 200)), "") << "a forged subject";
    EXPECT_EQ(thief.Ask("tav.m.0201.200", Envelope(201, 200)), "");
    EXPECT_EQ(watcher.Do("receive 200 0"), ETIMEDOUT) << "none of them has arrived";
    EXPECT_EQ(thief.Listen("tav.m.*.200", [&] { EXPECT_EQ(subscriber.Do("send 201 200 16"), 0); }), 0u);
    EXPECT_EQ(thief.Listen("tav.m.*.201", [&] { EXPECT_EQ(watcher.Do("send 200 201 16"), 0); }), 1u) << "its own";
}

/** Binds component 7 in this process, for a look at what it receives. */
class FleetBusPort : public testing::Test {
  protected:
    FleetBusPort() {
        setenv("TAV_BUS_URL", server_.Url().c_str(), 1);
        EXPECT_EQ(TAV_Posix_BusBind(7, &port_), 0u);
    }
    ~FleetBusPort() override { TAV_Posix_BusUnbind(port_); }

    /** Receives a message, which must be there; returns its content. */
    Bytes Receive() {
        void *message = nullptr;
        uint32_t length = 0;
        if (TAV_Posix_BusReceive(port_, 0, &message, &length) != 0) {
            return {};
        }
        const auto *const bytes = static_cast<const uint8_t *>(message);
        const Bytes content(bytes, bytes + length);
        DMS_MsgFree(7, message);
        return content;
    }
    NatsServer server_;
    TAV_Posix_BusPort *port_ = nullptr;
};

TEST_F(FleetBusPort, RefusesWhatIsNoMessageForIt) {
    RawConnection raw(server_);
    const struct {
        const char *subject;
        Bytes data;
        const char *answer;
    } cases[] = {
        {"tav.m.6.7", Envelope(6, 7), "taken"},
        {"tav.m.6.7", {}, "malformed"},
        {"tav.m.6.7", Envelope(6, 7, 0x54415642, 1, 35), "malformed"},
        {"tav.m.6.7", Envelope(6, 7, 0x54415642, 1, 20 + 65536), "malformed"},
        {"tav.m.6.7", Envelope(6, 7, 99), "malformed"},
        {"tav.m.6.7", Envelope(6, 7, 0x54415642, 2), "malformed"},
        {"tav.m.6.7", Envelope(6, 8), "malformed"},
        {"tav.m.6.7", Envelope(5, 7), "sender"},
        {"tav.m.0.7", Envelope(0, 7), "sender"},
        {"tav.m.06.7", Envelope(6, 7), "sender"},
        {"tav.m.x.7", Envelope(0, 7), "sender"},
    };
    for (const auto &[subject, data, answer] : cases) {
        EXPECT_EQ(raw.Ask(subject, data), answer) << subject << " with " << data.size() << " bytes";
    }
    EXPECT_EQ((std::vector{Receive(), Receive()}), (std::vector{Filled(16, 0), Bytes()}));
    uint32_t refused = 0;
    const auto count = [](const TAV_Posix_BusRefusal *refusal, void *sum) {
        EXPECT_EQ(refusal->user, TAV_POSIX_BUS_SEVERAL_USERS);
        *static_cast<uint32_t *>(sum) += refusal->count;
    };
    TAV_Posix_BusVisitRefusals(port_, count, &refused);
    EXPECT_EQ(refused, std::size(cases) - 1);
}

/** A word as a machine of the other byte order has it. */
Bytes Foreign(Bytes bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

TEST_F(FleetBusPort, TellsTransferMessagesOfTheOtherByteOrderAndRefusesOthers) {
    RawConnection raw(server_);
    const auto envelope = [](uint8_t interface, uint8_t part) {
        return Join({Foreign(Host32(0x54415642)),
                     Foreign(Host16(1)),
                     {interface, part},
                     Foreign(Host32(6)),
                     Foreign(Host32(7)),
                     Foreign(Host32(0x103))});
    };
    const auto message = [](const Bytes &length, uint8_t flags) {
        return Join({length, {flags, 1}, Filled(28, 0xAB)});
    };
    for (const uint8_t flags : {uint8_t{0}, uint8_t{0x83}}) {
        const Bytes sent = message(Foreign(Host16(32)), flags);
        EXPECT_EQ(raw.Ask("tav.m.6.7", Join({envelope(1, 3), sent})), "taken");
        EXPECT_EQ(Receive(), message(Host16(32), flags ^ 4));
        EXPECT_EQ(raw.Ask("tav.m.6.7", Join({envelope(1, 1), sent})), "order") << "a message of event detection";
        EXPECT_EQ(raw.Ask("tav.m.6.7", Join({envelope(0, 0), sent})), "order");
    }
    const Bytes marked = message(Foreign(Host16(32)), 4);  // not in its sender's order: in ours
    EXPECT_EQ(raw.Ask("tav.m.6.7", Join({envelope(1, 3), marked})), "taken");
    EXPECT_EQ(Receive(), message(Host16(32), 0));
    EXPECT_EQ(Receive(), Bytes());
}

/** With a peer of another machine, which script/test-foreign names. */
TEST(FleetBus, MachinesOfTwoKindsUnderstandEachOther) {
    const char *const program = getenv("TAV_TEST_FOREIGN_PEER");
    if (program == nullptr) {
        GTEST_SKIP() << "no program of another machine";
    }
    const NatsServer server;
    BusPeer here(On(server)), there(On(server), program);
    EXPECT_EQ((Codes{here.Do("bind 7"), there.Do("bind 8"), there.Do("bind 7")}), (Codes{0, 0, EADDRINUSE}));
    EXPECT_EQ(
        (Codes{there.Do("serve 8 180 1"), here.Do("find 180 1"), here.Do("serve 7 180 1"), there.Do("find 180 1")}),
        (Codes{0, 8, 0, 7}));
    EXPECT_EQ((Codes{here.Do("query 7 8 66051"), there.Do("query 8 7 4294967040")}), (Codes{0, 0}));
    EXPECT_EQ(there.Ask("asked 8"), "32 66051 66052 66053 5");
    EXPECT_EQ(here.Ask("asked 7"), "32 4294967040 4294967041 4294967042 5");
    const int64_t expected = here.Ask("order") == there.Ask("order") ? 0 : EPROTONOSUPPORT;
    EXPECT_EQ((Codes{here.Do("send 7 8 36 101"), there.Do("send 8 7 36 101")}), (Codes{expected, expected}));
}

TEST_F(FleetBusPort, AForkedChildIsToldToKeepOff) {
    const auto tryAll = [&] {
        uint32_t id = 0;
        TAV_Posix_BusPort *port = nullptr;
        const bool isRefused = TAV_AdjustSendMsg(7, 0, 0, MEL_MsgAlloc_F(8, 16, "test", 1), 16) == ENOTSUP &&
                               TAV_Posix_BusBind(8, &port) == ENOTSUP &&
                               TAV_Posix_BusServe(port_, 180, 0, 1) == ENOTSUP;
        TAV_Posix_BusUnbind(port_);
        _exit(isRefused && id == 0 ? 0 : 1);
    };
    EXPECT_EXIT(tryAll(), testing::ExitedWithCode(0), "TAV_BUS_URL: a process that is forked .* without exec");
    EXPECT_EQ(BusPeer().Do("send 8 7 16"), 0) << "the parent's port is still there";
    EXPECT_EQ(Receive(), Filled(16, 0x5A));
}

TEST(FleetBus, OneLineSaysWhyThereIsNoConnection) {
    const TempFolder folder;
    MakeAuthority(folder, "good");
    MakeAuthority(folder, "other");
    const NatsServer server("authorization { user: anna, password: secret }\ntls { cert_file: \"" +
                            folder.Path("good.pem") + "\", key_file: \"" + folder.Path("good.key") + "\" }");
    const std::string url = server.Url("tls", "localhost"), good = folder.Path("good-ca.pem");
    WriteFile(folder.Path("right"), Text("anna\nsecret\n"));
    WriteFile(folder.Path("wrong"), Text("anna\nguess\n"));
    chmod(folder.Path("right").c_str(), 0600);
    chmod(folder.Path("wrong").c_str(), 0600);
    const struct {
        std::string url, authority, credentials, prefix;
        int64_t code;
        std::string line;
    } cases[] = {
        {url, good, "right", "some.where", 0, ""},
        {url, good, "wrong", "", EACCES, "localhost:[0-9]+: Authorization Violation"},
        {url, folder.Path("other-ca.pem"), "right", "", EACCES, "localhost:[0-9]+: SSL handshake error: .*"},
        {"tls://127.0.0.1:1", good, "right", "", ECONNREFUSED, "127.0.0.1:1: No server available for connection"},
        {url, good, "right", "a..b", EINVAL, "TAV_BUS_PREFIX must be words .*"},
        {url, good, "right", "a.*", EINVAL, "TAV_BUS_PREFIX must be words .*"},
        {"localhost:1", good, "right", "", EINVAL, "a server must be given as .*"},
    };
    for (const auto &[where, authority, credentials, prefix, code, line] : cases) {
        BusPeer peer({{"TAV_BUS_URL", where},
                      {"TAV_BUS_CA", authority},
                      {"TAV_BUS_CREDENTIALS", folder.Path(credentials)},
                      {"TAV_BUS_PREFIX", prefix}});
        EXPECT_LT(Seconds([&] { EXPECT_EQ(peer.Do("bind 7"), code) << line; }), 2.5);
        EXPECT_EQ(peer.Do("send 7 7 16"), code);
        EXPECT_THAT(peer.Complaints(), testing::MatchesRegex(line.empty() ? "" : "TAV_BUS_URL: " + line + "\n"));
    }
}

#ifndef TAV_FOREIGN  // where programs take libraries from one place alone, and have the emulator's threads
/** A handler of the program must not run where it would meet what the client library is at. */
TEST(FleetBus, ThreadsOfTheLibraryTakeNoSignals) {
    const NatsServer server;
    BusPeer peer(On(server));
    EXPECT_EQ((Codes{peer.Do("send 9 7 16"), peer.Do("bind 7"), peer.Do("serve 7 180 1")}), (Codes{ENOENT, 0, 0}));
    const std::string process = std::to_string(peer.Process());
    size_t others = 0;
    for (const auto &task : std::filesystem::directory_iterator("/proc/" + process + "/task")) {
        std::ifstream status(task.path() / "status");
        std::string word;
        while (status >> word && word != "SigBlk:") {
        }
        uint64_t blocked = 0;
        status >> std::hex >> blocked;
        const bool isFirst = task.path().filename() == process;
        EXPECT_EQ((blocked >> (SIGALRM - 1) & 1) != 0, !isFirst) << task.path();
        others += !isFirst;
    }
    EXPECT_GT(others, 0u);
}

TEST(FleetBus, TheModuleIsLoadedFromItsOwnPlaceAlone) {
    const NatsServer server;
    const TempFolder folder;
    auto environment = On(server);
    environment["LD_LIBRARY_PATH"] = folder.Path();
    std::filesystem::copy(TAV_HOSTED_LIBRARY, folder.Path(TAV_HOSTED_NAME));
    const auto expect = [&](int64_t code, const std::string &line) {
        BusPeer peer(environment);
        EXPECT_EQ((Codes{peer.Do("bind 7"), peer.Do("bind 7")}), (Codes{code, code == 0 ? EADDRINUSE : code}));
        EXPECT_THAT(peer.Complaints(), testing::MatchesRegex(line.empty() ? "" : "TAV_BUS_URL: /.*: " + line + "\n"));
    };
    const std::string module = folder.Path("libtav_fleet_bus.so");
    expect(ELIBACC, "No such file or directory");
    WriteFile(module, Text("no library"));
    expect(ELIBACC, ".*file too short");
    std::filesystem::copy(TAV_HOSTED_LIBRARY, module, std::filesystem::copy_options::overwrite_existing);
    expect(ELIBBAD, "it is of another build");
    std::filesystem::copy(TAV_MODULE, module, std::filesystem::copy_options::overwrite_existing);
    expect(0, "");
    for (const std::string &open : {module, folder.Path()}) {
        chmod(open.c_str(), 0775);
        expect(ELIBACC, "others may write to it or to its folder");
        chmod(open.c_str(), 0755);
    }
}
#endif

}  // namespace
