/*
 * A subscribing process: it asks a store_watcher for the changes of one VS that interest it, and prints them.
 *
 * usage: store_subscriber COMPONENT WATCHER VS any|all [--events N] [--unbook] --book KEY CONDITION... [--book ...]
 *
 * COMPONENT is this process's id on the message bus, WATCHER that of the watcher, which must run already. With `any` a
 * subscription is satisfied when one of its conditions is, with `all` when all of them are; the rule is that of the VS,
 * so it is the same for all subscriptions. Each --book is one subscription with a key of one's choice. Conditions:
 *
 *     class=CLASS               a record of this class has changed
 *     field=CLASS:FID:VALUE     ... and its field has this value
 *     key=CLASS:VALUE           ... and its key has this value
 *
 * The process ends after N notifications, and on SIGINT or SIGTERM; with --unbook it unsubscribes first. Without it its
 * subscriptions stay, and whoever serves the VS next is notified as soon as the watcher has heard of that process.
 */
#include <chrono>
#include <cstdio>
#include <stdexcept>

#include "aru_detect.h"
#include "bus_process.h"
#include "event_messages.h"
#include "numbers.h"
#include "platform/dms_message.h"
#include "platform/mel_environment.h"
#include "store_fields.h"
#include "tav/values.h"
#include "tav_posix.h"

namespace {

constexpr uint32_t kAnyEventType = 1;
constexpr uint32_t kLrId = 0;

/** How long the watcher may take to acknowledge that nothing is subscribed any more, in milliseconds. */
constexpr std::chrono::milliseconds kUnbookLimit{5000};

/** A subscription: its key and its condition TLVs. */
struct Book {
    uint32_t key;
    std::vector<std::vector<uint8_t>> conditions;
};

struct Options {
    uint32_t componentId = 0;
    uint32_t watcherId = 0;
    uint32_t vsId = 0;
    uint32_t eventType = 0;
    std::optional<uint32_t> events;  // notifications to wait for; none for no end
    bool unbooks = false;
    std::vector<Book> books;
};

/** Cuts the part before the next colon off a text. */
std::string CutPart(std::string &text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        throw std::invalid_argument("a condition is class=CLASS, field=CLASS:FID:VALUE or key=CLASS:VALUE");
    }
    std::string part = text.substr(0, colon);
    text.erase(0, colon + 1);
    return part;
}

/** Makes the TLV of a condition. Values may contain colons. */
std::vector<uint8_t> ParseCondition(const std::string &text) {
    const size_t equals = text.find('=');
    const std::string kind = text.substr(0, equals);
    std::string rest = equals == std::string::npos ? "" : text.substr(equals + 1);
    if (kind == "class") {
        return MakeTlv(kClassCondition, {ParseNumber(rest, "class")});
    }
    const uint32_t cid = ParseNumber(CutPart(rest), "class");
    if (kind == "field") {
        const uint32_t fid = ParseNumber(CutPart(rest), "field");
        return MakeTlv(kFieldCondition, {cid, fid}, BytesOf(tav::ParseValue(fid, rest)));
    }
    const std::optional<uint32_t> keyFid = KeyFieldOf(cid);
    if (kind != "key" || !keyFid) {
        throw std::invalid_argument("'" + text + "' is no condition, or its class is not known");
    }
    return MakeTlv(kKeyCondition, {cid}, BytesOf(tav::ParseValue(*keyFid, rest)));
}

uint32_t ParseRule(const std::string &rule) {
    if (rule != "any" && rule != "all") {
        throw std::invalid_argument("the rule is any or all, not '" + rule + "'");
    }
    return rule == "all" ? ARU_DETECT_EVENT_COMMAND_LINE : kAnyEventType;
}

Options ParseOptions(const std::vector<std::string> &arguments) {
    if (arguments.size() < 4) {
        throw std::invalid_argument("four arguments and a --book are needed");
    }
    Options options = {ParseNumber(arguments[0], "component"),
                       ParseNumber(arguments[1], "component"),
                       ParseNumber(arguments[2], "VS"),
                       ParseRule(arguments[3]),
                       std::nullopt,
                       false,
                       {}};
    for (size_t i = 4; i < arguments.size(); ++i) {
        const bool hasNext = i + 1 < arguments.size();
        if (arguments[i] == "--unbook") {
            options.unbooks = true;
        } else if (arguments[i] == "--events" && hasNext) {
            options.events = ParseNumber(arguments[++i], "number of events");
        } else if (arguments[i] == "--book" && hasNext) {
            options.books.push_back({ParseNumber(arguments[++i], "key"), {}});
        } else if (!arguments[i].starts_with("--") && !options.books.empty()) {
            options.books.back().conditions.push_back(ParseCondition(arguments[i]));
        } else {
            throw std::invalid_argument("'" + arguments[i] +
                                        "' is unknown, lacks its value or stands before any --book");
        }
    }
    if (options.books.empty()) {
        throw std::invalid_argument("there is nothing to subscribe to without a --book");
    }
    return options;
}

/** Shows a TLV's value, which is in file order. */
std::string FileValueText(uint32_t type, const uint8_t *value, uint32_t length) {
    std::string hostValue(length, '\0');
    const uint32_t result = TAV_ExtTlvConvertEndian(type, length, value, hostValue.data());
    return result == TAV_OK ? tav::FormatValue(type, hostValue) : "?";
}

/** Visitor of a record's fields: appends one to the text. */
uint32_t AppendField(uint32_t fid, uint8_t *value, uint32_t length, void *context) {
    *static_cast<std::string *>(context) += " " + std::to_string(fid) + "=" + FileValueText(fid, value, length);
    return TAV_OK;
}

/** Visitor of a payload: appends what happened, the VS, or the record to the text. */
uint32_t AppendPart(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    auto &text = *static_cast<std::string *>(context);
    switch (type) {
        case kChangeTlv:
            text.append(reinterpret_cast<const char *>(value), length);
            return TAV_OK;
        case EXT_TLV_VS_ID:
            text += " in VS " + FileValueText(type, value, length) + ":";
            return TAV_OK;
        default:
            text += " class " + std::to_string(type);
            return TAV_ExtTlvProcForEach(AppendField, value, length, context);
    }
}

/** Describes the change that a notification's payload holds. */
std::string PayloadText(Bytes payload) {
    if (payload.empty()) {
        return "(no details)";
    }
    std::vector<uint8_t> bytes(payload.begin(), payload.end());  // the walk asks for bytes that may be changed
    std::string text;
    const uint32_t result = TAV_ExtTlvProcForEach(AppendPart, bytes.data(), static_cast<uint32_t>(bytes.size()), &text);
    return result == TAV_OK ? text : text + " (the rest is damaged)";
}

class Subscriber {
  public:
    explicit Subscriber(const Options &options);

    /** Subscribes, and prints notifications until it is time to end. */
    void Run();

  private:
    std::vector<uint8_t> NewRequest(Operation operation, uint32_t key) const;
    void Subscribe(const Book &book);
    void Unsubscribe();
    void ReceiveMessage();
    void HandleMessage(const ParsedMessage &message);

    Options options_;
    uint32_t virtualRouter_ = 0;  // of the environment's setting, or 0
    BusPort port_;
    uint32_t events_ = 0;           // notifications received
    uint32_t unsubscriptions_ = 0;  // unsubscriptions acknowledged
};

Subscriber::Subscriber(const Options &options) : options_(options), port_(options.componentId) {
    MEL_GetEnvValue(kVirtualRouterSetting, &virtualRouter_);
    // The watcher listens to nobody but the component that is announced for the VS, so this comes first.
    port_.Serve(kSubscriberKind, virtualRouter_, options_.vsId);
}

/** Starts a message with the two TLVs that both requests need. */
std::vector<uint8_t> Subscriber::NewRequest(Operation operation, uint32_t key) const {
    std::vector<uint8_t> message = NewMessage(operation);
    AppendTlv(message, MakeTlv(kBookKeyTlv, {key}));
    AppendTlv(message, MakeTlv(kLrVrTlv, {kLrId, virtualRouter_}));
    return message;
}

void Subscriber::Subscribe(const Book &book) {
    std::vector<uint8_t> message = NewRequest(kSubscribe, book.key);
    AppendTlv(message, MakeTlv(kEventTypeTlv, {options_.eventType}));
    for (const std::vector<uint8_t> &condition : book.conditions) {
        AppendTlv(message, condition);
    }
    port_.Send(options_.watcherId, message);
}

/** Unsubscribes, and waits for the acknowledgements: behind them no notification comes any more. */
void Subscriber::Unsubscribe() {
    for (const Book &book : options_.books) {
        port_.Send(options_.watcherId, NewRequest(kUnsubscribe, book.key));
    }
    const auto end = std::chrono::steady_clock::now() + kUnbookLimit;
    while (unsubscriptions_ < options_.books.size()) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        if (left <= 0) {
            throw std::runtime_error("the watcher does not acknowledge the end of the subscriptions");
        }
        if (WaitForInput({port_.Fd()}, static_cast<int>(left))[0]) {
            ReceiveMessage();
        }
    }
}

void PrintKeys(const std::vector<uint32_t> &keys) {
    for (const uint32_t key : keys) {
        printf(" %u", key);
    }
}

/** Prints a message, and acknowledges a notification. */
void Subscriber::HandleMessage(const ParsedMessage &message) {
    const MessageHeader &header = message.header;
    const bool isResponse = (header.flags & kResponseFlag) != 0;
    if (isResponse && (header.operation == kSubscribe || header.operation == kUnsubscribe)) {
        unsubscriptions_ += header.operation == kUnsubscribe ? 1 : 0;
        printf("key");
        PrintKeys(message.keys);
        printf(header.operation == kSubscribe ? " subscribed, result %u\n" : " unsubscribed, result %u\n",
               header.result);
    } else if (!isResponse && header.operation == kNotification) {
        ++events_;
        printf("notification %u for key", header.sequence);
        PrintKeys(message.keys);
        printf(": %s\n", PayloadText(message.payload).c_str());
        port_.Send(options_.watcherId, NotificationAnswer(header));
    }
}

/** Takes one message. What does not come from the watcher is not looked at. */
void Subscriber::ReceiveMessage() {
    const std::optional<BusMessage> message = port_.Receive();
    if (!message || message->Sender() != options_.watcherId) {
        return;
    }
    if (const std::optional<ParsedMessage> parsed = ParseMessage(message->Content())) {
        HandleMessage(*parsed);
    }
}

void Subscriber::Run() {
    const int stopFd = CatchStopSignals();
    for (const Book &book : options_.books) {
        Subscribe(book);
    }
    while (!options_.events || events_ < *options_.events) {
        const std::vector<bool> readable = WaitForInput({stopFd, port_.Fd()});
        if (readable[0]) {
            break;
        }
        if (readable[1]) {
            ReceiveMessage();
        }
    }
    if (options_.unbooks) {
        Unsubscribe();
    }
}

}  // namespace

int main(int argc, char **argv) {
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);  // once; it decides how values are read and written
    Options options;
    try {
        options = ParseOptions({argv + 1, argv + argc});
    } catch (const std::exception &error) {
        fprintf(stderr,
                "store_subscriber: %s\n"
                "usage: store_subscriber COMPONENT WATCHER VS any|all [--events N] [--unbook]"
                " --book KEY CONDITION... [--book ...]\n",
                error.what());
        return 2;
    }
    return RunAccounted("store_subscriber", [&] { Subscriber(options).Run(); });
}
