/*
 * A detecting process and its subscriber on a real bus. Each step gives an outcome: the result, the callbacks, what the
 * subscriber received, the counters that grew, and the debug switch.
 */
#include <cstring>
#include <map>
#include <sstream>

#include "common/words.h"
#include "detect/list.h"
#include "detect/model.h"
#include "interposer.h"
#include "platform/dms_message.h"
#include "store.h"
#include "tav_posix_bus.h"

namespace {

using detect::Cond;
using detect::Elements;
using interposer::Call;
using Message = std::shared_ptr<void>;
using Failure = std::pair<Call, uint32_t>;  // the platform call that fails during a step: its kind, and which one
using Words = std::vector<uintptr_t>;
constexpr uint32_t kDetector = 7, kSubscriber = 9, kVs = 3, kVr = 2;
constexpr uint32_t kOrdinary = 1, kCommandLine = 5;                         // event types, which choose the rule
constexpr uint16_t kSubscribe = 18, kUnsubscribe = 19, kNotification = 20;  // operations
constexpr uint8_t kResponse = 0x80;                                         // flag
enum Callbacks : uint32_t { kParse = 1, kMatch = 2, kNotify = 4, kDiffer = 8, kEqual = 16 };  // the last two: compare

/** A condition, of the type whose id is 100 and the sum of its callbacks. */
struct Condition {
    uint32_t callbacks, word;
};
using Conditions = std::vector<Condition>;

/** What a step did. */
struct Outcome {
    uint32_t code = 0;
    std::string calls = {};            // the callbacks and their conditions' last words; see Witness
    std::optional<uint32_t> ack = {};  // result in the acknowledgement that was received
    std::vector<uint32_t> told = {};   // keys in the notification that was received, and its payload
    uint32_t errors = 0, unacked = 0, untold = 0, answers = 0;  // by which the counters grew
    bool debug = false;                                         // the debug switch is still on
};
const Outcome kAccepted = {.ack = 0};

void Expect(const Outcome &seen, const Outcome &expected, int line = __builtin_LINE()) {
    const testing::ScopedTrace trace(__FILE__, line, "outcome");
    EXPECT_EQ(seen.code, expected.code);
    EXPECT_EQ(seen.calls, expected.calls);
    EXPECT_EQ(seen.ack, expected.ack);
    EXPECT_EQ(seen.told, expected.told);
    EXPECT_EQ(seen.errors, expected.errors);
    EXPECT_EQ(seen.unacked, expected.unacked);
    EXPECT_EQ(seen.untold, expected.untold);
    EXPECT_EQ(seen.answers, expected.answers);
    EXPECT_EQ(seen.debug, expected.debug);
}

/** A component on the bus. */
struct Port {
    explicit Port(uint32_t componentId) : id(componentId) { EXPECT_EQ(TAV_Posix_BusBind(id, &port), 0u); }
    ~Port() { TAV_Posix_BusUnbind(port); }
    void BecomeSubscriber() const { EXPECT_EQ(TAV_Posix_BusServe(port, 180, kVr, kVs), 0u); }
    void Send(const Bytes &bytes) const {
        const auto size = static_cast<uint32_t>(bytes.size());
        void *message = memcpy(MEL_MsgAlloc_F(id, size, "tests", __LINE__), bytes.data(), size);
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
    std::string calls;     // "match 1, free bare 2, match (12) 0": bare are 4 bytes, as parse's form is, usual 8
    uint32_t refused = 0;  // values with one of these bits cannot be parsed
    int live = 0;          // parsed and not yet freed
    Bytes payload;         // what fill writes, as far as there is room
    Words filled;          // what fill was called with
    Words notified;        // event arguments that notify was called with
    ~Witness() { EXPECT_EQ(live, 0); }

    static Witness &Of(uintptr_t userData) { return *reinterpret_cast<Witness *>(userData); }
    uint32_t Note(const char *name, const void *data, uint32_t length) {
        const uint32_t value =
            length < 4 ? 0 : common::LoadWord<uint32_t>(static_cast<const char *>(data) + length - 4);
        calls.append(calls.empty() ? "" : ", ").append(name).append(length == 4 ? " bare " : " ");
        calls.append(length == 4 || length == 8 ? "" : "(" + std::to_string(length) + ") ");
        calls.append(std::to_string(value));
        return value;
    }
    static void Parse(const void *tlv, void **data, uint32_t *length, uintptr_t userData) {
        const uint32_t value =
            Of(userData).Note("parse", tlv, common::LoadWord<uint16_t>(static_cast<const char *>(tlv) + 2) + 4u);
        const bool isRefused = (value & Of(userData).refused) != 0;
        Of(userData).live += isRefused ? 0 : 1;
        *data = isRefused ? nullptr : new uint32_t(value);
        *length = 4;
    }
    static void Free(void *data, uintptr_t userData) {
        Of(userData).Note("free", data, 4);
        --Of(userData).live;
        delete static_cast<uint32_t *>(data);
    }
    static uint32_t Match(const void *data, uint32_t length, uintptr_t mask, uintptr_t answer, uintptr_t userData) {
        return (Of(userData).Note("match", data, length) & mask) != 0 ? static_cast<uint32_t>(answer) : 0;
    }
    static void Notify(const void *data, uint32_t length, uintptr_t mask, uintptr_t answer, uintptr_t userData) {
        Of(userData).Note("notify", data, length);
        Of(userData).notified = {mask, answer};
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
    /** Makes the instance, with the condition types of all sums of callbacks. */
    Detecting() : handle(Init(nullptr)) {
        interposer::TakenBy();
        for (uint32_t callbacks = 0; callbacks < 32; ++callbacks) {
            Register(100 + callbacks, callbacks);
        }
        subscriber.BecomeSubscriber();
    }
    ~Detecting() override {
        ARU_Detect_UnInit(handle);
        EXPECT_EQ(interposer::TakenBy(), std::set<std::string>{"11 aru_detect"});
    }
    ARU_Detect_Handle *Init(ARU_Detect_Handle *given) {
        return ARU_Detect_Init(11, kDetector, kVs, given, Witness::Fill, reinterpret_cast<uintptr_t>(&witness));
    }
    uint32_t Register(uint32_t id, uint32_t has) {
        const ARU_Detect_CompareFunc compare = has & kDiffer  ? Witness::Differ
                                               : has & kEqual ? Witness::Equal
                                                              : nullptr;
        return ARU_Detect_RegisterCond(kVs, handle, id, has & kParse ? Witness::Parse : nullptr,
                                       has & kMatch ? Witness::Match : nullptr, has & kParse ? Witness::Free : nullptr,
                                       compare, has & kNotify ? Witness::Notify : nullptr);
    }
    ARU_Detect_Instance *Instance() { return ARU_Detect_VS_LIST_NodeSeek(handle->vsList, kVs)->instance; }

    /** Has the detecting process do something, while a call of the platform may fail. */
    template <typename Action>
    Outcome Watch(Action action, Failure failure) {
        ARU_Detect_EnableDebug(Instance());
        const ARU_Detect_Instance &now = *Instance(), before = now;
        witness.calls.clear();
        interposer::FailNth(failure.first, failure.second);
        Outcome outcome = {.code = action(), .calls = witness.calls};
        hasFailed = interposer::Count(failure.first) >= failure.second;
        interposer::Reset();
        uint32_t acks = 0, notifications = 0;
        while (peer->Receive() != nullptr) {
            const uint8_t *const message = peer->received.data();
            if ((message[2] & kResponse) != 0) {
                outcome.ack = common::LoadWord<uint32_t>(message + 12);
                ++acks;
                continue;
            }
            for (size_t at = 40; at < peer->received.size(); at += 4) {
                outcome.told.push_back(common::LoadWord<uint32_t>(message + at));
            }
            ++notifications;
        }
        EXPECT_EQ(now.acksSent - before.acksSent, acks);
        EXPECT_EQ(now.notifiesSent - before.notifiesSent, notifications);
        EXPECT_LE(acks + notifications, 1u);
        outcome.errors = now.errors - before.errors;
        outcome.unacked = now.ackFailures - before.ackFailures;
        outcome.untold = now.notifyFailures - before.notifyFailures;
        outcome.answers = now.notifyAcks - before.notifyAcks;
        outcome.debug = now.debugSwitch != 0;
        return outcome;
    }
    /** Sends a message from the peer to the detecting process, which handles it. */
    Outcome Deliver(const Bytes &bytes, Failure failure = {}) {
        peer->Send(bytes);
        const Message message = detector.Receive();
        return Watch([&] { return ARU_Detect_ProcMsg(kVs, handle, message.get()); }, failure);
    }
    Outcome Subscribe(uint32_t key, uint32_t eventType, const Conditions &conditions, Failure failure = {}) {
        std::vector<Bytes> body = {Key(key), kIds};
        for (const auto &[callbacks, word] : conditions) {
            body.push_back(Part(100 + callbacks, Host32(word)));
        }
        body.push_back(Part(17, Host32(eventType)));
        return Deliver(Letter(kSubscribe, body), failure);
    }
    Outcome Unsubscribe(uint32_t key, Failure failure = {}) {
        return Deliver(Letter(kUnsubscribe, {Key(key), kIds}), failure);
    }
    Outcome Event(uint32_t mask, uint32_t answer, Failure failure = {}) {
        return Watch([&] { return ARU_Detect_Filter(kVs, handle, mask, answer); }, failure);
    }
    /** Subscribes with keys and conditions, and expects all to be accepted. */
    void SubscribeAll(uint32_t eventType, const std::vector<std::pair<uint32_t, Conditions>> &subscriptions) {
        for (const auto &[key, conditions] : subscriptions) {
            Expect(Subscribe(key, eventType, conditions), kAccepted);
        }
    }
    void UnsubscribeAll(const std::vector<uint32_t> &keys) {
        for (const uint32_t key : keys) {
            Expect(Unsubscribe(key), kAccepted);
        }
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
    SubscribeAll(
        kOrdinary,
        {{1, {{kMatch, 1}}}, {2, {{kMatch, 1}, {kMatch, 2}}}, {3, {{kMatch, 4}}}, {4, {}}, {5, {{kNotify, 1}}}});
    Expect(Event(1, 1), {.calls = "match 1, match 2, match 4", .told = {1, 2}});
    Expect(Event(6, 1), {.calls = "match 2, match 4, match 1", .told = {2, 3}});
    Expect(Event(7, 1), {.calls = "match 1, match 2, match 4", .told = {1, 2, 3}});
    Expect(Event(7, 2), {.calls = "match 1, match 2, match 4"});
    Expect(Event(8, 1), {.calls = "match 1, match 2, match 4"});
    SubscribeAll(kOrdinary, {{2, {{kMatch, 1}}}});
    UnsubscribeAll({3, 99});
    Expect(Event(7, 1), {.calls = "match 1", .told = {1, 2}});
    UnsubscribeAll({1, 2});
    constexpr uint32_t kNever = kMatch | kDiffer, kAlways = kMatch | kEqual;  // are the same
    SubscribeAll(kOrdinary, {{1, {{kNever, 1}}}, {2, {{kNever, 1}}}, {3, {{kAlways, 2}}}, {4, {{kAlways, 4}}}});
    const Bytes longer = Part(100 + kAlways, Filled(8, 0));
    Expect(Deliver(Letter(kSubscribe, {Key(6), kIds, kEvent, longer})), kAccepted);
    Expect(Event(1, 1), {.calls = "match 1, match 1, match 2, match (12) 0", .told = {1, 2}});
    Expect(Event(2, 1), {.calls = "match 2, match (12) 0, match 1, match 1", .told = {3, 4}});
    UnsubscribeAll({3});
    Expect(Event(8, 1), {.calls = "match (12) 0, match 1, match 1, match 4"});
}

TEST_F(Detecting, TheCommandLineRuleNeedsAllConditions) {
    constexpr uint32_t kBoth = kMatch | kNotify;
    SubscribeAll(kCommandLine, {{1, {{kBoth, 1}, {kBoth, 2}}},
                                {2, {{kMatch, 1}}},
                                {3, {}},
                                {4, {{kNotify, 4}}},
                                {5, {{kBoth, 8}, {kMatch, 1}}}});
    Expect(Event(1, 1), {.calls = "match 1, match 2, match 1, notify 4, match 8", .told = {2, 4}});
    Expect(Event(3, 2),
           {.calls = "match 1, match 2, notify 1, notify 2, match 8, match 1, notify 4", .told = {1, 2, 4}});
    EXPECT_EQ(witness.notified, Words({3, 2}));
    SubscribeAll(kCommandLine, {{1, {{kBoth, 1}}}});  // keeps its place
    Expect(Event(1, 1), {.calls = "match 8, match 1, notify 1, match 1, notify 4", .told = {1, 2, 4}});
    SubscribeAll(kOrdinary, {{3, {{kMatch, 2}}}});  // the last event type counts
    Expect(Event(2, 1), {.calls = "match 1, match 8, match 1, match 2", .told = {3}});
}

TEST_F(Detecting, WhatCannotBeParsedIsTriedAgain) {
    constexpr uint32_t kParsed = kParse | kMatch;
    witness.refused = 3;
    Expect(Subscribe(1, kOrdinary, {{kParsed, 1}, {kMatch, 4}}), {.calls = "parse 1", .ack = 0, .errors = 1});
    Expect(Event(4, 1), {.calls = "parse 1", .errors = 1});
    // Replaces what was saved.
    Expect(Subscribe(1, kCommandLine, {{kMatch, 4}, {kParsed, 2}}), {.calls = "parse 2", .ack = 0, .errors = 1});
    Expect(Event(4, 1), {.calls = "parse 2, match 4", .told = {1}, .errors = 1});
    // Cannot be saved: the older one stays.
    for (const Failure &failure : {Failure(Call::kMalloc, 2), {Call::kMemCopy, 1}}) {
        Expect(Subscribe(1, kOrdinary, {{kParsed, 1}}, failure), {.calls = "parse 1", .ack = 0, .errors = 1});
    }
    witness.refused = 0;
    Expect(Event(2, 1, {Call::kMalloc, 1}), {.errors = 1});
    Expect(Event(2, 1, {Call::kMalloc, 2}), {.calls = "parse 2, free bare 2", .errors = 1});
    Expect(Event(2, 1), {.calls = "parse 2, match bare 2", .told = {1}});
    Expect(Subscribe(1, kOrdinary, {{kParsed, 8}, {kParsed | kNotify, 8}}),
           {.calls = "free bare 2, parse 8, parse 8", .ack = 0});
    Expect(Subscribe(2, kOrdinary, {{kParsed, 8}}), {.calls = "parse 8", .ack = 0});
    Expect(Event(8, 1), {.calls = "match bare 8, match bare 8", .told = {1, 2}});
}

TEST_F(Detecting, EveryFailureIsAnsweredAndGotOver) {
    using Step = std::function<Outcome(Failure)>;
    // Fails each call of a kind in turn; there are no more of them than outcomes.
    const auto expect = [&](const std::function<Outcome()> &given, const Step &step, Call kind,
                            const std::vector<Outcome> &outcomes) {
        for (uint32_t nth = 1; nth <= outcomes.size() + 1; ++nth) {
            const NothingLeaks nothingLeaksHere;
            Expect(given(), kAccepted);
            const Outcome outcome = step({kind, nth});
            EXPECT_EQ(hasFailed, nth <= outcomes.size());
            if (nth <= outcomes.size()) {
                Expect(outcome, outcomes[nth - 1]);
            }
            Subscribe(1, kOrdinary, {{kMatch, 1}});
            Expect(Event(1, 1), {.calls = "match 1", .told = {1}});
            UnsubscribeAll({1});
            EXPECT_EQ(witness.live, 0);
        }
    };
    const auto unsubscribed = [&] { return Unsubscribe(1); };
    const Step subscribe = [&](Failure failure) {
        return Subscribe(1, kOrdinary, {{kParse | kMatch, 1}, {kMatch, 2}}, failure);
    };
    const Outcome failed = {.calls = "parse 1", .ack = 0, .errors = 1};
    const Outcome freed = {.calls = "parse 1, free bare 1", .ack = 0, .errors = 1};
    expect(unsubscribed, subscribe, Call::kMalloc,
           {{.ack = 1, .errors = 1}, {.ack = 0, .errors = 1}, freed, failed, failed});
    expect(unsubscribed, subscribe, Call::kMemCopy,
           {{.calls = "parse 1", .ack = 0}, {.code = 2, .calls = "parse 1", .unacked = 1}});
    expect(unsubscribed, subscribe, Call::kMsgAlloc, {{.code = 3, .calls = "parse 1", .errors = 1, .unacked = 1}});
    expect(unsubscribed, subscribe, Call::kSend, {{.code = 4, .calls = "parse 1", .unacked = 1}});
    const auto subscribed = [&] { return Subscribe(1, kOrdinary, {}); };
    const Step unsubscribe = [&](Failure failure) { return Unsubscribe(1, failure); };
    expect(subscribed, unsubscribe, Call::kMalloc, {});
    expect(subscribed, unsubscribe, Call::kMemCopy, {{.unacked = 1}});
    expect(subscribed, unsubscribe, Call::kMsgAlloc, {{.errors = 1, .unacked = 1}});
    expect(subscribed, unsubscribe, Call::kSend, {{.unacked = 1}});
    const Step event = [&](Failure failure) { return Event(1, 1, failure); };
    for (const auto &[rule, calls] : {std::pair(kOrdinary, "match 1"), std::pair(kCommandLine, "match 1, notify 1")}) {
        const auto waiting = [&, eventType = rule] { return Subscribe(1, eventType, {{kMatch | kNotify, 1}}); };
        expect(waiting, event, Call::kMalloc, {});
        expect(waiting, event, Call::kMemCopy, {});
        expect(waiting, event, Call::kMsgAlloc, {{.code = 3, .calls = calls, .errors = 1}});
        expect(waiting, event, Call::kSend, {{.code = 4, .calls = calls, .untold = 1}});
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
    Expect(Event(1, 1, {Call::kMsgAlloc, 1}), {.code = 3, .calls = "match 1", .errors = 1});  // uses no sequence number
    for (uint32_t sequence : {1u, 2u}) {
        witness.payload = Filled(sequence == 1 ? 16384 : 0, 0x5a);
        EXPECT_EQ(ARU_Detect_Filter(kVs, handle, 3, 1), 0u);
        EXPECT_EQ(witness.filled, Words({16384, 3, 1}));
        const Bytes head = Head(44 + witness.payload.size(), 0, sequence, kNotification, 0, 0);
        expectLetter({head, kIds, kEvent, Key(5), witness.payload}, 1, 1);
    }
    for (const uint32_t tooLong : {16385, 65535 - 43, 65536}) {  // the last two do not fit the length field
        witness.payload = Filled(tooLong, 0);
        Expect(Event(1, 1), {.code = 4, .calls = "match 1", .untold = 1});
    }
    Instance()->fill = nullptr;
    Expect(Event(1, 1), {.calls = "match 1", .told = {5}});
    // Built by the caller, with fewer keys than there are subscriptions.
    SubscribeAll(kOrdinary, {{6, {}}, {7, {}}});
    Instance()->fill = Witness::Fill;
    witness.payload = Text("payload");
    const void *const built = ARU_Detect_BuildNotifyMsg(Instance(), &Instance()->bookInfos, 2, 8, 9);
    const Bytes head = Head(48 + 7, 0, Instance()->sequence, kNotification, 0, 0);
    const Bytes letter = Join({head, kIds, kEvent, Part(18, Join({Host32(5), Host32(6)})), witness.payload});
    EXPECT_EQ(memcmp(built, letter.data(), letter.size()), 0);
    EXPECT_EQ(witness.filled, Words({16384, 8, 9}));
    DMS_MsgFree(kDetector, const_cast<void *>(built));
}

TEST_F(Detecting, MalformedAndForeignMessages) {
    const Bytes whole = Letter(kSubscribe, {kIds, kEvent, Key(1)});
    const auto stated = [&](uint16_t length) { return Join({Host16(length), Slice(whole, 2, whole.size())}); };
    for (uint32_t own : {0u, 2u, 17u, 18u}) {
        Register(own, 2);
    }
    const std::pair<Outcome, std::vector<Bytes>> kLetters[] = {
        {{.code = 5}, {Letter(kSubscribe, {}), stated(0), stated(16), stated(36), Letter(kSubscribe, {kIds, kEvent})}},
        {{.code = 5}, {Letter(kSubscribe, {kEvent, Key(1)}), Letter(kSubscribe, {kIds, Key(1)})}},
        {{.code = 5}, {Letter(kUnsubscribe, {kIds}), Letter(kUnsubscribe, {Key(1)})}},
        {{.code = 1}, {Letter(17, {kIds, kEvent, Key(1)}), Letter(kNotification, {kIds, kEvent, Key(1)})}},
        {{.code = 1}, {Letter(kSubscribe, {kIds, kEvent, Key(1)}, kResponse), Letter(kUnsubscribe, {}, kResponse)}},
        {{.answers = 1}, {Letter(kNotification, {}, kResponse)}},
        {{.code = 1, .debug = true}, {Join({Slice(whole, 0, 3), {13}, Slice(whole, 4, whole.size())})}},
        {kAccepted, {stated(37), stated(65535), Letter(kUnsubscribe, {kIds, Host16(18)})}},
        {kAccepted, {Letter(kSubscribe, {kIds, kEvent, Key(8), Host16(102), Host16(0xffff)})}}};
    for (const auto &[expected, letters] : kLetters) {
        for (const Bytes &letter : letters) {
            SCOPED_TRACE(testing::PrintToString(letter));
            Expect(Deliver(letter), expected);
        }
    }
    const std::string calls = "match (12) 64, match 1, match 1, match bare 0, match 8, match (65539) 0";
    Expect(Event(8, 1), {.calls = calls, .told = {8}});
    Port other(10);
    peer = &other;
    Expect(Deliver(whole), {.code = 1});
    other.BecomeSubscriber();
    Expect(Deliver(whole), kAccepted);
    peer = &subscriber;
    Expect(Deliver(whole), {.code = 1});
    subscriber.Send(whole);
    const Message fromNobody = detector.Receive();
    DMS_MsgSendCidSet(fromNobody.get(), 0);
    setenv("TAV_ENV_5", "99", 1);  // a router without a subscriber
    EXPECT_EQ(ARU_Detect_ProcMsg(kVs, handle, fromNobody.get()), 1u);
    unsetenv("TAV_ENV_5");  // router 0
    EXPECT_EQ(ARU_Detect_GetAruId(kVs), 0u);
    EXPECT_EQ(TAV_Posix_BusServe(other.port, 180, 0, kVs), 0u);
    EXPECT_EQ(ARU_Detect_GetAruId(kVs), other.id);
}

TEST_F(Detecting, SingleCalls) {
    SubscribeAll(kOrdinary, {{1, {{kMatch, 1}}}});
    ARU_Detect_Instance *const instance = Instance();
    ARU_Detect_BookInfo *const bookInfo = ARU_Detect_FindBookInfo(instance, 1);
    const Cond *const first = Elements<&Cond::bookLink>(bookInfo->conds).First();
    Cond *const loose = ARU_Detect_NewCond(11, first->type, 0);
    const auto debugAfter = [&](auto step) {
        ARU_Detect_EnableDebug(instance);
        return step(), instance->debugSwitch;
    };
    const auto untyped =
        std::unique_ptr<Cond, decltype(&ARU_Detect_FreeCond)>(ARU_Detect_NewCond(11, nullptr, 0), ARU_Detect_FreeCond);
    EXPECT_EQ(ARU_Detect_NewCond(11, nullptr, UINT32_MAX - sizeof(Cond) + 1), nullptr) << "the size must not wrap";
    EXPECT_EQ(ARU_Detect_CondTheSame(untyped.get(), first, nullptr), 0u);
    EXPECT_EQ(ARU_Detect_CondTheSame(first, untyped.get(), nullptr), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_DisableDebug(instance); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FindBookInfo(instance, 1); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FindBookInfo(instance, 2); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_NewBookInfo(instance, 2); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_ParseAgain(instance); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FindOrCreateCondGroup(instance, first, nullptr); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_RemoveCond(loose); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_FreeCond(loose); }), 0u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_DestroyCond(ARU_Detect_NewCond(11, nullptr, 0)); }), 1u);
    EXPECT_EQ(debugAfter([&] { ARU_Detect_ProcMsg_Ex(kVs, instance, nullptr); }), 1u);
    Expect(Watch([&] { return Register(200, kMatch); }, {Call::kMalloc, 1}), {.code = 3, .errors = 1, .debug = true});
    EXPECT_EQ(ARU_Detect_ProcUnBookMsg(instance, 99, nullptr), 5u);
    EXPECT_EQ(ARU_Detect_SendBookMsgAck(instance, 1, 0, nullptr), 2u);
    const Bytes nothing = Letter(kSubscribe, {});
    uint32_t words[] = {7, 7};
    EXPECT_EQ(Words({ARU_Detect_MsgGetBookKey(nothing.data(), words), ARU_Detect_MsgGetEventType(nothing.data(), words),
                     ARU_Detect_MsgGetLrVr(nothing.data(), words, words + 1), words[0], words[1]}),
              Words({1, 1, 1, 7, 7}));
    const Bytes longest = Part(101, Filled(65535, 9));
    ARU_Detect_BookTlvSave(instance, bookInfo, longest.data());
    EXPECT_EQ(memcmp(bookInfo->savedTlv, longest.data(), longest.size()), 0);
    for (const auto &[kind, code] : {std::pair(Call::kMemCopy, 5u), std::pair(Call::kMalloc, 3u)}) {
        interposer::FailNth(kind, 1);
        EXPECT_EQ(ARU_Detect_BookMsgParse(instance, bookInfo, Letter(kSubscribe, {Part(102, {})}).data()), code);
    }
}

/** An instance; one that walks looks everything up in its lists. What is done to both must look the same. */
struct Twin {
    explicit Twin(bool itWalks)
        : walks(itWalks), instance(ARU_Detect_Init_Ex(11, 1, 2, nullptr, reinterpret_cast<uintptr_t>(&witness))) {}
    ~Twin() { ARU_Detect_UnInit_Ex(instance); }
    static uint8_t Value(const void *data, uint32_t length) { return static_cast<const uint8_t *>(data)[length - 4]; }
    /** Whether values are neighbours: of several groups, a condition may be the same as more than one. */
    static uint32_t IsNear(const void *a, const void *b, uint32_t length) {
        return abs(Value(a, length) - Value(b, length)) <= 1 ? 2 : 0;
    }
    uint32_t Register(uint32_t id) const {  // bit 0: with parse; bit 1: with compare
        return ARU_Detect_RegisterCond_Ex(instance, id, id & 1 ? Witness::Parse : nullptr, Witness::Match,
                                          id & 1 ? Witness::Free : nullptr, id & 2 ? IsNear : nullptr, nullptr);
    }
    detect::BookInfo *Book(uint32_t at) const {
        detect::List *link = instance->bookInfos.next;
        for (at %= 8; at > 0; --at) {
            link = link->next;
        }
        return link == &instance->bookInfos ? ARU_Detect_NewBookInfo(instance, 3)
                                            : detect::OwnerOf<&detect::BookInfo::link>(link);
    }
    uint32_t Tell(const detect::BookInfo *book) const {  // its key and its place
        uint32_t place = 0;
        for (const detect::BookInfo &each : Elements<&detect::BookInfo::link>(instance->bookInfos)) {
            ++place;
            if (&each == book) {
                return 100 * book->key + place;
            }
        }
        return 0;
    }
    /** Puts a condition of the caller's making, or one taken from a subscription, into a group that it seeks, or the
     * last. */
    uint32_t AddByHand(uint32_t type, uint8_t value, uint32_t at, bool seeks) {
        detect::BookInfo *const book = Book(at);
        Cond *cond = nullptr;
        if (at % 2 == 0 && !detect::IsEmpty(book->conds)) {
            cond = ARU_Detect_RemoveCond(Elements<&Cond::bookLink>(book->conds).First());
        } else {
            cond = ARU_Detect_NewCond(11, type < 12 ? ARU_Detect_FindCondType(instance, type) : &unregistered, 8);
            cond->data = memset(cond + 1, value, 8);
            cond->length = 8;
        }
        detect::List &groups = instance->groups;
        detect::CondGroup *group = detect::OwnerOf<&detect::CondGroup::link>(groups.prev);
        if (seeks || detect::IsEmpty(groups)) {
            group = ARU_Detect_FindOrCreateCondGroup(instance, cond, at % 5 == 0 ? IsNear : nullptr);
        }
        ARU_Detect_AddCond(book, group, cond);
        return 0;
    }
    /** The lists in their order, with the values of the conditions and the places of their groups. */
    std::string State() const {
        std::ostringstream state;
        std::map<const void *, size_t> places;
        const auto write = [&](const Cond &cond) {
            state << ' ' << (cond.type != nullptr ? cond.type->typeId : 0) << '.' << places[cond.group] << '.'
                  << +Value(cond.data, cond.length);
        };
        for (const detect::CondGroup &group : Elements<&detect::CondGroup::link>(instance->groups)) {
            places.emplace(&group, places.size() + 1);
            state << "\ngroup";
            for (const Cond &cond : Elements<&Cond::groupLink>(group.conds)) {
                write(cond);
            }
        }
        for (const detect::BookInfo &book : Elements<&detect::BookInfo::link>(instance->bookInfos)) {
            state << "\nsubscription " << book.key << (book.savedTlv != nullptr ? " waits" : "");
            for (const Cond &cond : Elements<&Cond::bookLink>(book.conds)) {
                write(cond);
            }
        }
        state << "\ndebug " << instance->debugSwitch << ", errors " << instance->errors << ": " << witness.calls;
        return state.str();
    }
    Witness witness;
    const bool walks;
    ARU_Detect_Instance *instance;
    detect::CondType unregistered = {7, {}, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, {}, {}};
};

TEST(Lookups, AreWhatAWalkOfTheListsGives) {
    const NothingLeaks nothingLeaks;
    Random random;
    for (uint32_t round = 0; round < 200; ++round) {
        Twin twins[] = {Twin(false), Twin(true)};
        for (uint32_t step = 0; step < 100; ++step) {
            const uint32_t kind = random() % 32, key = random() % 6, at = random(), refused = random() % 8 == 0 ? 1 : 0;
            std::vector<Bytes> parts;
            for (uint32_t count = random() % 4; parts.size() <= count;) {
                const uint32_t type = 7 + random() % 5, length = 4 + random() % 3 / 2;
                parts.push_back(Part(type, Filled(length, static_cast<uint8_t>(random() % 5))));
            }
            const Bytes letter = Letter(kSubscribe, parts);
            std::vector<std::pair<uint32_t, std::string>> outcomes;
            for (Twin &twin : twins) {
                ARU_Detect_Instance *const instance = twin.instance;
                const bool isByHand = round % 2 != 0 && step > 40;
                twin.witness.calls.clear();
                twin.witness.refused = refused;
                ARU_Detect_EnableDebug(instance);
                if (twin.walks) {
                    instance->hasTwins = instance->hasStrays = 1;
                }
                const uint32_t code =
                    kind < 16   ? ARU_Detect_ProcBookMsg(instance, key, letter.data())
                    : kind < 18 ? ARU_Detect_ProcUnBookMsg(instance, key, nullptr)
                    : kind < 21 ? ARU_Detect_FilterEx(instance, 1 + at % 7, 1)
                    : kind < 22 ? ARU_Detect_FilterEx4CliEvent(instance, 1 + at % 7, 1)
                    : kind < 24 ? twin.Register(7 + at % 4)
                    : kind < 26 ? twin.Tell(ARU_Detect_FindBookInfo(instance, key))
                    : kind < 28 ? (ARU_Detect_BookTlvParse(instance, twin.Book(at), parts[0].data()), 0)
                    : kind < 29 ? (ARU_Detect_DestroyAllConds(twin.Book(at)), 0)
                    : !isByHand ? 0
                    : kind < 30 ? twin.Tell(ARU_Detect_NewBookInfo(instance, key))
                    : kind < 31 && at % 2
                        ? (ARU_Detect_DestroyBookInfo(twin.Book(at)), 0)
                        : twin.AddByHand(7 + key, static_cast<uint8_t>(at >> 8) % 5, at, round % 4 == 3);
                outcomes.emplace_back(code, twin.State());
            }
            ASSERT_EQ(outcomes[0], outcomes[1]) << round << " " << step << " " << kind;
            const Elements<&detect::BookInfo::link> all(twins[0].instance->bookInfos);
            const detect::BookInfo *first = nullptr;
            for (const detect::BookInfo &each : all) {
                first = first == nullptr && each.key == key ? &each : first;
            }
            ASSERT_EQ(ARU_Detect_FindBookInfo(twins[0].instance, key), first) << round << " " << step;
        }
    }
}

TEST_F(Detecting, LifeCycle) {
    subscriber.Send(Letter(kSubscribe, {Key(1), kIds, kEvent}));
    const Message message = detector.Receive();
    const auto codes = [&](uint32_t vsId, ARU_Detect_Handle *given) {
        const uint32_t code = ARU_Detect_RegisterCond(vsId, given, 7, nullptr, nullptr, nullptr, nullptr, nullptr);
        return Words({code, ARU_Detect_ProcMsg(vsId, given, message.get()), ARU_Detect_Filter(vsId, given, 0, 0)});
    };
    ARU_Detect_Handle empty = {};
    EXPECT_EQ(codes(kVs, nullptr), Words({2, 2, 2}));
    EXPECT_EQ(codes(kVs, &empty), Words({2, 2, 2}));
    EXPECT_EQ(codes(99, handle), Words({6, 6, 6}));
    EXPECT_EQ(codes(kVs, handle), Words({0, 0, 0}));
    EXPECT_EQ(codes(kVs, handle), Words({5, 0, 0}));
    EXPECT_EQ(ARU_Detect_RegisterCond_Ex(Instance(), 8, Witness::Parse, nullptr, nullptr, nullptr, nullptr), 2u);
    EXPECT_EQ(ARU_Detect_RegisterCond_Ex(Instance(), 8, nullptr, nullptr, Witness::Free, nullptr, nullptr), 2u);
    ARU_Detect_UnInit(&empty);  // frees nothing
    ARU_Detect_DeleteVs(kVs, &empty);
    ARU_Detect_Instance *const oldest = Instance();
    interposer::FailNth(Call::kMalloc, 2);  // the instance alone
    EXPECT_EQ(codes(kVs, Init(handle)), Words({2, 2, 2}));
    EXPECT_EQ(codes(kVs, Init(handle)), Words({0, 0, 0}));
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
    for (uint32_t nth = 1; nth <= 3; ++nth) {  // list and node of a handle without list: it goes with them
        handle = Init(nullptr);
        ARU_Detect_VS_LIST_Free(std::exchange(handle->vsList, nullptr));
        interposer::FailNth(Call::kMalloc, nth);
        EXPECT_EQ(Init(handle), nth < 3 ? nullptr : handle);
    }
    ARU_Detect_UnInit(handle);
    handle = Init(Init(nullptr));
    ARU_Detect_DeleteVs(kVs, handle);
    EXPECT_EQ(codes(kVs, handle), Words({0, 0, 0}));
    ARU_Detect_UnRegAllCondTypes(Instance());
    EXPECT_EQ(codes(kVs, handle), Words({0, 0, 0})) << "registered anew";
}

}  // namespace
