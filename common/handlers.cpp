/*
 * Message handler tables: lookups over tables that the caller declares.
 */
#include "platform/mel_assert.h"
#include "tav_common.h"

namespace {

constexpr char kModule[] = "tav_common";

// A failed assertion is known by this number wherever the platform reports it. It is fixed, and no line here.
constexpr uint32_t kAssertState = 144;  // a state that is not one of the table's

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

/** Finds the first entry that fits in a table of single entries, which may be null. */
template <typename Entry, typename Fits>
TAV_Handler FindInTable(const Entry *table, Fits fits) {
    return table == nullptr ? nullptr : FindHandler(table, 1, fits);
}

}  // namespace

TAV_Handler TAV_GetSubIfHandler(uint8_t interfaceNumber, uint8_t subInterfaceNumber, const TAV_SubIfHandler *table) {
    return FindInTable(table, [=](const TAV_SubIfHandler &entry) {
        return entry.interfaceNumber == interfaceNumber && entry.subInterfaceNumber == subInterfaceNumber;
    });
}

TAV_Handler TAV_GetMsgHandlerByCmd(uint32_t command, const TAV_CmdHandler *table) {
    return FindInTable(table, [=](const TAV_CmdHandler &entry) { return entry.command == command; });
}

TAV_Handler TAV_GetConstructHandlerByStage(uint32_t stage, const TAV_ConstructHandler *table) {
    return FindInTable(table, [=](const TAV_ConstructHandler &entry) { return entry.stage == stage; });
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
        return nullptr;  // no columns; a scan would not get from the spot
    }
    return FindHandler(table + state, stateCount, [=](const TAV_StateHandler &entry) { return entry.event == event; });
}
