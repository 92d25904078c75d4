/*
 * Publishing to a bucket over one connection.
 */
#ifndef FLEET_STORE_PUBLICATION_H
#define FLEET_STORE_PUBLICATION_H

#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "fleet/store_bucket.h"
#include "fleet/store_call.h"
#include "fleet/store_reading.h"
#include "fleet/store_writer.h"

namespace fleet {

/**
 * The right to publish to a bucket, and what the bucket holds. When a call throws, the object is of no more use,
 * but for TAV_ERR_REFUSED.
 */
class Publication {
  public:
    /**
     * Connects, takes the claim and reads the bucket. Throws Error as Bucket does; TAV_ERR_CLAIMED when somebody else
     * has the claim and is alive; Over.
     *
     * @param claim  the caller's; one that is in the bucket already is taken up again
     */
    Publication(const Call &call, const Claim &claim);

    /**
     * Makes the bucket hold a content, and ends the generation by its head. Throws Error, with nothing written:
     * TAV_ERR_REFUSED for a record that is too large.
     *
     * @param wanted    the content, which is sealed with this checksum
     * @return whether there was anything to publish
     */
    bool Publish(const Content &wanted, const std::string &checksum);

    /** The head that the bucket has. */
    const Head &LastHead() const { return *head_; }

    /** How many virtual systems and records the last generation has put or deleted. */
    uint64_t LastEdits() const { return edits_; }

    /** Renews the claim when it is time, and removes some messages that the bucket need not keep any longer. */
    void Tend();

    /** Removes all of those, and gives the claim back. */
    void Release();

  private:
    using Due = std::vector<std::pair<Key, std::optional<std::string_view>>>;  // TLVs of the content that is wanted

    void TakeClaim(const Call &call);
    void AwaitEnd(const Call &call, const Entry &other) const;
    void Renew();
    Due Compare(const Content &wanted) const;
    void Send(const Due &due);
    void SendCopy(const Content &wanted, Head *head);
    void CollectForgettable();
    void Forget(size_t most);

    const Bucket bucket_;
    Writer writer_;
    const Claim claim_;
    Reading reading_;
    std::optional<Head> head_;
    uint64_t edits_ = 0;
    Deletions deletions_;                                // of which the bucket keeps messages
    std::vector<std::pair<Key, uint64_t>> forgettable_;  // those that no reader needs
    std::chrono::steady_clock::time_point renewed_;
};

}  // namespace fleet

#endif
