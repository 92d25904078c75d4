/*
 * Fields that lie in their record's block. What is loaded together is searched, compared and freed together, and one
 * block costs less time and memory than ten; what is added later goes into blocks of its own. Nothing but its address
 * tells one kind from the other, so whoever takes a field from its record asks here before it is returned.
 */
#ifndef EXTCFG_NODES_FIELD_ROOM_H
#define EXTCFG_NODES_FIELD_ROOM_H

#include "tav_extcfg_nodes.h"

namespace extcfg {

/** Returns the bytes that a field with a value of `length` bytes takes among others in one block. */
inline uint32_t PackedSize(uint32_t length) {
    constexpr auto kAlignment = static_cast<uint32_t>(alignof(TAV_ExtCfgFieldNode));
    return (static_cast<uint32_t>(sizeof(TAV_ExtCfgFieldNode)) + length + kAlignment - 1) / kAlignment * kAlignment;
}

/** Returns whether a field lies in a record's block, and so is no block that can be returned. */
inline bool IsPacked(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgFieldNode *field) {
    return reinterpret_cast<uintptr_t>(field) - reinterpret_cast<uintptr_t>(record + 1) < record->room;
}

/** Takes the fields of a new record: from its block while there is room, then as blocks of their own. */
class FieldRoom {
  public:
    /** `record` has no fields yet. */
    explicit FieldRoom(TAV_ExtCfgRecordNode *record) : FieldRoom(record, record->room) {}

    /** No room: for a record that may have fields already, in its block or not. */
    static FieldRoom None(TAV_ExtCfgRecordNode *record) { return FieldRoom(record, 0); }

    /** Takes a field whose value the caller fills at once. It is in no list yet. Null, and reports, as TakeField. */
    TAV_ExtCfgFieldNode *Take(uint32_t fid, uint32_t length);

    /** Gives the field that was taken last back. */
    void Return(TAV_ExtCfgFieldNode *field);

    TAV_ExtCfgRecordNode *Record() const { return record_; }

  private:
    FieldRoom(TAV_ExtCfgRecordNode *record, uint32_t left)
        : record_(record), place_(reinterpret_cast<uint8_t *>(record + 1)), left_(left) {}

    TAV_ExtCfgRecordNode *record_;
    uint8_t *place_;  // where the next field goes
    uint32_t left_;   // bytes from there on
};

}  // namespace extcfg

#endif
