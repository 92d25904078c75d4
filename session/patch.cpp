/*
 * Values overwritten in an image.
 */
#include "tav/patch.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "common/words.h"
#include "session/commit.h"
#include "session/draft.h"
#include "session/errors.h"
#include "session/start.h"
#include "session/values.h"
#include "tav/session.h"
#include "tav/values.h"

namespace tav {

namespace {

using session::Place;

Record RecordOf(const Change &change, bool keyOnly) {
    Record record(*change.cid);
    for (const auto &[fid, value] : change.fields) {
        if (!keyOnly || IsKeyField(*change.cid, fid)) {
            record.Add(fid, Bytes(reinterpret_cast<const uint8_t *>(value.data()), value.size()));
        }
    }
    return record;
}

/** A record as it stands in an image. */
class Stored {
  public:
    /** Finds it. Throws Error. */
    Stored(session::Block *image, const Change &change, const session::Refer &refer)
        : change_(change), key_(RecordOf(change, true)) {
        for (const uint32_t fid : KeyFields(*change.cid)) {
            if (!key_.View().Find(fid)) {
                Refuse(TAV_ERR_INVALID, fmt::format("key field {} is missing", fid));
            }
        }
        TAV_ExtCfgFileContext context = {};
        context.vsFilter = &change.vsId;
        context.recordCond = key_.Get();
        context.referPath = refer.PathOrNull();
        TAV_ParseExtCfgFileData(image->bytes.get(), static_cast<uint32_t>(image->size), &context);
        fields_ = context.foundValue;
        length_ = context.foundLength;
        if (fields_ == nullptr) {
            Refuse(TAV_ERR_NOT_FOUND, "there is no such record");
        }
    }

    /** Overwrites what is different, and returns that. Throws Error. */
    std::optional<Change> Overwrite() {
        Change done{Verb::kSet, change_.vsId, change_.cid, {}, {}};
        bool differs = false;
        for (const ChangeField &field : change_.fields) {
            const bool isKey = IsKeyField(*change_.cid, field.fid);
            const bool isNew = !isKey && Overwrite(field);
            differs |= isNew;
            if (isKey || isNew) {
                done.fields.push_back(field);
            }
        }
        return differs ? std::optional(std::move(done)) : std::nullopt;
    }

  private:
    /** Overwrites a value. Returns whether it was another one. */
    bool Overwrite(const ChangeField &field) {
        uint8_t *const tlv = TAV_ExtTlvFind(fields_, length_, field.fid);
        if (tlv == nullptr) {
            Refuse(TAV_ERR_INVALID, fmt::format("the record has no field {}", field.fid));
        }
        const auto length = common::LoadBigEndian<uint32_t>(tlv + 4);
        if (length != field.value.size()) {
            Refuse(TAV_ERR_INVALID, fmt::format("field {} has {} bytes in the file, the new value {}", field.fid,
                                                length, field.value.size()));
        }
        uint8_t *const stored = tlv + TAV_EXT_TLV_HEAD_SIZE;
        const session::Bytes value = session::SwapOrder(field.fid, field.value);
        const auto isSame = [](uint8_t a, char b) { return a == static_cast<uint8_t>(b); };
        if (std::ranges::equal(stored, stored + length, value.begin(), value.end(), isSame)) {
            return false;
        }
        std::ranges::copy(value, stored);
        return true;
    }

    [[noreturn]] void Refuse(uint32_t code, const std::string &why) const {
        throw Error(code, DescribeRecord(change_.vsId, key_.View()), why);
    }

    const Change &change_;
    const Record key_;
    uint8_t *fields_ = nullptr;
    uint32_t length_ = 0;
};

void WriteInPlace(const Place &place, const Change &change, const session::Refer &refer) {
    const uint32_t code =
        TAV_ExtCfgSetRecordToFile(change.vsId, RecordOf(change, false).Get(), place.Path().c_str(), refer.PathOrNull());
    if (code == TAV_ERR_INVALID) {
        throw Error(code, place.given, "its head has another size than it would get; it can be patched in a copy only");
    }
    if (code != TAV_OK) {
        throw Error(TAV_ERR_NOT_SAVED, place.given,
                    "it may have been written in part, and be broken; verify it: " + CodeText(code));
    }
}

}  // namespace

std::optional<Change> Patch(const std::string &path, const Change &change, const PatchOptions &options) {
    session::CompleteTypeTable();
    const session::Clock::time_point until = session::EndOf(options.wait);
    const Place place = session::Resolve(path);
    const session::Refer refer = session::ReferOf(options.refer, false);
    if (options.inPlace && !place.name.ends_with(".dat")) {
        throw Error(TAV_ERR_INVALID, place.given, "only a plain file whose name ends in .dat can be patched in place");
    }
    session::RequireUsable(place, false);
    const session::HeldLock lock(place, until);
    session::Draft::RemoveLeftover(place);
    std::optional<session::Loaded> loaded = session::Load(place, refer, until);
    if (!loaded) {
        session::RefuseMissing(place);
    }
    session::FileState file = session::StateOf(place, loaded);
    std::optional<Change> done = Stored(&loaded->image, change, refer).Overwrite();
    if (!done || options.dryRun) {
        return done;
    }
    if (options.inPlace) {
        WriteInPlace(place, *done, refer);
        return done;
    }
    session::BuiltImage next = session::RebuildImage(loaded->image, refer, place.given);
    const session::Content content = session::ParseImage(next.image, place.Path(), refer, place.given);
    session::Commit(place, {next.image.View(), next.checksums, content.store}, options.comment, &file);
    return done;
}

}  // namespace tav
