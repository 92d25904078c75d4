/*
 * Contents: put in order, compared and edited without being parsed into a tree.
 */
#include "fleet/store_content.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "common/words.h"
#include "tav/values.h"

namespace fleet {

namespace {

/** The TLV of a virtual system without records: its header and its id. */
constexpr size_t kVsHeaderSize = TAV_EXT_TLV_HEAD_SIZE, kVsIdSize = TAV_EXT_TLV_HEAD_SIZE + sizeof(uint32_t);

[[noreturn]] void Refuse(const std::string &why) {
    throw tav::Error(TAV_ERR_INVALID, "", why);
}

/** The product's functions read bytes only, but take them as if they changed them. */
uint8_t *BytesOf(std::string_view bytes) {
    return reinterpret_cast<uint8_t *>(const_cast<char *>(bytes.data()));
}

}  // namespace

/** Puts a content together, in order. */
class Content::Builder {
  public:
    /** `buffer` gives its memory. */
    Builder(std::string &&buffer, size_t sizeHint) : image_(std::move(buffer)) {
        image_.reserve(kHeadSize + sizeHint);
        image_.resize(kHeadSize);
    }

    /** Begins a virtual system. */
    void Begin(uint32_t vsId) {
        start_ = image_.size();
        image_.resize(start_ + kVsHeaderSize + kVsIdSize);
        char *const vs = &image_[start_];
        common::StoreBigEndian<uint32_t>(EXT_TLV_VS, vs);
        common::StoreBigEndian<uint32_t>(EXT_TLV_VS_ID, vs + kVsHeaderSize);
        common::StoreBigEndian<uint32_t>(sizeof(uint32_t), vs + kVsHeaderSize + 4);
        common::StoreBigEndian(vsId, vs + kVsHeaderSize + TAV_EXT_TLV_HEAD_SIZE);
    }

    /** Adds records to it. */
    void Add(std::string_view records) { image_ += records; }

    /** Ends it. Unless `isKept`, it goes when it has no records. */
    void End(bool isKept) {
        const size_t length = image_.size() - start_ - kVsHeaderSize;
        if (length == kVsIdSize && !isKept) {
            image_.resize(start_);
            return;
        }
        common::StoreBigEndian(static_cast<uint32_t>(length), &image_[start_ + 4]);
    }

    std::string Finish() { return std::move(image_); }

  private:
    std::string image_;
    size_t start_ = 0;
};

/** Walks virtual systems, and the records of each. */
class Content::Walker {
  public:
    explicit Walker(std::string_view body) : body_(body) { Step(); }

    bool IsOver() const { return isOver_; }
    bool IsVs() const { return !record_; }
    uint32_t VsId() const { return vsId_; }
    const Tlv &Record() const { return *record_; }

    /** The records that are left in the virtual system behind the present one. */
    std::string_view Rest() const { return records_; }

    /** The record's TLV; empty for a virtual system. */
    std::string_view Bytes() const { return record_ ? record_->whole : std::string_view(); }

    void FindKey(Key *key) const {
        if (!record_) {
            *key = KeyOfVs(vsId_);
        } else if (!fleet::FindKey(vsId_, *record_, key)) {
            Refuse("a record lacks a key field");
        }
    }

    /** Goes on to the next. */
    void Step() {
        record_ = TakeTlv(&records_);
        if (!record_) {
            StepVs();
        }
    }

    /** Goes on to the next virtual system. */
    void StepVs() {
        if (!records_.empty()) {
            Refuse("its records do not fill their virtual system");
        }
        const std::optional<Tlv> vs = TakeTlv(&body_);
        isOver_ = !vs;
        if (isOver_) {
            return;
        }
        records_ = vs->value;
        const std::optional<Tlv> id = TakeTlv(&records_);
        if (vs->type != EXT_TLV_VS || !id || id->type != EXT_TLV_VS_ID || id->value.size() != sizeof(uint32_t)) {
            Refuse("it holds something else than virtual systems with their ids first");
        }
        vsId_ = common::LoadBigEndian<uint32_t>(id->value.data());
    }

    /** Passes over the records that are left in the virtual system. */
    void SkipRecords() { records_ = {}; }

  private:
    std::string_view body_, records_;
    std::optional<Tlv> record_;
    uint32_t vsId_ = 0;
    bool isOver_ = false;
};

namespace {

/** Merges edits into the records of one virtual system. */
class Merge {
  public:
    explicit Merge(uint32_t vsId, std::string_view records) : vsId_(vsId), records_(records) {
        for (std::string_view rest = records; const std::optional<Tlv> record = TakeTlv(&rest);) {
            offsets_.push_back(static_cast<size_t>(record->whole.data() - records.data()));
        }
    }

    /** Adds to `out` what stands before a key. Returns whether the record with this key is next. */
    template <typename Out>
    bool AddBefore(const Key &key, Out *out) {
        const auto found =
            std::lower_bound(offsets_.begin() + static_cast<ptrdiff_t>(next_), offsets_.end(), key,
                             [this](size_t offset, const Key &wanted) { return KeyAt(offset) < wanted; });
        AddTo(static_cast<size_t>(found - offsets_.begin()), out);
        return found != offsets_.end() && KeyAt(*found) == key;
    }

    /** Adds all that is left. */
    template <typename Out>
    void AddRest(Out *out) {
        AddTo(offsets_.size(), out);
    }

    /** Passes over the next record. */
    void Skip() { ++next_; }

  private:
    const Key &KeyAt(size_t offset) {
        std::string_view rest = records_.substr(offset);
        FindKey(vsId_, *TakeTlv(&rest), &probe_);
        return probe_;
    }

    size_t OffsetOf(size_t index) const { return index < offsets_.size() ? offsets_[index] : records_.size(); }

    template <typename Out>
    void AddTo(size_t end, Out *out) {
        out->Add(records_.substr(OffsetOf(next_), OffsetOf(end) - OffsetOf(next_)));
        next_ = end;
    }

    const uint32_t vsId_;
    const std::string_view records_;
    std::vector<size_t> offsets_;
    size_t next_ = 0;
    Key probe_;
};

/** Writes a virtual system that has these records, with all edits of its own, which are passed over. */
template <typename Out>
void EditVs(uint32_t vsId, std::string_view records, bool isThere, Edits::const_iterator *edit,
            Edits::const_iterator end, Out *out) {
    Merge merge(vsId, records);
    out->Begin(vsId);
    for (; *edit != end && VsOf((*edit)->first) == vsId; ++*edit) {
        const auto &[key, tlv] = **edit;
        if (ClassOf(key) == 0) {
            isThere = tlv.has_value();
            continue;
        }
        if (merge.AddBefore(key, out)) {
            merge.Skip();
        }
        out->Add(tlv.value_or(""));
    }
    merge.AddRest(out);
    out->End(isThere);
}

/** Whether the ids of a walk's elements grow. */
template <typename Elements, typename IdOf>
bool Grow(const Elements &elements, IdOf idOf) {
    int64_t last = -1;
    for (const auto element : elements) {
        if (int64_t{idOf(element)} <= last) {
            return false;
        }
        last = idOf(element);
    }
    return true;
}

/**
 * Whether virtual systems and classes, which a store has in the order of their first use, stand in that of a content.
 * The records of a class do, as long as keys are numbers, texts and bytes.
 */
bool StandsInOrder(const tav::Store &store) {
    return Grow(store, [](tav::VsView vs) { return vs.Id(); }) &&
           std::ranges::all_of(store.begin(), store.end(), [](tav::VsView vs) {
               return Grow(vs, [](tav::ClassView records) { return records.Cid(); });
           });
}

}  // namespace

Content::Content() : image_(kHeadSize, '\0') {}

Content Content::Of(const tav::Store &store) {
    const uint32_t size = TAV_CalcExtCfgFileBodySize(store.Get());
    Content content(std::string(kHeadSize + size, '\0'));
    const uint32_t code = size == 0 ? TAV_OK : TAV_BuildExtCfgFileBody(store.Get(), BytesOf(content.Body()), size);
    if (code != TAV_OK) {
        throw tav::Error(code, "", "its records cannot be written: " + tav::CodeText(code));
    }
    return StandsInOrder(store) ? std::move(content) : content.InOrder();
}

bool Content::IsInOrder() const {
    Key last, key;
    for (Walker walker(Body()); !walker.IsOver(); walker.Step()) {
        walker.FindKey(&key);
        if (key <= last) {
            return false;
        }
        std::swap(key, last);
    }
    return true;
}

Content Content::InOrder() const {
    std::vector<std::pair<Key, std::string_view>> items;
    for (Walker walker(Body()); !walker.IsOver(); walker.Step()) {
        Key key;
        walker.FindKey(&key);
        items.emplace_back(std::move(key), walker.Bytes());
    }
    std::ranges::sort(items);
    Builder out({}, Body().size());
    for (size_t i = 0; i < items.size();) {
        const uint32_t vsId = VsOf(items[i].first);
        out.Begin(vsId);
        for (; i < items.size() && VsOf(items[i].first) == vsId; ++i) {
            out.Add(items[i].second);
        }
        out.End(true);
    }
    return Content(out.Finish());
}

Content Content::FromBody(std::string_view body) {
    Content content(std::string(kHeadSize, '\0').append(body));
    size_t size = 0;
    for (Walker walker(body); !walker.IsOver(); walker.Step()) {
        if (!walker.IsVs() && !tav::IsRecordClass(walker.Record().type)) {
            Refuse("it holds something else than records");
        }
        size += walker.IsVs() ? kVsHeaderSize + kVsIdSize : walker.Bytes().size();
    }
    if (size != body.size() || !content.IsInOrder()) {
        Refuse("its records are not in order");
    }
    if (!body.empty()) {
        content.Seal();
        const tav::Store store = tav::Store::New("/copy");
        TAV_ExtCfgFileContext context = {};
        context.local = store.Get();
        const auto imageSize = static_cast<uint32_t>(content.image_.size());
        if (TAV_ParseExtCfgFileData(BytesOf(content.image_), imageSize, &context) != TAV_OK) {
            Refuse("its records do not load");
        }
    }
    return content;
}

void Content::Apply(const Edits &edits) {
    size_t size = Body().size();
    for (const auto &[key, tlv] : edits) {
        size += tlv ? tlv->size() : 0;
    }
    Builder out(std::move(spare_), size);
    auto edit = edits.begin();
    const auto addNew = [&](uint32_t before) {
        while (edit != edits.end() && VsOf(edit->first) < before) {
            EditVs(VsOf(edit->first), {}, false, &edit, edits.end(), &out);
        }
    };
    for (Walker walker(Body()); !walker.IsOver(); walker.StepVs()) {
        addNew(walker.VsId());
        EditVs(walker.VsId(), walker.Rest(), true, &edit, edits.end(), &out);
        walker.SkipRecords();
    }
    while (edit != edits.end()) {
        EditVs(VsOf(edit->first), {}, false, &edit, edits.end(), &out);
    }
    spare_ = std::exchange(image_, out.Finish());
}

std::string Content::Seal() {
    if (image_.size() > TAV_EXT_MAX_FILE_SIZE) {
        throw tav::Error(TAV_ERR_REFUSED, "", "it would be larger than 100 MiB");
    }
    const auto size = static_cast<uint32_t>(image_.size());
    const uint32_t code = TAV_BuildExtCfgFileHead(BytesOf(image_), kHeadSize, size, nullptr);
    std::string_view head = std::string_view(image_).substr(TAV_EXT_TLV_HEAD_SIZE, kHeadSize - TAV_EXT_TLV_HEAD_SIZE);
    if (code != TAV_OK) {
        throw tav::Error(code, "", "its head cannot be made: " + tav::CodeText(code));
    }
    std::string digits;
    while (const std::optional<Tlv> field = TakeTlv(&head)) {
        for (const char byte : field->type == EXT_TLV_CHECKSUM ? field->value : std::string_view()) {
            constexpr std::string_view kDigits = "0123456789abcdef";
            digits += {kDigits[static_cast<uint8_t>(byte) >> 4], kDigits[static_cast<uint8_t>(byte) & 15]};
        }
    }
    return digits;
}

void Content::Compare(const Content &before, const Content &after, const Visitor &visitor) {
    Walker a(before.Body()), b(after.Body());
    Key keyA, keyB;
    while (!a.IsOver() || !b.IsOver()) {
        if (!a.IsOver() && !b.IsOver() && a.VsId() == b.VsId() && a.Bytes() == b.Bytes()) {
            a.Step();
            b.Step();
            continue;
        }
        if (!a.IsOver()) {
            a.FindKey(&keyA);
        }
        if (!b.IsOver()) {
            b.FindKey(&keyB);
        }
        if (b.IsOver() || (!a.IsOver() && keyA < keyB)) {
            visitor(keyA, {});
            a.Step();
            continue;
        }
        visitor(keyB, b.Bytes());
        if (!a.IsOver() && keyA == keyB) {
            a.Step();
        }
        b.Step();
    }
}

Content::Counts Content::Count() const {
    Counts counts;
    for (Walker walker(Body()); !walker.IsOver(); walker.Step()) {
        ++(walker.IsVs() ? counts.systems : counts.records);
    }
    return counts;
}

bool IsRecord(const Key &key, std::string_view tlv) {
    std::string_view rest = tlv;
    const std::optional<Tlv> record = TakeTlv(&rest);
    Key found;
    if (!record || !rest.empty() || !tav::IsRecordClass(record->type) || !FindKey(VsOf(key), *record, &found) ||
        found != key) {
        return false;
    }
    const tav::Record loaded(record->type);
    return TAV_ExtTlvProcForEach(TAV_ParseExtCfgFieldNode, BytesOf(record->value),
                                 static_cast<uint32_t>(record->value.size()), loaded.Get()) == TAV_OK;
}

}  // namespace fleet
