/*
 * A key-value bucket: one stream of messages, the last ones of each name kept, numbered in the order of their arrival.
 */
#ifndef FLEET_STORE_BUCKET_H
#define FLEET_STORE_BUCKET_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "fleet/connection.h"
#include "tav/error.h"

namespace fleet {

/** One message of a bucket: a value that was put under a name, or the name's deletion. */
struct Entry {
    std::string_view name;
    uint64_t sequence;
    uint64_t pending;  // how many messages of the same feed are behind it; 0 for one that was asked for
    bool isDeleted;
    std::string_view value;
    Message message;  // that owns the texts
};

/**
 * A connection of its own to a bucket, for one thread. When it is lost every call throws Error (TAV_ERR_NO_SERVER), and
 * whoever wants to go on makes another.
 */
class Bucket {
  public:
    /**
     * Connects. Throws Error: TAV_ERR_INVALID for a malformed URL or name; TAV_ERR_NO_SERVER; TAV_ERR_ACCESS;
     * TAV_ERR_NO_BUCKET when the server keeps no streams, or no such bucket, or one that forgets.
     *
     * @param urls    the servers
     * @param name    the bucket: letters, digits, '-' and '_'
     * @param create  make it when it is not there
     */
    Bucket(const std::string &urls, const std::string &name, bool create);

    /** The servers and the bucket, for messages. */
    const std::string &Place() const { return place_; }

    /** Bytes that a value may have. */
    size_t MaxValue() const;

    /** The last message of a name; nothing when there was none. */
    std::optional<Entry> Last(const std::string &name) const;

    /**
     * The first message from a sequence on whose name begins so. Nothing when there is none, and when the bucket does
     * not answer such questions. Of a bucket with replicas, one that lags behind may answer.
     */
    std::optional<Entry> Next(uint64_t sequence, std::string_view prefix) const;

    /** Throws the Error that a failed call means. `errorCode` is JetStream's, 0 when it gave none. */
    [[noreturn]] void Fail(natsStatus status, int errorCode, const char *words) const;

    /** What a message of the bucket says. */
    Entry EntryOf(Message message, uint64_t sequence, uint64_t pending) const;

    natsConnection *Get() const { return connection_.get(); }
    jsCtx *Stream() const { return stream_.get(); }
    const std::string &StreamName() const { return streamName_; }

    /** What all subjects of the bucket begin with. */
    const std::string &Prefix() const { return prefix_; }

  private:
    void Check(natsStatus status, int errorCode = 0) const;
    void Inspect(bool create);

    std::string name_, place_, streamName_, prefix_;
    size_t maxMessage_ = 0;
    bool answersDirectly_ = false;
    Connection connection_;
    std::unique_ptr<jsCtx, Destroy<jsCtx, jsCtx_Destroy>> stream_;
};

/** The messages of a bucket in their order, as they come. */
class Feed {
  public:
    /** From a sequence on, those whose names match: all for ">". */
    Feed(const Bucket &bucket, const std::string &names, uint64_t sequence);

    /** The last one of a name, and those that follow. */
    Feed(const Bucket &bucket, const std::string &name);

    /** Ends the connection when the server does not answer. */
    ~Feed();
    Feed(const Feed &) = delete;
    Feed &operator=(const Feed &) = delete;

    /** Waits for the next message. Nothing when none has come in time. */
    std::optional<Entry> Next(std::chrono::milliseconds timeout);

    /** Whether one has come already. */
    bool HasNext() const;

  private:
    void Subscribe(const std::string &names, jsSubOptions *options);

    const Bucket &bucket_;
    std::unique_ptr<natsSubscription, Destroy<natsSubscription, natsSubscription_Destroy>> subscription_;
    uint64_t taken_ = 0;  // messages
};

}  // namespace fleet

#endif
