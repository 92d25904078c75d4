/*
 * Message handler tables: lookups over tables that the caller declares, the table-driven state step, and the lookup of
 * padded TLVs.
 */
#include <cstring>

#include "platform/bex_string.h"
#include "platform/mel_assert.h"
#include "tav_common.h"

namespace {

constexpr char kModule[] = "tav_common";

/* Failed assertions are known by these numbers wherever the platform reports them. They are fixed, and no lines here.
 */
constexpr uint32_t kAssertState = 144; /* a state that is not one of the table's */
constexpr uint32_t kAssertEvent = 175; /* an event that is not one of the table's */
constexpr uint32_t kAssertEntry = 180; /* no entry for the state and event */

constexpr uint32_t kFirstTlv = 8;     /* offset of the first TLV in a message */
constexpr uint32_t kTlvHeadSize = 4;  /* bytes of type and length */
constexpr uint32_t kTlvAlignment = 4; /* the next TLV begins at a multiple of this */

/** Finds the first entry that fits among every `step`-th one, up to the first without a handler. */
template <typename Entry, typename Fits>
TAV_Handler FindHandler(const Entry *entry, uint32_t step, Fits fits) {
    for (; entry->handler != nullptr; entry += step) {
        if (fits(*entry)) {
            return entry->handler;
        }
    }
    return nullptr;
}

/** Finds the first entry with a key in a table, which may be null. */
template <typename Entry>
TAV_Handler FindByKey(const Entry *table, uint32_t Entry::*keyField, uint32_t key) {
    return table == nullptr ? nullptr
                            : FindHandler(table, 1, [=](const Entry &entry) { return entry.*keyField == key; });
}

/** Tells the address of an entry. In numbers: a place far outside the table must not be computed with pointers. */
const FSM_Transition *EntryAt(const FSM_Transition *table, uintptr_t index) {
    return reinterpret_cast<const FSM_Transition *>(reinterpret_cast<uintptr_t>(table) + index * sizeof *table);
}

using Load16 = uint16_t (*)(const uint8_t *field);

uint16_t LoadHost16(const uint8_t *field) {
    uint16_t value = 0;
    memcpy(&value, field, sizeof value);
    return value;
}

uint16_t LoadNetwork16(const uint8_t *field) {
    return static_cast<uint16_t>(field[0] << 8 | field[1]);
}

/** Finds a TLV in a message whose numbers `load` reads. Every step is one of 4 bytes at least, so the walk ends. */
const void *FindTlv(uint16_t *valueLength, uint16_t type, const uint8_t *message, Load16 load) {
    const uint32_t totalLength = load(message);
    uint32_t at = kFirstTlv;
    do { /* the first TLV is looked at even if the total length does not cover it, on purpose */
        const uint8_t *const tlv = message + at;
        const uint16_t length = load(tlv + 2);
        if (load(tlv) == type) {
            *valueLength = length;
            return tlv + kTlvHeadSize;
        }
        at += (kTlvHeadSize + length + kTlvAlignment - 1) & ~(kTlvAlignment - 1);
    } while (at < totalLength);
    return nullptr;
}

}  // namespace

void *TAV_MallocInit(void *block, uint32_t size) {
    if (block != nullptr) {
        memset_s(block, size, 0, size);
    }
    return block;
}

TAV_Handler TAV_GetSubIfHandler(uint8_t interfaceNumber, uint8_t subInterfaceNumber, const TAV_SubIfHandler *table) {
    if (table == nullptr) {
        return nullptr;
    }
    return FindHandler(table, 1, [=](const TAV_SubIfHandler &entry) {
        return entry.interfaceNumber == interfaceNumber && entry.subInterfaceNumber == subInterfaceNumber;
    });
}

TAV_Handler TAV_GetMsgHandlerByCmd(uint32_t command, const TAV_CmdHandler *table) {
    return FindByKey(table, &TAV_CmdHandler::command, command);
}

TAV_Handler TAV_GetConstructHandlerByStage(uint32_t stage, const TAV_ConstructHandler *table) {
    return FindByKey(table, &TAV_ConstructHandler::stage, stage);
}

TAV_Handler TAV_GetMsgHandleByState(uint32_t event, uint32_t state, const TAV_StateHandler *table,
                                    uint32_t stateCount) {
    if (table == nullptr) {
        return nullptr;
    }
    if (state >= stateCount) {
        MEL_Assert(kModule, kAssertState);
    }
    if (stateCount == 0) {
        return nullptr; /* no columns; a scan would not get from the spot */
    }
    return FindHandler(table + state, stateCount, [=](const TAV_StateHandler &entry) { return entry.event == event; });
}

uint32_t FSM_Process(uint32_t event, uint32_t *state, const FSM_Transition *table, uint32_t eventCount, uintptr_t arg1,
                     uintptr_t arg2, uintptr_t arg3) {
    if (state == nullptr || table == nullptr) {
        return FSM_FAILED;
    }
    if (event >= eventCount) {
        MEL_Assert(kModule, kAssertEvent);
    }
    const FSM_Transition *const entry = EntryAt(table, uintptr_t{*state} * eventCount + event);
    if (entry == nullptr) {
        MEL_Assert(kModule, kAssertEntry);
        return FSM_FAILED;
    }
    if (entry->handler == nullptr || entry->handler(arg1, arg2, arg3) != 0) {
        return FSM_FAILED;
    }
    *state = entry->nextState;
    return 0;
}

const void *TAV_TLV_Find(uint16_t *valueLength, uint16_t type, const void *message) {
    return FindTlv(valueLength, type, static_cast<const uint8_t *>(message), LoadHost16);
}

const void *TAV_TLV_Find_NTOH(uint16_t *valueLength, uint16_t type, const void *message) {
    return FindTlv(valueLength, type, static_cast<const uint8_t *>(message), LoadNetwork16);
}
