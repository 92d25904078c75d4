/*
 * What other files do with a field node beyond reading it.
 */
#ifndef EXTCFG_NODES_FIELD_H
#define EXTCFG_NODES_FIELD_H

#include <memory>

#include "extcfg/format/types.h"
#include "extcfg/nodes/list.h"
#include "tav_extcfg_nodes.h"

namespace extcfg {

/** Returns where a field's value is to be written. TAV_ExtCfgFieldValue is for reading it. */
inline uint8_t *ValueToFill(TAV_ExtCfgFieldNode *field) {
    return reinterpret_cast<uint8_t *>(field + 1);
}

/** Returns whether a value is too long for its type, and reports that under the name of TAV_ExtCfgFieldNodeCreate. */
bool RefuseLength(uint32_t fid, uint32_t length);

/** Returns whether a type's values may be as long as that; reports as above. */
inline bool IsLengthAllowed(uint32_t fid, uint32_t length) {
    const TAV_ExtTlvDataTypeRow *row = FindCompleteRow(fid);
    return (row != nullptr && length <= row->length) || !RefuseLength(fid, length);
}

/**
 * Takes a field whose value the caller fills at once: opening a file takes millions. Reports under the name of
 * TAV_ExtCfgFieldNodeCreate, which fills it with zeros.
 */
TAV_ExtCfgFieldNode *TakeField(uint32_t fid, uint32_t length);

/** Returns the first field with an id in a list of fields, or null. */
inline TAV_ExtCfgFieldNode *FirstField(const SLL_List *fields, uint32_t fid) {
    for (TAV_ExtCfgFieldNode *field : ListRange<TAV_ExtCfgFieldNode>(fields)) {
        if (field->fid == fid) {
            return field;
        }
    }
    return nullptr;
}

/** Orders two fields of the same id; `row` is the type's, or null. */
inline int32_t OrderValues(const TAV_ExtTlvDataTypeRow *row, const TAV_ExtCfgFieldNode *a,
                           const TAV_ExtCfgFieldNode *b) {
    // The shorter value sorts first, texts included: the order of records in files and queries follows from it.
    if (a->length != b->length) {
        return a->length < b->length ? -1 : 1;
    }
    if (row == nullptr || row->compare == nullptr) {
        return 0;
    }
    return row->compare(row->dataType, static_cast<uint16_t>(a->length), TAV_ExtCfgFieldValue(a),
                        TAV_ExtCfgFieldValue(b));
}

/** A field that is freed with its holder unless it is released before. */
struct FieldFreer {
    void operator()(TAV_ExtCfgFieldNode *field) const { TAV_ExtCfgFieldNodeFree(field); }
};
using OwnedField = std::unique_ptr<TAV_ExtCfgFieldNode, FieldFreer>;

}  // namespace extcfg

#endif
