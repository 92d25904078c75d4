/*
 * A detecting process and its subscriber on a real bus. What happens in a step is told as text: the result code, the
 * callbacks in their order, what the subscriber received, the counters that grew, and the debug switch when it is still
 * on. "0 m1 m2 told:7:8", say: match was asked about the values 1 and 2, then a notification named the keys 7 and 8.
 */
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "detect/message.h"
#include "detect/model.h"
#include "interposer.h"
#include "platform/dms_message.h"
#include "store.h"
#include "tav_posix_bus.h"

namespace {

using namespace detect;
using interposer::Call;
using Message = std::shared_ptr<void>;
using Failure = std::pair<Call, uint32_t>;  // the platform call that fails during a step: its kind, and which one
using Words = std::vector<uintptr_t>;
constexpr uint32_t kDetector = 7, kSubscriber = 9, kVs = 3, kVr = 2;

/** A component on the bus. */
struct Port {
    explicit Port(uint32_t componentId) : id(componentId) { EXPECT_EQ(TAV_Posix_BusBind(id, &port), 0u); }
    ~Port() { TAV_Posix_BusUnbind(port); }
    void BecomeSubscriber() const { EXPECT_EQ(TAV_Posix_BusServe(port, 180, kVr, kVs), 0u); }
    void Send(const Bytes &bytes) const {
        const auto size = static_cast<uint32_t>(bytes.size());
        void *message = std::memcpy(MEL_MsgAlloc_F(id, size, "tests", __LINE__), bytes.data(), size);
        DMS_MEL_MSG_SET_INTF(message, 3);
        DMS_MEL_MSG_SET_SUB_INTF(message, 4);
        EXPECT_EQ(TAV_AdjustSendMsg(kDetector, 0, 0x55, message, size), 0u);
    }
    /** The next message, whose bytes go to `received`; null when there is none in time. */
    Message Receive(int32_t timeoutMs = 0) {
        void *message = nullptr;
        uint32_t length = 0;
        TAV_Posix_BusReceive(port, timeoutMs, &message, &length);
        received.assign(static_cast<uint8_t *>(message), static_cast<uint8_t *>(message) + length);
        return {message, [this](void *taken) { DMS_MsgFree(id, taken); }};
    }
    uint32_t id;
    TAV_Posix_BusPort *port = nullptr;
    Bytes received;
};

Bytes Part(uint32_t type, const Bytes &value) {
    return Join({Host16(static_cast<uint16_t>(type)), Host16(static_cast<uint16_t>(value.size())), value});
}
const auto Number = [](const void *word) { return std::to_string(Load<uint32_t>(word)); };
const auto Key = [](uint32_t key) { return Part(18, Host32(key)); };
const Bytes kIds = Part(2, Join({Host32(0x21), Host32(0x40)})), kEvent = Part(17, Host32(1));
Bytes Head(size_t size, uint8_t flags, uint32_t sequence, uint16_t operation, uint16_t spare, uint32_t result) {
    const Bytes length = Host16(static_cast<uint16_t>(size));
    return Join({length, {flags, 14}, Host32(sequence), Host16(operation), Host16(spare), Host32(result)});
}
Bytes Letter(uint16_t operation, const std::vector<Bytes> &body, uint8_t flags = 0x15) {
    return Join({Head(16 + Join(body).size(), flags, 0xabcdef, operation, 0x99, 7), Join(body)});
}

/** What the callbacks do and have seen; the user data of the instance. */
struct Witness {
    std::string calls;     // callback and last word of the condition; in upper case when the data are parse's
    uint32_t refused = 0;  // values with one of these bits cannot be parsed
    int live = 0;          // parsed and not yet freed
    Bytes payload;         // what fill writes, as far as there is room
    Words filled;          // what fill was called with
    ~Witness() { EXPECT_EQ(live, 0); }

    static Witness &Of(uintptr_t userData) { return *reinterpret_cast<Witness *>(userData); }
    uint32_t Note(const char *names, const void *data, uint32_t length) {
        const uint32_t value = length < 4 ? 0 : Load<uint32_t>(static_cast<const char *>(data) + length - 4);
        calls.append({' ', names[length == 4]}).append(std::to_string(value));
        return value;
    }
    static void Parse(const void *tlv, void **data, uint32_t *length, uintptr_t userData) {
        const uint32_t value = Of(userData).Note("pp", tlv, Load<TlvHeader>(tlv).length + 4u);
        const bool isRefused = (value & Of(userData).refused) != 0;
        Of(userData).live += isRefused ? 0 : 1;
        *data = isRefused ? nullptr : new uint32_t(value);
        *length = 4;
    }
    static void Free(void *data, uintptr_t userData) {
        Of(userData).Note("fF", data, 4);
        --Of(userData).live;
        delete static_cast<uint32_t *>(data);
    }
    static uint32_t Match(const void *data, uint32_t length, uintptr_t mask, uintptr_t answer, uintptr_t userData) {
        return (Of(userData).Note("mM", data, length) & mask) != 0 ? static_cast<uint32_t>(answer) : 0;
    }
    static void Notify(const void *data, uint32_t length, uintptr_t mask, uintptr_t answer, uintptr_t userData) {
        Match(data, length, mask, answer, userData);
        Of(userData).calls += "!";
    }
    static uint32_t Differ(const void *, const void *, uint32_t) { return 0; }
    static uint32_t Equal(const void *, const void *, uint32_t) { return 2; }
    static uint32_t Fill(void *dest, uint32_t size, uintptr_t arg1, uintptr_t arg2, uintptr_t userData) {
        const Bytes &payload = Of(userData).payload;
        std::copy_n(payload.begin(), std::min<size_t>(size, payload.size()), static_cast<uint8_t *>(dest));
        Of(userData).filled = {size, arg1, arg2};
        return static_cast<uint32_t>(payload.size());
    }
};

struct Detecting : testing::Test {
    /** Makes the instance, with condition types from 100 whose ids tell their callbacks; see Register. */
    Detecting() : handle(Init(nullptr)) {
        for (uint32_t callbacks = 0; callbacks < 32; ++callbacks) {
            Register(100 + callbacks, callbacks);
        }
        subscriber.BecomeSubscriber();
    }
    ~Detecting() override { ARU_Detect_UnInit(handle); }
    ARU_Detect_Handle *Init(ARU_Detect_Handle *given) {
        return ARU_Detect_Init(1, kDetector, kVs, given, Witness::Fill, reinterpret_cast<uintptr_t>(&witness));
    }
    /** Callbacks are a sum: 1 parse and free, 2 match, 4 notify, 8 compare that always says no, 16 that says yes. */
    uint32_t Register(uint32_t id, uint32_t has) {
        const ARU_Detect_CompareFunc compare = has & 8 ? Witness::Differ : has & 16 ? Witness::Equal : nullptr;
        return ARU_Detect_RegisterCond(kVs, handle, id, has & 1 ? Witness::Parse : nullptr,
                                       has & 2 ? Witness::Match : nullptr, has & 1 ? Witness::Free : nullptr, compare,
                                       has & 4 ? Witness::Notify : nullptr);
    }
    ARU_Detect_Instance *Instance() { return ARU_Detect_VS_LIST_NodeSeek(handle->vsList, kVs)->instance; }

    /** Has the detecting process do something and tells what happened. */
    template <class Action>
    std::string Watch(Action action, Failure failure) {
        ARU_Detect_EnableDebug(Instance());
        const ARU_Detect_Instance &now = *Instance(), before = now;
        witness.calls.clear();
        interposer::FailNth(failure.first, failure.second);
        const uint32_t code = action();
        hasFailed = interposer::Count(failure.first) >= failure.second;
        interposer::Reset();
        std::string text = std::to_string(code) + witness.calls;
        uint32_t sent[] = {before.notifiesSent, before.acksSent};
        while (peer->Receive() != nullptr) {
            const bool isAck = (peer->received[2] & kResponse) != 0;
            ++sent[isAck];
            text.append(isAck ? " ack" : " told").append(isAck ? Number(&peer->received[12]) : "");
            for (size_t at = 40; at < peer->received.size(); at += 4) {
                text.append(":").append(Number(&peer->received[at]));
            }
        }
        EXPECT_EQ(Words({now.notifiesSent, now.acksSent}), Words({sent[0], sent[1]}));
        for (const auto &[name, growth] : {std::pair(" errors+", now.errors - before.errors),
                                           std::pair(" unacked+", now.ackFailures - before.ackFailures),
                                           std::pair(" untold+", now.notifyFailures - before.notifyFailures),
                                           std::pair(" answers+", now.notifyAcks - before.notifyAcks)}) {
            text.append(growth != 0 ? name : "").append(growth != 0 ? std::to_string(growth) : "");
        }
        return text + (now.debugSwitch != 0 ? " debug" : "");
    }
    /** Sends a message from the peer to the detecting process, which handles it. */
    std::string Deliver(const Bytes &bytes, Failure failure = {}) {
        peer->Send(bytes);
        const Message message = detector.Receive();
        return Watch([&] { return ARU_Detect_ProcMsg(kVs, handle, message.get()); }, failure);
    }
    /** Does one command: "sub KEY EVENT_TYPE [TYPE:WORD...]", "unsub KEY", "event MASK ANSWER". */
    std::string Run(const std::string &command, Failure failure = {}) {
        std::istringstream in(command);
        std::string verb;
        uint32_t first = 0, second = 0, type = 0, word = 0;
        in >> verb >> first >> second;
        if (verb == "event") {
            return Watch([&] { return ARU_Detect_Filter(kVs, handle, first, second); }, failure);
        }
        std::vector<Bytes> body = {Key(first), kIds};
        for (char colon = 0; in >> type >> colon >> word;) {
            body.push_back(Part(type, Host32(word)));
        }
        body.push_back(Part(17, Host32(second)));
        return Deliver(Letter(verb == "sub" ? kSubscribe : kUnsubscribe, body), failure);
    }
    /** Does commands separated by semicolons, and expects the same of each. */
    Detecting &Expect(const std::string &commands, const std::string &expected, Failure failure = {}) {
        std::istringstream in(commands);
        for (std::string command; std::getline(in >> std::ws, command, ';');) {
            EXPECT_EQ(Run(command, failure), expected) << command << ", in: " << commands;
            EXPECT_TRUE(hasFailed);
        }
        return *this;
    }

    NothingLeaks nothingLeaks;
    TempFolder folder;
    int settings = setenv("TAV_BUS_PATH", (folder.Path() + "/").c_str(), 1) + setenv("TAV_ENV_5", "2", 1);
    Port detector{kDetector}, subscriber{kSubscriber}, *peer = &subscriber;
    Witness witness;
    ARU_Detect_Handle *handle;
    bool hasFailed = true;  // the call that was to fail in the last step has been made
};

TEST_F(Detecting, TheOrdinaryRuleAsksOncePerDistinctCondition) {
    Expect("sub 1 1 102:1; sub 2 1 102:1 102:2; sub 3 1 102:4; sub 4 1; sub 5 1 104:1", "0 ack0");
    Expect("event 1 1", "0 m1 m2 m4 told:1:2").Expect("event 6 1", "0 m2 m4 m1 told:2:3");
    Expect("event 7 1", "0 m1 m2 m4 told:1:2:3").Expect("event 7 2; event 8 1", "0 m1 m2 m4");
    Expect("sub 2 1 102:1; unsub 3; unsub 99", "0 ack0").Expect("event 7 1", "0 m1 told:1:2");
    Expect("unsub 1; unsub 2; sub 1 1 110:1; sub 2 1 110:1; sub 3 1 118:2; sub 4 1 118:4", "0 ack0");
    EXPECT_EQ(Deliver(Letter(kSubscribe, {Key(6), kIds, kEvent, Part(118, Filled(8, 0))})), "0 ack0");  // longer
    Expect("event 1 1", "0 m1 m1 m2 m0 told:1:2").Expect("event 2 1", "0 m2 m0 m1 m1 told:3:4");
    Expect("unsub 3", "0 ack0").Expect("event 8 1", "0 m0 m1 m1 m4");
}

TEST_F(Detecting, TheCommandLineRuleNeedsAllConditions) {
    Expect("sub 1 5 106:1 106:2; sub 2 5 102:1; sub 3 5; sub 4 5 104:4; sub 5 5 106:8 102:1", "0 ack0");
    Expect("event 1 1", "0 m1 m2 m1 m4! m8 told:2:4").Expect("event 3 2", "0 m1 m2 m1! m2! m8 m1 m4! told:1:2:4");
    Expect("sub 1 5 106:1", "0 ack0");  // keeps its place
    Expect("event 1 1", "0 m8 m1 m1! m1 m4! told:1:2:4");
    Expect("sub 3 1 102:2", "0 ack0");  // the last event type counts
    Expect("event 2 1", "0 m1 m8 m1 m2 told:3");
}

TEST_F(Detecting, WhatCannotBeParsedIsTriedAgain) {
    witness.refused = 3;
    Expect("sub 1 1 103:1 102:4", "0 p1 ack0 errors+1").Expect("event 4 1", "0 p1 errors+1");
    Expect("sub 1 5 102:4 103:2", "0 p2 ack0 errors+1");  // replaces what was saved
    Expect("event 4 1", "0 p2 m4 told:1 errors+1");
    Expect("sub 1 1 103:1", "0 p1 ack0 errors+1", {Call::kMalloc, 2});  // cannot be saved: the older one stays
    witness.refused = 0;
    Expect("event 2 1", "0 errors+1", {Call::kMalloc, 1}).Expect("event 2 1", "0 p2 F2 errors+1", {Call::kMalloc, 2});
    Expect("event 2 1", "0 p2 M2 told:1").Expect("sub 1 1 103:8 107:8", "0 F2 p8 p8 ack0");
    Expect("sub 2 1 103:8", "0 p8 ack0").Expect("event 8 1", "0 M8 M8 told:1:2");
}

TEST_F(Detecting, EveryFailureIsAnsweredAndGotOver) {
    // What was before, a command, and what it tells when the first allocation fails, when the second does, and so on;
    // behind the bars the same for copies, for allocations of messages and for sending.
    const std::tuple<const char *, const char *, const char *> kRows[] = {
        {"unsub 1", "sub 1 1 103:1 102:2",
         "0 ack1 errors+1; 0 ack0 errors+1; 0 p1 F1 ack0 errors+1; 0 p1 ack0 errors+1; 0 p1 ack0 errors+1; | "
         "0 p1 ack0; 2 p1 unacked+1; | 3 p1 errors+1 unacked+1; | 4 p1 unacked+1; | "},
        {"sub 1 1", "unsub 1", "| 0 unacked+1; | 0 errors+1 unacked+1; | 0 unacked+1; | "},
        {"sub 1 1 102:1", "event 1 1", "| | 3 m1 errors+1; | 4 m1 untold+1; | "},
        {"sub 1 5 106:1", "event 1 1", "| | 3 m1 m1! errors+1; | 4 m1 m1! untold+1; | "}};
    for (const auto &[given, command, outcomes] : kRows) {
        std::string seen;
        for (Call kind : {Call::kMalloc, Call::kMemCopy, Call::kMsgAlloc, Call::kSend}) {
            for (uint32_t nth = 1; nth == 1 || !seen.ends_with("| "); ++nth) {
                const NothingLeaks nothingLeaksHere;
                Expect(given, "0 ack0");
                const std::string outcome = Run(command, {kind, nth});
                seen += hasFailed ? outcome + "; " : "| ";
                Run("sub 1 1 102:1");
                Expect("event 1 1", "0 m1 told:1");
                Expect("unsub 1", "0 ack0");
                EXPECT_EQ(witness.live, 0);
            }
        }
        EXPECT_EQ(seen, outcomes) << command;
    }
}

TEST_F(Detecting, MessagesAreExact) {
    const auto expectLetter = [&](const std::vector<Bytes> &pieces, uint8_t interface, uint8_t subInterface) {
        const Message letter = subscriber.Receive();
        const void *message = letter.get();
        EXPECT_EQ(subscriber.received, Join(pieces));
        EXPECT_EQ(Words({DMS_MsgSendCidGet(message), DMS_MsgRecvCidGet(message), DMS_MsgRecvIidGet(message),
                         DMS_MEL_MSG_GET_INTF(message), DMS_MEL_MSG_GET_SUB_INTF(message)}),
                  Words({kDetector, kSubscriber, 0, interface, subInterface}));
    };
    for (uint16_t operation : {kUnsubscribe, kSubscribe}) {
        subscriber.Send(Letter(operation, {kEvent, Part(102, Host32(1)), kIds, Key(5)}));
        EXPECT_EQ(ARU_Detect_ProcMsg(kVs, handle, detector.Receive().get()), 0u);
        expectLetter({Head(36, 0x95, 0xabcdef, operation, 0x99, 0), kIds, Key(5)}, 3, 4);
    }
    Expect("event 1 1", "3 m1 errors+1", {Call::kMsgAlloc, 1});  // uses no sequence number
    for (uint32_t sequence : {1u, 2u}) {
        witness.payload = Filled(sequence == 1 ? 16384 : 0, 0x5a);
        EXPECT_EQ(ARU_Detect_Filter(kVs, handle, 3, 1), 0u);
        EXPECT_EQ(witness.filled, Words({16384, 3, 1}));
        const Bytes head = Head(44 + witness.payload.size(), 0, sequence, kNotify, 0, 0);
        expectLetter({head, kIds, kEvent, Key(5), witness.payload}, 1, 1);
    }
    witness.payload = Filled(16385, 0);
    Expect("event 1 1", "4 m1 untold+1");
    witness.payload = Filled(65536, 0);  // the length field wraps
    Expect("event 1 1", "0 m1 told:5");
    Instance()->fill = nullptr;
    Expect("event 1 1", "0 m1 told:5");
}

TEST_F(Detecting, MalformedAndForeignMessages) {
    const Bytes whole = Letter(kSubscribe, {kIds, kEvent, Key(1)});
    const auto stated = [&](uint16_t length) { return Join({Host16(length), Slice(whole, 2, whole.size())}); };
    for (uint32_t own : {0u, 2u, 17u, 18u}) {
        Register(own, 2);
    }
    const std::pair<const char *, std::vector<Bytes>> kLetters[] = {
        {"5", {Letter(kSubscribe, {}), stated(0), stated(16), stated(36), Letter(kSubscribe, {kIds, kEvent})}},
        {"5", {Letter(kSubscribe, {kEvent, Key(1)}), Letter(kSubscribe, {kIds, Key(1)})}},
        {"5", {Letter(kUnsubscribe, {kIds}), Letter(kUnsubscribe, {Key(1)})}},
        {"1", {Letter(17, {kIds, kEvent, Key(1)}), Letter(kNotify, {kIds, kEvent, Key(1)})}},
        {"1", {Letter(kSubscribe, {kIds, kEvent, Key(1)}, kResponse), Letter(kUnsubscribe, {}, kResponse)}},
        {"0 answers+1", {Letter(kNotify, {}, kResponse)}},
        {"1 debug", {Join({Slice(whole, 0, 3), {13}, Slice(whole, 4, whole.size())})}},
        {"0 ack0", {stated(37), stated(65535), Letter(kUnsubscribe, {kIds, Host16(18)})}},
        {"0 ack0", {Letter(kSubscribe, {kIds, kEvent, Key(8), Host16(102), Host16(0xffff)})}}};
    for (const auto &[expected, letters] : kLetters) {
        for (const Bytes &letter : letters) {
            EXPECT_EQ(Deliver(letter), expected) << testing::PrintToString(letter);
        }
    }
    Expect("event 8 1", "0 m64 m1 m1 M0 m8 m0 told:8");
    Port other(10);
    peer = &other;
    EXPECT_EQ(Deliver(whole), "1");
    other.BecomeSubscriber();
    EXPECT_EQ(Deliver(whole), "0 ack0");
    peer = &subscriber;
    EXPECT_EQ(Deliver(whole), "1");
}

TEST_F(Detecting, NoMessageLeadsAstray) {
    const Bytes part = Part(103, Host32(1)), odd = {0, 1, 2, 5, 17, 18, 103, 110, 0x80, 0xff};
    Random random;
    for (int round = 0; round < 4000; ++round) {
        const uint16_t operation = random() % 4 == 0 ? kUnsubscribe : kSubscribe;
        Bytes letter = Letter(operation, {part, kIds, Part(110, {1, 2, 3}), kEvent, part, Key(1)});
        letter.resize(letter.size() - (random() % 4 == 0 ? random() % 50 : 0));
        for (uint32_t count = random() % 4; count > 0; --count) {
            letter[random() % letter.size()] = odd[random() % odd.size()];
        }
        witness.refused = random() % 2;
        EXPECT_NE(std::string("015").find(Deliver(letter)[0]), std::string::npos);
        EXPECT_EQ(Run("event 1 1")[0], '0');
    }
}

TEST_F(Detecting, SingleCalls) {
    Expect("sub 1 1 102:1", "0 ack0");
    ARU_Detect_Instance *const instance = Instance();
    ARU_Detect_BookInfo *const bookInfo = ARU_Detect_FindBookInfo(instance, 1);
    const Cond *const first = DETECT_ELEMENTS(Cond, bookLink, bookInfo->conds).First();
    Cond *const loose = ARU_Detect_NewCond(1, first->type, 0);
    const auto debugAfter = [&](auto step) {
        ARU_Detect_EnableDebug(instance);
        return step(), instance->debugSwitch;
    };
    EXPECT_EQ(debugAfter([&] { ARU_Detect_DisableDebug(instance); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FindBookInfo(instance, 1); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FindBookInfo(instance, 2); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_NewBookInfo(instance, 2); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_ParseAgain(instance); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FindOrCreateCondGroup(instance, first, nullptr); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_RemoveCond(loose); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FreeCond(loose); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_DestroyCond(ARU_Detect_NewCond(1, nullptr, 0)); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_ProcMsg_Ex(kVs, instance, nullptr); }), 1u);
    for (const auto &[kind, code] : {std::pair(Call::kMemCopy, 5u), std::pair(Call::kMalloc, 3u)}) {
        interposer::FailNth(kind, 1);
        EXPECT_EQ(ARU_Detect_BookMsgParse(instance, bookInfo, Letter(kSubscribe, {Part(102, {})}).data()), code);
    }
}

TEST_F(Detecting, LifeCycle) {
    subscriber.Send(Letter(kSubscribe, {Key(1), kIds, kEvent}));
    const Message message = detector.Receive();
    const auto codes = [&](uint32_t vsId, ARU_Detect_Handle *given) {
        const uint32_t code = ARU_Detect_RegisterCond(vsId, given, 7, nullptr, nullptr, nullptr, nullptr, nullptr);
        return code * 100 + ARU_Detect_ProcMsg(vsId, given, message.get()) * 10 + ARU_Detect_Filter(vsId, given, 0, 0);
    };
    ARU_Detect_Handle empty = {};
    EXPECT_EQ(Words({codes(kVs, nullptr), codes(kVs, &empty), codes(99, handle)}), Words({222, 222, 666}));
    EXPECT_EQ(Words({codes(kVs, handle), codes(kVs, handle)}), Words({0, 500}));
    EXPECT_EQ(ARU_Detect_RegisterCond_Ex(Instance(), 8, Witness::Parse, nullptr, nullptr, nullptr, nullptr), 2u);
    EXPECT_EQ(ARU_Detect_RegisterCond_Ex(Instance(), 8, nullptr, nullptr, Witness::Free, nullptr, nullptr), 2u);
    ARU_Detect_UnInit(&empty);  // frees nothing
    ARU_Detect_DeleteVs(kVs, &empty);
    ARU_Detect_Instance *const oldest = Instance();
    interposer::FailNth(Call::kMalloc, 2);  // the instance alone
    EXPECT_EQ(codes(kVs, Init(handle)), 222u);
    EXPECT_EQ(codes(kVs, Init(handle)), 0u);
    ARU_Detect_Instance *const newest = Instance();
    ARU_Detect_VS_LIST_NodeDel(handle->vsList, kVs);
    ARU_Detect_UnInit_Ex(newest);
    ARU_Detect_DeleteVs(99, handle);
    ARU_Detect_DeleteVs(kVs, handle);
    EXPECT_EQ(Instance(), oldest);
    ARU_Detect_VsNode *const node = ARU_Detect_VS_LIST_NodeSeek(handle->vsList, kVs);
    interposer::FailNth(Call::kMalloc, 1);  // the new node: the handle goes and leaves what it held
    EXPECT_EQ(Init(handle), nullptr);
    MEL_Free_F(node, "tests", 0);
    ARU_Detect_UnInit_Ex(oldest);
    for (uint32_t nth = 1; nth <= 3; ++nth) {
        interposer::FailNth(Call::kMalloc, nth);
        EXPECT_EQ(Init(nullptr), nullptr);
    }
    handle = Init(Init(nullptr));
    ARU_Detect_DeleteVs(kVs, handle);
    EXPECT_EQ(codes(kVs, handle), 0u);
}

TEST_F(Detecting, ASubscriberInAnotherProcess) {
    const pid_t child = fork();
    if (child == 0) {
        Port self(10);
        self.BecomeSubscriber();
        self.Send(Letter(kSubscribe, {Key(1), kIds, kEvent, Part(102, Host32(1))}));
        const Message ack = self.Receive(5000), notification = self.Receive(5000);
        self.Send(Letter(kNotify, {}, kResponse));
        _exit(ack != nullptr && notification != nullptr && Load<uint32_t>(&self.received[40]) == 1 ? 0 : 1);
    }
    EXPECT_EQ(ARU_Detect_ProcMsg(kVs, handle, detector.Receive(5000).get()), 0u);
    EXPECT_EQ(ARU_Detect_Filter(kVs, handle, 1, 1), 0u);
    EXPECT_EQ(ARU_Detect_ProcMsg(kVs, handle, detector.Receive(5000).get()), 0u);
    int status = 1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(Words({Instance()->notifyAcks, static_cast<uint32_t>(status)}), Words({1, 0}));
}

}  // namespace
