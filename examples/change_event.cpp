/*
 * Everything here is called by the library, and no exception may pass through that.
 */
#include "change_event.h"

#include <cstring>
#include <memory>

#include "event_messages.h"
#include "store_fields.h"

namespace {

Change &ChangeOf(uintptr_t eventArgument) {
    return *reinterpret_cast<Change *>(eventArgument);
}

uint32_t Answer(Change &change, bool matches) {
    change.matches += matches ? 1 : 0;
    return matches ? 1 : 0;
}

constexpr size_t kTlvHeaderSize = 4;

/** The value of a condition TLV. */
Bytes ConditionValue(const void *tlv) {
    const auto *bytes = static_cast<const uint8_t *>(tlv);
    return {bytes + kTlvHeaderSize, Load<uint16_t>(bytes + sizeof(uint16_t))};
}

/** Matches a class condition. Its type has no parse function, so the whole TLV comes here, header included. */
uint32_t MatchClass(const void *data, uint32_t /*length*/, uintptr_t event, uintptr_t /*arg2*/,
                    uintptr_t /*userData*/) {
    const Bytes value = ConditionValue(data);
    Change &change = ChangeOf(event);
    return Answer(change, value.size() == sizeof(uint32_t) && Load<uint32_t>(value.data()) == change.cid);
}

/** The private form of field and key conditions: what a record of the class must hold. */
struct RecordCondition {
    uint32_t cid;
    tav::Record fields;  // a record of the class with the one field
};

/** Builds a condition; a failure leaves `data` null, which says that it cannot be parsed now. */
void BuildCondition(uint32_t cid, uint32_t fid, Bytes value, void **data, uint32_t *length) {
    try {
        auto condition = std::make_unique<RecordCondition>(RecordCondition{cid, tav::Record(cid)});
        condition->fields.Add(fid, value);
        *length = sizeof(*condition);
        *data = condition.release();
    } catch (const std::exception &) {
        // a value that is too long, or no memory
    }
}

void ParseField(const void *tlv, void **data, uint32_t *length, uintptr_t /*userData*/) {
    const Bytes value = ConditionValue(tlv);
    if (value.size() >= 2 * sizeof(uint32_t)) {
        BuildCondition(Load<uint32_t>(value.data()), Load<uint32_t>(value.data() + sizeof(uint32_t)),
                       value.subspan(2 * sizeof(uint32_t)), data, length);
    }
}

/** The subscriber names the class and the key's value; which field is the key, the store knows. */
void ParseKey(const void *tlv, void **data, uint32_t *length, uintptr_t /*userData*/) {
    const Bytes value = ConditionValue(tlv);
    if (value.size() < sizeof(uint32_t)) {
        return;
    }
    const auto cid = Load<uint32_t>(value.data());
    if (const std::optional<uint32_t> fid = KeyFieldOf(cid)) {
        BuildCondition(cid, *fid, value.subspan(sizeof(uint32_t)), data, length);
    }
}

uint32_t MatchRecord(const void *data, uint32_t /*length*/, uintptr_t event, uintptr_t /*arg2*/,
                     uintptr_t /*userData*/) {
    const auto &condition = *static_cast<const RecordCondition *>(data);
    Change &change = ChangeOf(event);
    return Answer(change,
                  condition.cid == change.cid && TAV_ExtCfgRecordMatchCond(change.record, condition.fields.Get()) != 0);
}

void FreeCondition(void *data, uintptr_t /*userData*/) {
    delete static_cast<RecordCondition *>(data);
}

/** Answers 1 for conditions that are the same: each record must then satisfy the other. Their bytes are pointers. */
uint32_t SameCondition(const void *dataA, const void *dataB, uint32_t /*length*/) {
    const auto &a = *static_cast<const RecordCondition *>(dataA);
    const auto &b = *static_cast<const RecordCondition *>(dataB);
    const bool isSame = a.cid == b.cid && TAV_ExtCfgRecordMatchCond(a.fields.Get(), b.fields.Get()) != 0 &&
                        TAV_ExtCfgRecordMatchCond(b.fields.Get(), a.fields.Get()) != 0;
    return isSame ? 1 : 0;
}

}  // namespace

uint32_t RegisterChangeConditions(uint32_t vsId, ARU_Detect_Handle *handle) {
    // Bytes that are the same are the same condition to a type without compare function.
    uint32_t result =
        ARU_Detect_RegisterCond(vsId, handle, kClassCondition, nullptr, MatchClass, nullptr, nullptr, nullptr);
    if (result == ARU_DETECT_OK) {
        result = ARU_Detect_RegisterCond(vsId, handle, kFieldCondition, ParseField, MatchRecord, FreeCondition,
                                         SameCondition, nullptr);
    }
    if (result == ARU_DETECT_OK) {
        result = ARU_Detect_RegisterCond(vsId, handle, kKeyCondition, ParseKey, MatchRecord, FreeCondition,
                                         SameCondition, nullptr);
    }
    return result;
}

/** A record that is too large for the payload is left out whole; the subscriber can look it up. */
uint32_t FillChangePayload(void *dest, uint32_t size, uintptr_t event, uintptr_t /*arg2*/, uintptr_t /*userData*/) {
    Change &change = ChangeOf(event);
    change.isTold = true;
    auto *const begin = static_cast<uint8_t *>(dest);
    const uint8_t *const end = begin + size;
    uint8_t *cursor = begin;
    const auto whatLength = static_cast<uint32_t>(strlen(change.what));
    const bool isWhole = TAV_ExtTlvAppend(kChangeTlv, whatLength, change.what, &cursor, end) == TAV_OK &&
                         TAV_ExtTlvAppend(EXT_TLV_VS_ID, sizeof(change.vsId), &change.vsId, &cursor, end) == TAV_OK &&
                         TAV_BuildExtCfgRecordData(change.record, &cursor, end) == TAV_OK;
    return isWhole ? static_cast<uint32_t>(cursor - begin) : 0;
}
