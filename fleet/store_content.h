/*
 * What a bucket holds, and a file is made of: records in one order, as bytes.
 */
#ifndef FLEET_STORE_CONTENT_H
#define FLEET_STORE_CONTENT_H

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "fleet/store_key.h"
#include "tav/store.h"

namespace fleet {

/** What becomes of virtual systems and records, by their keys: a record's TLV; empty for a VS; nothing to delete it. */
using Edits = std::map<Key, std::optional<std::string>>;

/**
 * The body of a file in canonical order: virtual systems by id, in each the records by class and key. The same records
 * give the same bytes on every machine. Kept with room for the head before it, so that the file's image is made in
 * place: with a tree instead, one change among 100,000 records takes three times as long to reach the file.
 */
class Content {
  public:
    /** No virtual system at all. */
    Content();

    /** What a store holds. */
    static Content Of(const tav::Store &store);

    /** Takes over the bytes of a Body. Throws Error (TAV_ERR_INVALID) when they are none, or would not load. */
    static Content FromBody(std::string_view body);

    std::string_view Body() const { return std::string_view(image_).substr(kHeadSize); }
    bool IsEmpty() const { return Body().empty(); }

    /** Makes edits, whose records must be some; to delete what is not there is fine. */
    void Apply(const Edits &edits);

    /**
     * Completes the image of a file without a refer file. Throws Error (TAV_ERR_REFUSED) when it is larger than a file
     * may be.
     *
     * @return the body's checksum, in hexadecimal digits
     */
    std::string Seal();

    /** The image, once it is sealed. */
    std::span<const uint8_t> Image() const { return {reinterpret_cast<const uint8_t *>(image_.data()), image_.size()}; }

    /** Hears of a virtual system or record, in order: of its TLV, which is empty for a VS; of nothing for one that
     * goes. */
    using Visitor = std::function<void(const Key &key, std::optional<std::string_view> tlv)>;

    /** Tells what takes one content to another. */
    static void Compare(const Content &before, const Content &after, const Visitor &visitor);

    /** How many there are. */
    struct Counts {
        size_t systems = 0, records = 0;
    };
    Counts Count() const;

  private:
    static constexpr size_t kHeadSize = 80;

    explicit Content(std::string image) : image_(std::move(image)) {}

    bool IsInOrder() const;
    Content InOrder() const;

    class Builder;
    class Walker;
    std::string image_;
    std::string spare_;  // what image_ was before: its memory is at hand, which spares a follower a quarter of its time
};

/** Returns whether a TLV is a record that can be loaded and has this key. */
bool IsRecord(const Key &key, std::string_view tlv);

}  // namespace fleet

#endif
