/*
 * Stores, records and fields as C++ objects: owned, walked by range-for, read and set by type. Nothing but this header;
 * all of it stands on tav_extcfg.h and tav_extcfg_nodes.h, whose words hold here as well.
 *
 *     tav::Store store = tav::Store::Open("routes.dat");
 *     for (tav::VsView vs : store) {
 *         for (tav::ClassView records : vs) {
 *             for (tav::RecordView record : records) {
 *                 std::cout << record.Number(14).value_or(0) << "\n";
 *             }
 *         }
 *     }
 *     store.Add(0, tav::Record(13).With(14, 5).With(18, tav::Address::Parse("192.0.2.1")));
 *
 * Views borrow: they hold as long as what they show does, that is until the record is edited or deleted, or its store
 * or record goes. A view must not be made of nothing, and a walk must not stand on what is deleted.
 *
 * TAV_InitExtTlvDataTypeTable must have been called; sessions and snapshots (tav/session.h) call it themselves. All
 * failures are thrown as tav::Error, but for lack of memory, which is std::bad_alloc.
 */
#ifndef TAV_STORE_H
#define TAV_STORE_H

#include <arpa/inet.h>

#include <array>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/mel_clock.h"
#include "tav/error.h"
#include "tav_extcfg_nodes.h"

namespace tav {

/** What the values of a field are. */
enum class Kind { kInteger, kText, kBytes, kAddress, kTime, kOpaque };

/** Returns what the values of a field are; kOpaque when the type table does not know it, or knows it as a container. */
inline Kind KindOf(uint32_t fid) {
    switch (TAV_GetExtTlvDataType(fid)) {
        case 4:
        case 6:
        case 13:
        case 17:
        case 45:
            return Kind::kInteger;
        case 25:
            return Kind::kText;
        case 26:
            return Kind::kBytes;
        case 38:
            return Kind::kAddress;
        case 61:
            return Kind::kTime;
        default:
            return Kind::kOpaque;
    }
}

/** Returns the key fields of a class, in the order in which they are compared; empty when it has none. */
inline std::vector<uint32_t> KeyFields(uint32_t cid) {
    std::vector<uint32_t> fids(TAV_EXT_MAX_KEY_FIDS);
    fids.resize(TAV_GetExtClassKeyFid(cid, fids.data(), TAV_EXT_MAX_KEY_FIDS));
    return fids;
}

/** Bytes of a value in host order. */
using Bytes = std::span<const uint8_t>;

/** A moment; no time zone of its own, by custom GMT. */
using Time = BEX_SysTime;

/** An IPv4 or an IPv6 address, as the 21 bytes that a field keeps in host order. */
class Address {
  public:
    static constexpr size_t kSize = 21; /**< bytes of the value */

    /** An IPv4 address as a number: 0xC0000201 is 192.0.2.1. */
    explicit Address(uint32_t v4) : bytes_{4} { std::memcpy(&bytes_[kV4At], &v4, sizeof(v4)); }

    /** An IPv6 address in network order. */
    explicit Address(std::span<const uint8_t, 16> v6) : bytes_{6} { std::memcpy(&bytes_[kV6At], v6.data(), v6.size()); }

    /** Reads "192.0.2.1" or "2001:db8::1". Throws Error (TAV_ERR_INVALID). */
    static Address Parse(const std::string &text) {
        in_addr v4;
        in6_addr v6;
        if (inet_pton(AF_INET, text.c_str(), &v4) == 1) {
            return Address(ntohl(v4.s_addr));
        }
        if (inet_pton(AF_INET6, text.c_str(), &v6) == 1) {
            return Address(std::span<const uint8_t, 16>(v6.s6_addr, 16));
        }
        throw Error(TAV_ERR_INVALID, text, "this is not an address");
    }

    /** Takes a field's value. Nothing when it has another size, or a family other than 4 and 6. */
    static std::optional<Address> From(Bytes value) {
        if (value.size() != kSize || (value[0] != 4 && value[0] != 6)) {
            return {};
        }
        Address address(0);
        std::memcpy(address.bytes_.data(), value.data(), kSize);
        return address;
    }

    /** Whether it is an IPv4 address. */
    bool IsV4() const { return bytes_[0] == 4; }

    /** The IPv4 address as a number; 0 for an IPv6 address. */
    uint32_t V4() const {
        uint32_t number = 0;
        if (IsV4()) {
            std::memcpy(&number, &bytes_[kV4At], sizeof(number));
        }
        return number;
    }

    /** The IPv6 address in network order; zeros for an IPv4 address made here. */
    std::span<const uint8_t, 16> V6() const { return std::span<const uint8_t, 16>(&bytes_[kV6At], 16); }

    /** The address as Parse reads it. */
    std::string ToText() const {
        char text[INET6_ADDRSTRLEN] = "";
        const in_addr v4{htonl(V4())};
        inet_ntop(IsV4() ? AF_INET : AF_INET6, IsV4() ? static_cast<const void *>(&v4) : &bytes_[kV6At], text,
                  sizeof(text));
        return text;
    }

    /** The field's value. */
    Bytes Value() const { return bytes_; }

    bool operator==(const Address &) const = default;

  private:
    static constexpr size_t kV4At = 1, kV6At = 5;
    std::array<uint8_t, kSize> bytes_;
};

/** One field of a record. */
class FieldView {
  public:
    /** Shows a field, which must not be null. */
    explicit FieldView(const TAV_ExtCfgFieldNode *node) : node_(node) {}

    /** The node. */
    const TAV_ExtCfgFieldNode *Get() const { return node_; }

    /** The field id. */
    uint32_t Id() const { return TAV_ExtCfgFieldId(node_); }

    /** The value as it is, in host order. */
    Bytes Value() const {
        return {static_cast<const uint8_t *>(TAV_ExtCfgFieldValue(node_)), TAV_ExtCfgFieldLength(node_)};
    }

    /** The value of a field of integers; nothing for other fields, and for a value of another size than its type's. */
    std::optional<uint64_t> Number() const {
        const Bytes value = Value();
        if (KindOf(Id()) != Kind::kInteger || value.size() != TAV_GetExtTlvDataLen(Id())) {
            return {};
        }
        switch (value.size()) {
            case 1:
                return value[0];
            case 2:
                return Load<uint16_t>();
            default:
                return Load<uint32_t>();
        }
    }

    /** The value's bytes as characters, whatever the field; they may hold any byte. */
    std::string_view Text() const { return {reinterpret_cast<const char *>(Value().data()), Value().size()}; }

    /** The value of a field of addresses; nothing for other fields, and for what is neither IPv4 nor IPv6. */
    std::optional<tav::Address> Address() const {
        return KindOf(Id()) == Kind::kAddress ? tav::Address::From(Value()) : std::nullopt;
    }

    /** The value of a field of times; nothing for other fields, and for a value of another size. */
    std::optional<tav::Time> Time() const {
        if (KindOf(Id()) != Kind::kTime || Value().size() != sizeof(tav::Time)) {
            return {};
        }
        return Load<tav::Time>();
    }

  private:
    template <typename T>
    T Load() const {
        T value;
        std::memcpy(&value, Value().data(), sizeof(value));
        return value;
    }

    const TAV_ExtCfgFieldNode *node_;
};

/** Walks elements, for range-for. `Steps` gives the first node below a parent, and the one behind a node, or null. */
template <typename View, typename Parent, typename Node, typename Steps>
class Walk {
  public:
    class Iterator {
      public:
        using value_type = View;
        using difference_type = std::ptrdiff_t;
        using iterator_concept = std::forward_iterator_tag;
        Iterator() = default;
        Iterator(const Parent *parent, const Node *node) : parent_(parent), node_(node) {}
        View operator*() const { return View(node_); }
        Iterator &operator++() {
            node_ = Steps::Next(parent_, node_);
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const Iterator &other) const { return node_ == other.node_; }
        bool operator==(std::default_sentinel_t) const { return node_ == nullptr; }

      private:
        const Parent *parent_ = nullptr;
        const Node *node_ = nullptr;
    };

    explicit Walk(const Parent *parent) : parent_(parent) {}
    Iterator begin() const { return {parent_, parent_ != nullptr ? Steps::First(parent_) : nullptr}; }
    std::default_sentinel_t end() const { return {}; }

  protected:
    const Parent *parent_;
};

/** The walks of tav_extcfg_nodes.h. */
struct Steps {
    static auto First(const TAV_ExtCfgRecordNode *record) { return TAV_ExtCfgRecordFirstField(record); }
    static auto First(const TAV_ExtCfgClassNode *records) { return TAV_ExtCfgClassFirstRecord(records); }
    static auto First(const TAV_ExtCfgVsNode *vs) { return TAV_ExtCfgVsFirstClass(vs); }
    static auto First(const CfgLocal *local) { return TAV_ExtCfgLocalFirstVs(local); }
    static auto Next(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgFieldNode *field) {
        return TAV_ExtCfgRecordNextField(record, field);
    }
    static auto Next(const TAV_ExtCfgClassNode *records, const TAV_ExtCfgRecordNode *record) {
        return TAV_ExtCfgClassNextRecord(records, record);
    }
    static auto Next(const TAV_ExtCfgVsNode *vs, const TAV_ExtCfgClassNode *records) {
        return TAV_ExtCfgVsNextClass(vs, records);
    }
    static auto Next(const CfgLocal *local, const TAV_ExtCfgVsNode *vs) { return TAV_ExtCfgLocalNextVs(local, vs); }
};

/** One record: its fields in the order in which they were added. The same field may stand in it more than once. */
class RecordView : public Walk<FieldView, TAV_ExtCfgRecordNode, TAV_ExtCfgFieldNode, Steps> {
  public:
    /** Shows a record, which must not be null. */
    explicit RecordView(const TAV_ExtCfgRecordNode *node) : Walk(node) {}

    /** The node. */
    const TAV_ExtCfgRecordNode *Get() const { return parent_; }

    /** The class. */
    uint32_t Cid() const { return TAV_ExtCfgRecordCid(parent_); }

    /** How many fields it has. */
    uint32_t FieldCount() const { return parent_->fields.count; }

    /** The first field of an id; nothing when there is none. */
    std::optional<FieldView> Find(uint32_t fid) const {
        const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&parent_->fields, fid);
        return field != nullptr ? std::optional(FieldView(field)) : std::nullopt;
    }

    /** The number of the first field of an id; nothing when there is none, and as FieldView::Number. */
    std::optional<uint64_t> Number(uint32_t fid) const {
        return Of(fid, [](FieldView field) { return field.Number(); });
    }
    /** The text of the first field of an id; nothing when there is none. */
    std::optional<std::string_view> Text(uint32_t fid) const {
        return Of(fid, [](FieldView field) { return std::optional(field.Text()); });
    }
    /** The value of the first field of an id, in host order; nothing when there is none. */
    std::optional<Bytes> Value(uint32_t fid) const {
        return Of(fid, [](FieldView field) { return std::optional(field.Value()); });
    }
    /** The address of the first field of an id; nothing when there is none, and as FieldView::Address. */
    std::optional<tav::Address> Address(uint32_t fid) const {
        return Of(fid, [](FieldView field) { return field.Address(); });
    }
    /** The time of the first field of an id; nothing when there is none, and as FieldView::Time. */
    std::optional<tav::Time> Time(uint32_t fid) const {
        return Of(fid, [](FieldView field) { return field.Time(); });
    }

  private:
    template <typename Read>
    auto Of(uint32_t fid, Read read) const -> decltype(read(FieldView(nullptr))) {
        const std::optional<FieldView> field = Find(fid);
        return field ? read(*field) : decltype(read(*field))();
    }
};

/** The records of one class in one virtual system, in the order of their keys. */
class ClassView : public Walk<RecordView, TAV_ExtCfgClassNode, TAV_ExtCfgRecordNode, Steps> {
  public:
    /** Shows a class; of a null, no records, and then nothing but a walk is possible. */
    explicit ClassView(const TAV_ExtCfgClassNode *node) : Walk(node) {}

    /** The node. */
    const TAV_ExtCfgClassNode *Get() const { return parent_; }

    /** The class. */
    uint32_t Cid() const { return parent_->cid; }
};

/** One virtual system: its classes in the order of first use. */
class VsView : public Walk<ClassView, TAV_ExtCfgVsNode, TAV_ExtCfgClassNode, Steps> {
  public:
    /** Shows a virtual system, which must not be null. */
    explicit VsView(const TAV_ExtCfgVsNode *node) : Walk(node) {}

    /** The node. */
    const TAV_ExtCfgVsNode *Get() const { return parent_; }

    /** The id. */
    uint32_t Id() const { return parent_->vsId; }

    /** The records of a class; nothing when the VS has never had any. For walks at once see Store::Records. */
    std::optional<ClassView> Find(uint32_t cid) const {
        // The search reads only; its argument is not const because what it finds may be changed.
        const auto *found = TAV_ExtCfgClassNodeFind(const_cast<TAV_ExtCfgVsNode *>(parent_), cid);
        return found != nullptr ? std::optional(ClassView(found)) : std::nullopt;
    }
};

/** A record of one's own, to be built field by field and given to a store, or to be used as a key. */
class Record {
  public:
    /** An empty record of a class. */
    explicit Record(uint32_t cid) : node_(TAV_ExtCfgRecordNodeCreate(cid)) {
        if (node_ == nullptr) {
            throw std::bad_alloc();
        }
    }

    /** A copy of a record, field by field. */
    explicit Record(RecordView record) : Record(record.Cid()) {
        for (const FieldView field : record) {
            Add(field.Id(), field.Value());
        }
    }

    /** The key of a record: its class and key fields. Key fields that it lacks are left out. */
    static Record KeyOf(RecordView record) {
        Record key(record.Cid());
        for (const uint32_t fid : KeyFields(record.Cid())) {
            if (const std::optional<Bytes> value = record.Value(fid)) {
                key.Add(fid, *value);
            }
        }
        return key;
    }

    /** What stands in it so far. */
    RecordView View() const { return RecordView(node_.get()); }

    /** The record; it stays this object's. */
    TAV_ExtCfgRecordNode *Get() const { return node_.get(); }

    /** Gives the record away: TAV_ExtCfgRecordNodeFree is up to the caller. This object must not be used any more. */
    TAV_ExtCfgRecordNode *Release() { return node_.release(); }

    /**
     * Appends a field. One of the same id that is there already stays, and searches go on seeing it first.
     * Throws Error (TAV_ERR_INVALID) for a value that is longer than the field's limit.
     *
     * @param fid    field id
     * @param value  the value in host order; fewer bytes than a fixed size are accepted
     */
    Record &Add(uint32_t fid, Bytes value) {
        const uint32_t limit = TAV_GetExtTlvDataLen(fid);
        if (value.size() > limit) {
            throw Error(TAV_ERR_INVALID, "field " + std::to_string(fid),
                        "the value has " + std::to_string(value.size()) + " bytes, at most " + std::to_string(limit) +
                            " are possible");
        }
        const uint32_t before = View().FieldCount();
        const void *bytes = value.empty() ? static_cast<const void *>("") : value.data();  // a null would be refused
        TAV_ExtCfgRecordAddFieldValue(Get(), fid, static_cast<uint32_t>(value.size()), bytes);
        if (View().FieldCount() == before) {
            throw std::bad_alloc();
        }
        return *this;
    }

    /** Appends a field of integers. Throws Error (TAV_ERR_INVALID) for another field and for a number out of range. */
    template <typename Integer>
    requires std::is_integral_v<Integer> Record &Add(uint32_t fid, Integer number) {
        Require(fid, Kind::kInteger, "integers");
        const uint32_t size = TAV_GetExtTlvDataLen(fid);
        if (!std::in_range<uint32_t>(number) || (size < 4 && static_cast<uint64_t>(number) >> 8 * size != 0)) {
            throw Error(TAV_ERR_INVALID, "field " + std::to_string(fid),
                        std::to_string(number) + " is out of range, the field has " + std::to_string(size) + " bytes");
        }
        const auto byte = static_cast<uint8_t>(number);
        const auto half = static_cast<uint16_t>(number);
        const auto word = static_cast<uint32_t>(number);
        return size == 1 ? AddObject(fid, byte) : size == 2 ? AddObject(fid, half) : AddObject(fid, word);
    }

    /** Appends a field of text. Throws Error (TAV_ERR_INVALID) for another field and for a text that is too long. */
    Record &Add(uint32_t fid, std::string_view text) {
        Require(fid, Kind::kText, "text");
        return Add(fid, Bytes(reinterpret_cast<const uint8_t *>(text.data()), text.size()));
    }

    /** The same, for a text in quotes. */
    Record &Add(uint32_t fid, const char *text) { return Add(fid, std::string_view(text)); }

    /** Appends a field of addresses. Throws Error (TAV_ERR_INVALID) for another field. */
    Record &Add(uint32_t fid, const Address &address) {
        Require(fid, Kind::kAddress, "addresses");
        return Add(fid, address.Value());
    }

    /** Appends a field of times. Throws Error (TAV_ERR_INVALID) for another field. */
    Record &Add(uint32_t fid, const Time &time) {
        Require(fid, Kind::kTime, "times");
        return AddObject(fid, time);
    }

    /** Appends a field by any of the above, for records built in one expression: Record(13).With(14, 5). */
    template <typename Value>
    Record With(uint32_t fid, const Value &value) && {
        Add(fid, value);
        return std::move(*this);
    }

    /** Takes out the first field of an id. Returns whether there was one. */
    bool Remove(uint32_t fid) {
        TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&node_->fields, fid);
        if (field != nullptr) {
            TAV_ExtCfgFieldNodeDel(Get(), field);
        }
        return field != nullptr;
    }

  private:
    struct Free {
        void operator()(TAV_ExtCfgRecordNode *node) const { TAV_ExtCfgRecordNodeFree(node); }
    };

    static void Require(uint32_t fid, Kind kind, const char *what) {
        if (KindOf(fid) != kind) {
            throw Error(TAV_ERR_INVALID, "field " + std::to_string(fid), std::string("it is no field of ") + what);
        }
    }

    template <typename Object>
    Record &AddObject(uint32_t fid, const Object &object) {
        return Add(fid, Bytes(reinterpret_cast<const uint8_t *>(&object), sizeof(object)));
    }

    std::unique_ptr<TAV_ExtCfgRecordNode, Free> node_;
};

/** Names a record for people and in errors: "VS 0 class 13 14=5". */
inline std::string Describe(uint32_t vsId, RecordView record) {
    std::string text = "VS " + std::to_string(vsId) + " class " + std::to_string(record.Cid());
    for (const uint32_t fid : KeyFields(record.Cid())) {
        if (const std::optional<FieldView> field = record.Find(fid)) {
            const std::optional<uint64_t> number = field->Number();
            text += " " + std::to_string(fid) + "=" + (number ? std::to_string(*number) : std::string(field->Text()));
        }
    }
    return text;
}

/** An open store: its virtual systems in the order of first use. */
class Store {
  public:
    /** Takes over a store, which is closed with this object. Throws std::bad_alloc for a null. */
    explicit Store(CfgLocal *local) : local_(local) {
        if (local == nullptr) {
            throw std::bad_alloc();
        }
    }

    /**
     * Opens a file, without a lock and without waiting; tav::Snapshot reads, and tav::Session changes, files that other
     * processes work on. Throws Error (TAV_ERR_OPEN) when the file does not load.
     *
     * @param path   the file
     * @param refer  the refer file; empty for none
     * @param mode   an open mode; beware of read-write, which takes a file that does not load for an empty one
     */
    static Store Open(const std::string &path, const std::string &refer = {}, uint32_t mode = TAV_EXT_MODE_READ_ONLY) {
        CfgLocal *local = TAV_ExtCfgOpen(mode, path.c_str(), refer.empty() ? nullptr : refer.c_str());
        if (local == nullptr) {
            throw Error(TAV_ERR_OPEN, path, "it cannot be opened as a configuration file");
        }
        return Store(local);
    }

    /** An empty store that can be read and edited; nothing is read, and nothing is written before a flush. */
    static Store New(const std::string &path, const std::string &refer = {}) {
        return Store(
            TAV_ExtCfgLocalCreate(TAV_EXT_MODE_READ_WRITE, path.c_str(), refer.empty() ? nullptr : refer.c_str()));
    }

    /** The store; it stays this object's. */
    CfgLocal *Get() const { return local_.get(); }

    /** Gives the store away: TAV_ExtCfgClose is up to the caller. This object must not be used any more. */
    CfgLocal *Release() { return local_.release(); }

    /** For range-for over the virtual systems. */
    auto begin() const { return VsWalk(Get()).begin(); }

    /** Where begin() leads. */
    auto end() const { return std::default_sentinel; }

    /** A virtual system; nothing when the store has none of this id. */
    std::optional<VsView> FindVs(uint32_t vsId) const {
        const TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(Get(), vsId);
        return vs != nullptr ? std::optional(VsView(vs)) : std::nullopt;
    }

    /** The records of a class in a virtual system, to be walked at once; none when the store knows neither. */
    ClassView Records(uint32_t vsId, uint32_t cid) const {
        TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(Get(), vsId);
        return ClassView(vs != nullptr ? TAV_ExtCfgClassNodeFind(vs, cid) : nullptr);
    }

    /** Creates a virtual system when it is absent: an empty one is kept in the file, too. */
    VsView AddVs(uint32_t vsId) {
        const TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeGetInstance(Get(), vsId);
        if (vs == nullptr) {
            throw std::bad_alloc();
        }
        return VsView(vs);
    }

    /** Finds the record with the class and key of another; nothing when there is none, or a key field is missing. */
    std::optional<RecordView> Find(uint32_t vsId, const Record &key) const {
        const TAV_ExtCfgRecordNode *found = TAV_ExtCfgGetRecord(vsId, key.Get(), Get());
        return found != nullptr ? std::optional(RecordView(found)) : std::nullopt;
    }

    /**
     * Adds a record. Throws Error with the record's name: TAV_ERR_INVALID when a key field or any field at all is
     * missing, or when its key is there already; TAV_ERR_REFUSED for a read-only store.
     */
    void Add(uint32_t vsId, Record &&record) {
        if (record.View().FieldCount() == 0) {
            throw Error(TAV_ERR_INVALID, Describe(vsId, record.View()), "a record without fields cannot be read back");
        }
        Check(TAV_ExtCfgAddRecord(vsId, record.Get(), Get()), vsId, record, "added",
              "a key field is missing, or there is a record with this key already");
        (void)record.Release();
    }

    /**
     * Overwrites fields of the record with the same class and key; fields that the given one lacks are kept. Throws
     * Error with the record's name: TAV_ERR_NOT_FOUND when there is none or a key field is missing; TAV_ERR_INVALID
     * when a key field is given twice; TAV_ERR_REFUSED for a read-only store.
     */
    void Set(uint32_t vsId, const Record &record) {
        Check(TAV_ExtCfgSetRecord(vsId, record.Get(), Get()), vsId, record, "set", "a key field is given twice");
    }

    /**
     * Deletes the record with the class and key of another. Throws Error with the record's name: TAV_ERR_NOT_FOUND when
     * there is none; TAV_ERR_INVALID when a key field is missing; TAV_ERR_REFUSED for a read-only store.
     */
    void Remove(uint32_t vsId, const Record &key) {
        Check(TAV_ExtCfgDelRecord(vsId, key.Get(), Get()), vsId, key, "deleted", "a key field is missing");
    }

  private:
    struct Close {
        void operator()(CfgLocal *local) const { TAV_ExtCfgClose(local); }
    };
    using VsWalk = Walk<VsView, CfgLocal, TAV_ExtCfgVsNode, Steps>;

    /** Throws what an edit's code means; `invalid` says it for TAV_ERR_INVALID. */
    static void Check(uint32_t code, uint32_t vsId, const Record &record, const char *what, const char *invalid) {
        if (code == TAV_OK) {
            return;
        }
        if (code == TAV_ERR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        const std::string why = code == TAV_ERR_NOT_FOUND ? "there is no such record"
                                : code == TAV_ERR_REFUSED ? "the store is read-only"
                                : code == TAV_ERR_INVALID ? invalid
                                                          : "a copy failed";
        throw Error(code, Describe(vsId, record.View()), std::string("it cannot be ") + what + ": " + why);
    }

    std::unique_ptr<CfgLocal, Close> local_;
};

}  // namespace tav

#endif
