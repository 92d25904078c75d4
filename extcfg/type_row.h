/*
 * Finding a type's row without reporting. Reading and writing a field ask for it, so it is quick for the known types.
 */
#ifndef EXTCFG_TYPE_ROW_H
#define EXTCFG_TYPE_ROW_H

#include "tav_extcfg.h"

namespace extcfg {

/**
 * Returns where the shipped table keeps a type. Type 20 and unknown types answer a place that holds another type, or
 * one beyond the table.
 */
inline uint32_t UsualPlace(uint32_t type) {
    return type <= EXT_TLV_CHECKSUM || type > EXT_TLV_REFER_CHECKSUM ? type - 1 : type;
}

/** Searches the table for a type's row, from the first one on. Returns none when there is no such row. */
TAV_ExtTlvDataTypeRow *SearchRow(uint32_t type);

/** Finds a type's row, or none. The usual place is tried before the search. */
inline TAV_ExtTlvDataTypeRow *FindRow(uint32_t type) {
    constexpr uint32_t kRowCount = sizeof(g_astExtTlvDataTypeTbl) / sizeof(g_astExtTlvDataTypeTbl[0]) - 1;
    const uint32_t place = UsualPlace(type);
    if (place < kRowCount && g_astExtTlvDataTypeTbl[place].type == type) {
        return &g_astExtTlvDataTypeTbl[place];
    }
    return SearchRow(type);
}

/** Finds the row of a type whose length is known: nothing about it is left to report. Else none. */
inline const TAV_ExtTlvDataTypeRow *FindCompleteRow(uint32_t type) {
    const TAV_ExtTlvDataTypeRow *row = FindRow(type);
    return row != nullptr && row->length != 0 ? row : nullptr;
}

}  // namespace extcfg

#endif
