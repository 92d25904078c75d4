/*
 * Images by the product's own functions, and what is wrong with those that it refuses.
 */
#include "session/image.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <new>
#include <vector>

#include "common/words.h"
#include "session/archive.h"
#include "session/errors.h"
#include "tav/values.h"
#include "tav_session.h"

namespace session {

namespace {

/** A TLV's value, inside of an image. */
struct Value {
    uint8_t *bytes;
    uint32_t length;
};

/** The head's value, or nothing when the image does not begin with a whole head. */
std::optional<Value> HeadOf(const Block &image) {
    const auto size = static_cast<uint32_t>(image.size);
    if (TAV_ExtTlvVerify(image.bytes.get(), size) != 0 ||
        common::LoadBigEndian<uint32_t>(image.bytes.get()) != EXT_TLV_HDR) {
        return {};
    }
    return Value{&image.bytes[TAV_EXT_TLV_HEAD_SIZE], common::LoadBigEndian<uint32_t>(&image.bytes[4])};
}

/** What follows the head. */
Value BodyOf(const Value &head, const Block &image) {
    uint8_t *const body = head.bytes + head.length;
    return {body, static_cast<uint32_t>(image.bytes.get() + image.size - body)};
}

/** A field of the head, or nothing. */
std::optional<Value> FieldOf(const Value &head, uint32_t type) {
    uint8_t *const tlv = head.length == 0 ? nullptr : TAV_ExtTlvFind(head.bytes, head.length, type);
    if (tlv == nullptr) {
        return {};
    }
    return Value{tlv + TAV_EXT_TLV_HEAD_SIZE, common::LoadBigEndian<uint32_t>(tlv + 4)};
}

/** A checksum in the head; nothing when there is none, or none that can be. */
std::optional<Digest> ChecksumIn(const Value &head, uint32_t type) {
    const std::optional<Value> field = FieldOf(head, type);
    if (!field || field->length < TAV_EXT_CHECKSUM_SIZE) {
        return {};
    }
    Digest digest;
    std::copy_n(field->bytes, digest.size(), digest.begin());
    return digest;
}

std::optional<Digest> ChecksumOf(const Value &value) {
    Digest digest;
    if (TAV_CalcChecksum(value.bytes, value.length, digest.data(), TAV_EXT_CHECKSUM_SIZE) != TAV_OK) {
        return {};
    }
    return digest;
}

constexpr uint32_t kTooLong = 1;  // a walk has met a value beyond its field's limit

uint32_t VisitField(uint32_t type, uint8_t *, uint32_t length, void *) {
    return length > TAV_GetExtTlvDataLen(type) ? kTooLong : TAV_OK;
}
uint32_t VisitRecord(uint32_t type, uint8_t *value, uint32_t length, void *) {
    return tav::IsRecordClass(type) ? TAV_ExtTlvProcForEach(VisitField, value, length, nullptr) : TAV_OK;
}
uint32_t VisitVs(uint32_t type, uint8_t *value, uint32_t length, void *) {
    return type == EXT_TLV_VS ? TAV_ExtTlvProcForEach(VisitRecord, value, length, nullptr) : TAV_OK;
}

/**
 * Says why a body does not load. Throws std::bad_alloc when memory was short: the body may be a good one. The product's
 * code is the same for a value beyond its field's limit.
 */
std::string BodyProblem(const Value &body, uint32_t code) {
    if (code != TAV_ERR_NO_MEMORY) {
        return "its records do not load: " + tav::CodeText(code);
    }
    if (TAV_ExtTlvProcForEach(VisitVs, body.bytes, body.length, nullptr) != kTooLong) {
        throw std::bad_alloc();
    }
    return "its records do not load: a value is longer than its field may be";
}

/** Says what keeps an image's refer checksum from being right; empty when nothing does. */
std::string ReferProblem(const Value &head, const Refer &refer) {
    const bool carriesOne = FieldOf(head, EXT_TLV_REFER_CHECKSUM).has_value();
    if (refer.path.empty()) {
        return carriesOne ? "it carries the checksum of a refer file, which must be given" : "";
    }
    if (!carriesOne) {
        return "it carries no checksum of a refer file, yet one was given";
    }
    Digest actual;
    const uint32_t code = TAV_GetExtCfgFileChecksum(refer.path.c_str(), actual.data(), TAV_EXT_CHECKSUM_SIZE);
    if (code == TAV_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    if (code != TAV_OK) {
        return fmt::format("its refer file {} cannot be read, or refers to a file itself: {}", refer.path,
                           tav::CodeText(code));
    }
    return ChecksumIn(head, EXT_TLV_REFER_CHECKSUM) == actual
               ? ""
               : fmt::format("its refer file {} is not the one that it was bound to, or has changed", refer.path);
}

/** Says why the product refuses an image. */
std::string Diagnose(const Block &image, const Refer &refer, uint32_t code) {
    const std::optional<Value> head = HeadOf(image);
    if (!head) {
        return "it is no configuration file: it does not begin with a head";
    }
    for (const auto &[type, what] : {std::pair(uint32_t{EXT_TLV_VERSION}, "version"),
                                     {uint32_t{EXT_TLV_MODIFY_TIME}, "modify time"},
                                     {uint32_t{EXT_TLV_CHECKSUM}, "checksum"}}) {
        if (!FieldOf(*head, type)) {
            return fmt::format("its head has no {}", what);
        }
    }
    if (const Value version = *FieldOf(*head, EXT_TLV_VERSION); version.length != 4 || version.bytes[0] != 0x08) {
        return "its version is not one that can be read";
    }
    const Value body = BodyOf(*head, image);
    if (body.length == 0) {
        return "it ends behind its head";
    }
    if (ChecksumIn(*head, EXT_TLV_CHECKSUM) != ChecksumOf(body)) {
        return "checksum mismatch: it is damaged, or was written only in part";
    }
    if (std::string problem = refer.ignore ? "" : ReferProblem(*head, refer); !problem.empty()) {
        return problem;
    }
    return BodyProblem(body, code);
}

/**
 * An image as it would be without a refer checksum, as long as this object lives: the head's other fields are moved
 * together, to where the body begins. So the product checks all the rest.
 */
class Unbound {
  public:
    explicit Unbound(const Block &image) : image_{image.bytes.get(), static_cast<uint32_t>(image.size)} {
        const std::optional<Value> head = HeadOf(image);
        std::vector<uint8_t> kept;
        kept.reserve(head ? head->length : 0);  // so that the visitor, which the product calls, throws nothing
        if (!head || TAV_ExtTlvProcForEach(Keep, head->bytes, head->length, &kept) != TAV_OK) {
            return;  // the product will refuse it as it is
        }
        start_ = image_.bytes;
        saved_.assign(start_, head->bytes + head->length);
        const auto cut = head->length - static_cast<uint32_t>(kept.size());
        image_ = {start_ + cut, image_.length - cut};
        std::copy_n(saved_.data(), TAV_EXT_TLV_HEAD_SIZE, image_.bytes);
        common::StoreBigEndian(static_cast<uint32_t>(kept.size()), image_.bytes + 4);
        std::ranges::copy(kept, image_.bytes + TAV_EXT_TLV_HEAD_SIZE);
    }
    ~Unbound() { std::ranges::copy(saved_, start_); }
    Unbound(const Unbound &) = delete;
    Unbound &operator=(const Unbound &) = delete;

    const Value &Image() const { return image_; }

  private:
    /** Visitor: takes a field of the head that is no refer checksum. */
    static uint32_t Keep(uint32_t type, uint8_t *value, uint32_t length, void *kept) {
        if (type != EXT_TLV_REFER_CHECKSUM) {
            auto *const fields = static_cast<std::vector<uint8_t> *>(kept);
            fields->insert(fields->end(), value - TAV_EXT_TLV_HEAD_SIZE, value + length);
        }
        return TAV_OK;
    }

    Value image_;
    uint8_t *start_ = nullptr;
    std::vector<uint8_t> saved_;  // from there on
};

/** Has the product check an image and parse it into a store. Returns its result code. */
uint32_t Parse(const Value &image, const char *refer, const tav::Store &store) {
    TAV_ExtCfgFileContext context = {};
    context.local = store.Get();
    context.referPath = refer;
    return TAV_ParseExtCfgFileData(image.bytes, image.length, &context);
}

tav::Store NewStore(const std::string &path, const Refer &refer) {
    return tav::Store::New(path, refer.path);
}

/** Throws when a record could not be read back. */
void RequireReadableRecords(const tav::Store &store, const std::string &place) {
    for (const tav::VsView vs : store) {
        for (const tav::ClassView records : vs) {
            for (const tav::RecordView record : records) {
                if (record.FieldCount() == 0 || TAV_ExtCfgRecordVerify(record.Get()) != TAV_OK) {
                    throw tav::Error(TAV_ERR_INVALID, place,
                                     tav::Describe(vs.Id(), record) + " has no fields, or lacks a key field");
                }
            }
        }
    }
}

/** The size of a head. A store itself may have been made for another refer file. */
uint32_t BuiltHeadSize(const Refer &refer) {
    return TAV_CalcExtCfgFileHeadSize(NewStore("", refer).Get());
}

[[noreturn]] void RefuseToBuild(uint32_t code, const Refer &refer, const std::string &place) {
    throw tav::Error(code, place,
                     code == TAV_ERR_NOT_FOUND ? "its refer file " + refer.path + " gives no checksum"
                                               : "its image cannot be built: " + tav::CodeText(code));
}

/** Builds the head before an image's body. */
BuiltImage WithHead(Block image, uint32_t headSize, const Refer &refer, const std::string &place) {
    const auto size = static_cast<uint32_t>(image.size);
    if (const uint32_t code = TAV_BuildExtCfgFileHead(image.bytes.get(), headSize, size, refer.PathOrNull());
        code != TAV_OK) {
        RefuseToBuild(code, refer, place);
    }
    const Value head = *HeadOf(image);
    const Checksums checksums{*ChecksumIn(head, EXT_TLV_CHECKSUM), ChecksumIn(head, EXT_TLV_REFER_CHECKSUM)};
    return {std::move(image), checksums};
}

/** Reads the file of a path as that of a place. */
std::optional<ReadImage> ReadFile(const Place &place, const std::string &path, const std::string &what) {
    const Descriptor file = OpenFile(path, O_RDONLY | O_NONBLOCK);  // a pipe must not hold us up
    if (!file && errno == ENOENT) {
        return {};
    }
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        FailOfSystem(TAV_ERR_OPEN, what, "cannot be read");
    }
    if (!S_ISREG(status.st_mode)) {
        throw tav::Error(TAV_ERR_INVALID, what, S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file");
    }
    if (status.st_size == 0 || status.st_size > off_t{TAV_EXT_MAX_FILE_SIZE}) {
        throw tav::Error(TAV_ERR_INVALID, what, status.st_size == 0 ? "it is empty" : "it is larger than 100 MiB");
    }
    Block bytes = ReadAll(file, static_cast<size_t>(status.st_size), what);
    if (place.IsArchive()) {
        bytes = Unpack(bytes, place.anyMember ? "" : place.Member(), what);
    }
    return ReadImage{std::move(bytes), Identity(status)};
}

}  // namespace

std::optional<ReadImage> ReadImageOf(const Place &place) {
    return ReadFile(place, place.Path(), place.given);
}

std::optional<ReadImage> ReadImageOf(const Place &place, const std::string &path) {
    return ReadFile(place, path, path);
}

Content ParseImage(Block &image, const std::string &path, const Refer &refer, const std::string &place) {
    tav::Store store = NewStore(path, refer);
    const uint32_t code =
        refer.ignore ? Parse(Unbound(image).Image(), nullptr, store)
                     : Parse({image.bytes.get(), static_cast<uint32_t>(image.size)}, refer.PathOrNull(), store);
    if (code != TAV_OK) {
        throw tav::Error(TAV_ERR_INVALID, place, Diagnose(image, refer, code));
    }
    const Value head = *HeadOf(image);
    return {std::move(store), {*ChecksumIn(head, EXT_TLV_CHECKSUM), ChecksumIn(head, EXT_TLV_REFER_CHECKSUM)}};
}

tav::Store ParseBody(Block &image, const std::string &place) {
    tav::Store store = tav::Store::New("");
    TAV_ExtCfgFileContext context = {};
    context.local = store.Get();
    const std::optional<Value> head = HeadOf(image);
    if (!head) {
        throw tav::Error(TAV_ERR_INVALID, place, "it does not begin with a head");
    }
    const Value body = BodyOf(*head, image);
    const uint32_t code = TAV_ExtTlvProcForEach(TAV_ParseExtCfgVsNode, body.bytes, body.length, &context);
    if (code != TAV_OK) {
        throw tav::Error(TAV_ERR_INVALID, place, BodyProblem(body, code));
    }
    return store;
}

BuiltImage BuildImage(const tav::Store &store, const Refer &refer, const std::string &place) {
    if (store.Get() == nullptr) {  // which is no store without a VS: that one deletes the file
        throw tav::Error(TAV_ERR_INVALID, place, "its store has been moved or released, there is nothing to write");
    }
    RequireReadableRecords(store, place);
    const uint32_t bodySize = TAV_CalcExtCfgFileBodySize(store.Get());
    if (bodySize == 0) {
        return {};
    }
    const uint32_t headSize = BuiltHeadSize(refer);
    if (bodySize > TAV_EXT_MAX_FILE_SIZE - headSize) {
        throw tav::Error(TAV_ERR_REFUSED, place, "it would be larger than 100 MiB");
    }
    Block image(headSize + bodySize);
    if (const uint32_t code = TAV_BuildExtCfgFileBody(store.Get(), &image.bytes[headSize], bodySize); code != TAV_OK) {
        RefuseToBuild(code, refer, place);
    }
    return WithHead(std::move(image), headSize, refer, place);
}

BuiltImage RebuildImage(const Block &image, const Refer &refer, const std::string &place) {
    const Value body = BodyOf(*HeadOf(image), image);
    const uint32_t headSize = BuiltHeadSize(refer);
    Block rebuilt(headSize + body.length);
    std::copy_n(body.bytes, body.length, &rebuilt.bytes[headSize]);
    return WithHead(std::move(rebuilt), headSize, refer, place);
}

std::optional<Digest> BodyChecksum(const Block &image) {
    const std::optional<Value> head = HeadOf(image);
    return head ? ChecksumIn(*head, EXT_TLV_CHECKSUM) : std::nullopt;
}

std::string ActualChecksum(const Block &image) {
    const std::optional<Value> head = HeadOf(image);
    const std::optional<Digest> checksum = head ? ChecksumOf(BodyOf(*head, image)) : std::nullopt;
    return checksum ? ToHex(*checksum) : "";
}

bool CarriesRefer(const Block &image) {
    const std::optional<Value> head = HeadOf(image);
    return head && FieldOf(*head, EXT_TLV_REFER_CHECKSUM);
}

std::string ModifyTime(const Block &image) {
    const std::optional<Value> field = FieldOf(*HeadOf(image), EXT_TLV_MODIFY_TIME);
    std::string time(reinterpret_cast<const char *>(field->bytes), field->length);
    return time.erase(std::min<size_t>(7, time.size()), 1);  // big-endian from the year on; the week day says nothing
}

std::string ToHex(const Digest &digest) {
    return fmt::format("{:02x}", fmt::join(digest, ""));
}

}  // namespace session
