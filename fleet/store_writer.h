/*
 * Writing to a bucket as its only writer.
 */
#ifndef FLEET_STORE_WRITER_H
#define FLEET_STORE_WRITER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fleet/store_bucket.h"

namespace fleet {

/**
 * Puts messages into a bucket without waiting for each. Every message says which sequence the last one in the bucket
 * must have: from the moment when somebody else has written, the server takes none any more. So two that both believe
 * to be the only one never mix. The answers are counted by whoever writes: no thread of the client library runs ours.
 */
class Writer {
  public:
    explicit Writer(const Bucket &bucket);

    /**
     * Puts the first message, whatever the bucket's last sequence is, and knows that from then on.
     *
     * @param former  the sequence of the last message of this name, 0 when there is none
     * @return false when there is another one by now
     */
    bool Begin(const std::string &name, std::string_view value, uint64_t former);

    /** Puts a value. Throws Error, also for messages before: TAV_ERR_CHANGED when somebody else has written. */
    void Put(const std::string &name, std::string_view value) { Send(name, value, false); }

    /** Deletes what has this name. Throws as Put. */
    void Delete(const std::string &name) { Send(name, {}, true); }

    /**
     * Removes messages of a name, or of all that a '*' stands for, before a sequence. So whoever writes after us loses
     * nothing. Not by their sequences: buckets do not allow that.
     */
    void Forget(const std::string &names, uint64_t end);

    /** Waits until the server has all of it. Throws as Put. */
    void Flush() { Await(0); }

    /** The sequence of the last message that was put. */
    uint64_t Sequence() const { return sequence_; }

  private:
    Message MakeMessage(const std::string &subject, std::string_view value) const;
    void Send(const std::string &name, std::string_view value, bool isDeletion);
    void Publish(const Message &message);
    void Await(uint64_t mostUnanswered);
    void TakeAnswer();

    const Bucket &bucket_;
    std::string inbox_;
    std::unique_ptr<natsSubscription, Destroy<natsSubscription, natsSubscription_Destroy>> answers_;
    uint64_t sequence_ = 0;
    uint64_t unanswered_ = 0;
    uint64_t bytes_ = 0;     // at most so many of those that are unanswered
    uint64_t answered_ = 0;  // the sequence that the last answer gave
};

}  // namespace fleet

#endif
