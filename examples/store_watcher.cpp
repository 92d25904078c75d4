/*
 * A detecting process: it owns a store file, takes edits from its standard input, and tells subscribers (such as
 * store_subscriber) of the edits that they have asked for.
 *
 * usage: store_watcher FILE COMPONENT VS...
 *
 * FILE is opened for reading and writing, and created when it is absent. COMPONENT is this process's id on the message
 * bus. Each VS can have one subscriber, which is whoever serves it as component 180. Commands, one a line:
 *
 *     set VS CLASS KEYFID=VALUE FID=VALUE...     adds a record, or changes its fields
 *     del VS CLASS KEYFID=VALUE                  deletes a record
 *     quit                                       as the end of the input, SIGINT and SIGTERM do
 */
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "aru_detect.h"
#include "bus_process.h"
#include "change_event.h"
#include "event_messages.h"
#include "numbers.h"
#include "platform/mel_memory.h"
#include "store_fields.h"
#include "tav/session.h"
#include "tav/values.h"

namespace {

struct UnInitHandle {
    void operator()(ARU_Detect_Handle *handle) const { ARU_Detect_UnInit(handle); }
};
using Detection = std::unique_ptr<ARU_Detect_Handle, UnInitHandle>;

/** Throws std::runtime_error for a result other than 0. */
void Require(uint32_t result, const char *what) {
    if (result != 0) {
        char code[16];
        snprintf(code, sizeof(code), "0x%x", result);
        throw std::runtime_error(std::string(what) + " failed with " + code);
    }
}

/** Adds a VS and the condition types that its subscriber can use. */
Detection AddVs(Detection detection, uint32_t componentId, uint32_t vsId) {
    // The handle is given away: when the call fails, it has been freed.
    detection.reset(ARU_Detect_Init(g_pTavCommHandle, componentId, vsId, detection.release(), FillChangePayload, 0));
    if (!detection) {
        throw std::bad_alloc();
    }
    Require(RegisterChangeConditions(vsId, detection.get()), "registering the condition types");
    return detection;
}

/** Prints what a message of the subscriber was for. */
void PrintMessage(uint32_t vsId, const BusMessage &message, uint32_t result) {
    const auto header = Load<MessageHeader>(message.Get());
    printf("vs %u: component %u ", vsId, message.Sender());
    uint32_t key = 0;
    if (header.operation == kNotification) {
        printf("has taken notification %u\n", header.sequence);
    } else if (ARU_Detect_MsgGetBookKey(message.Get(), &key) == ARU_DETECT_OK) {
        printf("%s key %u, result %u\n", header.operation == kSubscribe ? "subscribes" : "unsubscribes", key, result);
    } else {
        printf("has sent a message without a key, result %u\n", result);
    }
}

/**
 * Hands a message to the VS whose subscriber has sent it. Every other VS ignores it, because a component is the
 * subscriber of one VS alone.
 */
void HandleMessage(ARU_Detect_Handle *handle, const std::vector<uint32_t> &vsIds, const BusMessage &message) {
    for (const uint32_t vsId : vsIds) {
        const uint32_t result = ARU_Detect_ProcMsg(vsId, handle, message.Get());
        if (result != ARU_DETECT_IGNORED) {
            PrintMessage(vsId, message, result);
            return;
        }
    }
    printf("message of component %u ignored: not from a subscriber, or of an unknown kind\n", message.Sender());
}

/** Reports a change as an event, and prints what has become of it. */
void ReportChange(ARU_Detect_Handle *handle, const std::string &command, Change change) {
    const uint32_t result = ARU_Detect_Filter(change.vsId, handle, reinterpret_cast<uintptr_t>(&change), 0);
    const char *outcome = "nobody is notified";
    if (result != ARU_DETECT_OK) {
        outcome = "the notification could not be sent";
    } else if (change.isTold) {
        outcome = "the subscriber is notified";
    }
    printf("vs %u: %s -> event, conditions matched: %u, %s\n", change.vsId, command.c_str(), change.matches, outcome);
}

/** An edit, taken from a command. */
struct Edit {
    bool isDelete;
    uint32_t vsId;
    uint32_t cid;
    tav::Record record;  // the key field, and of a set the other fields
};

/** Adds the field of one FID=VALUE to a record. The library needs each field once. */
void AddAssignment(const std::string &assignment, std::vector<uint32_t> &fids, tav::Record *record) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos) {
        throw std::invalid_argument("'" + assignment + "' is not FID=VALUE");
    }
    const uint32_t fid = ParseNumber(assignment.substr(0, equals), "field");
    if (std::find(fids.begin(), fids.end(), fid) != fids.end()) {
        throw std::invalid_argument("field " + std::to_string(fid) + " is given twice");
    }
    record->Add(fid, BytesOf(tav::ParseValue(fid, assignment.substr(equals + 1))));
    fids.push_back(fid);
}

/** Parses a command other than `quit`. Throws std::invalid_argument, and tav::Error for a value. */
Edit ParseEdit(const std::string &command, const std::vector<uint32_t> &vsIds) {
    std::istringstream words(command);
    std::string verb, vs, cls, assignment;
    words >> verb >> vs >> cls;
    if ((verb != "set" && verb != "del") || !words) {
        throw std::invalid_argument(
            "a command is set VS CLASS KEYFID=VALUE FID=VALUE..., del VS CLASS KEYFID=VALUE, or quit");
    }
    const uint32_t cid = ParseNumber(cls, "class");
    Edit edit = {verb == "del", ParseNumber(vs, "VS"), cid, tav::Record(cid)};
    if (std::find(vsIds.begin(), vsIds.end(), edit.vsId) == vsIds.end()) {
        throw std::invalid_argument("VS " + vs + " is not watched");
    }
    const std::optional<uint32_t> keyFid = KeyFieldOf(edit.cid);
    if (!keyFid) {
        throw std::invalid_argument("class " + cls + " is not known");
    }
    std::vector<uint32_t> fids;
    while (words >> assignment) {
        AddAssignment(assignment, fids, &edit.record);
    }
    if (fids.empty() || fids.front() != *keyFid || (edit.isDelete && fids.size() > 1)) {
        throw std::invalid_argument("class " + cls + " is keyed by field " + std::to_string(*keyFid) +
                                    ": it comes first, and to delete it is all");
    }
    return edit;
}

/** The command line. */
struct Options {
    std::string path;
    uint32_t componentId;
    std::vector<uint32_t> vsIds;
};

class Watcher {
  public:
    explicit Watcher(const Options &options);

    /** Serves messages and commands until it is told to end. */
    void Run();

  private:
    void Set(const std::string &command, Edit edit);
    void Delete(const std::string &command, const Edit &edit);
    bool Commit(const std::string &command, uint32_t vsId);
    void Execute(const std::string &command);
    bool ReadCommands();

    std::vector<uint32_t> vsIds_;
    tav::Session session_;  // as long as this process watches, no other one changes the file
    BusPort port_;
    Detection detection_;
    std::string input_;  // what has been read of the standard input and not been executed yet
};

Watcher::Watcher(const Options &options)
    : vsIds_(options.vsIds), session_(options.path, {.create = true}), port_(options.componentId) {
    for (const uint32_t vsId : vsIds_) {
        detection_ = AddVs(std::move(detection_), options.componentId, vsId);
    }
}

/** Brings an edit to the file. Returns false when that holds the same already: nothing has happened then. */
bool Watcher::Commit(const std::string &command, uint32_t vsId) {
    bool isWritten = false;
    try {
        isWritten = session_.Commit(command);
    } catch (const tav::Error &error) {
        // A process whose file no longer follows its memory has nothing reliable to tell any more.
        throw std::runtime_error(error.what());
    }
    if (!isWritten) {
        printf("vs %u: %s -> nothing has changed, no event\n", vsId, command.c_str());
    }
    return isWritten;
}

void Watcher::Set(const std::string &command, Edit edit) {
    tav::Store &store = session_.Store();
    const tav::Record key = tav::Record::KeyOf(edit.record.View());
    if (store.Find(edit.vsId, key)) {
        store.Set(edit.vsId, edit.record);
    } else {
        store.Add(edit.vsId, std::move(edit.record));
    }
    if (Commit(command, edit.vsId)) {
        const tav::RecordView stored = store.Find(edit.vsId, key).value();  // an edit ends the use of the old one
        ReportChange(detection_.get(), command, {kSetText, edit.vsId, edit.cid, stored.Get()});
    }
}

/** The event shows the record as it was, so it is copied before it goes. */
void Watcher::Delete(const std::string &command, const Edit &edit) {
    const std::optional<tav::RecordView> stored = session_.Store().Find(edit.vsId, edit.record);
    if (!stored) {
        throw std::invalid_argument("there is no such record");
    }
    const tav::Record copy(*stored);
    session_.Store().Remove(edit.vsId, edit.record);
    if (Commit(command, edit.vsId)) {
        ReportChange(detection_.get(), command, {kDeletedText, edit.vsId, edit.cid, copy.Get()});
    }
}

/** Executes one command. A bad one is reported and otherwise ignored. */
void Watcher::Execute(const std::string &command) {
    try {
        Edit edit = ParseEdit(command, vsIds_);
        if (edit.isDelete) {
            Delete(command, edit);
        } else {
            Set(command, std::move(edit));
        }
    } catch (const std::invalid_argument &error) {
        fprintf(stderr, "store_watcher: %s: %s\n", command.c_str(), error.what());
    } catch (const tav::Error &error) {
        fprintf(stderr, "store_watcher: %s: %s\n", command.c_str(), error.what());
    }
}

/** Executes the lines that have come. Returns false at `quit` and at the end of the input. */
bool Watcher::ReadCommands() {
    char buffer[4096];
    const ssize_t size = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (size < 0) {
        throw std::system_error(errno, std::generic_category(), "reading commands");
    }
    input_.append(buffer, static_cast<size_t>(size));
    if (size == 0 && !input_.empty()) {
        input_ += '\n';  // a last line without an end is a command, too
    }
    for (size_t end; (end = input_.find('\n')) != std::string::npos;) {
        const std::string command = input_.substr(0, end);
        input_.erase(0, end + 1);
        if (command == "quit") {
            return false;
        }
        if (!command.empty()) {
            Execute(command);
        }
    }
    return size != 0;
}

void Watcher::Run() {
    const int stopFd = CatchStopSignals();
    printf("component %u watches %zu VS\n", port_.ComponentId(), vsIds_.size());
    for (bool goesOn = true; goesOn;) {
        const std::vector<bool> readable = WaitForInput({stopFd, port_.Fd(), STDIN_FILENO});
        if (readable[1]) {
            if (const std::optional<BusMessage> message = port_.Receive()) {
                HandleMessage(detection_.get(), vsIds_, *message);
            }
        }
        goesOn = !readable[0] && (!readable[2] || ReadCommands());
    }
}

Options ParseOptions(const std::vector<std::string> &arguments) {
    if (arguments.size() < 3) {
        throw std::invalid_argument("a file, a component and a VS are needed");
    }
    Options options = {arguments[0], ParseNumber(arguments[1], "component"), {}};
    for (size_t i = 2; i < arguments.size(); ++i) {
        options.vsIds.push_back(ParseNumber(arguments[i], "VS"));
    }
    return options;
}

}  // namespace

int main(int argc, char **argv) {
    Options options;
    try {
        options = ParseOptions({argv + 1, argv + argc});
    } catch (const std::invalid_argument &error) {
        fprintf(stderr, "store_watcher: %s\nusage: store_watcher FILE COMPONENT VS...\n", error.what());
        return 2;
    }
    return RunAccounted("store_watcher", [&] { Watcher(options).Run(); });
}
