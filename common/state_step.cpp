/*
 * The table-driven state step: one event, one entry of a transition table.
 */
#include "platform/mel_assert.h"
#include "tav_common.h"

namespace {

constexpr char kModule[] = "tav_common";

// Failed assertions are known by these numbers wherever the platform reports them. They are fixed, and no lines here.
constexpr uint32_t kAssertEvent = 175;  // an event that is not one of the table's
constexpr uint32_t kAssertEntry = 180;  // no entry for the state and event

/**
 * Returns the address of an entry, which may be null or anywhere: the state is the caller's and not bounded, and after
 * a failed assertion the event is not either. Pointers may not be computed so far outside their table; numbers may.
 */
const FSM_Transition *EntryAt(const FSM_Transition *table, uintptr_t index) {
    return reinterpret_cast<const FSM_Transition *>(reinterpret_cast<uintptr_t>(table) + index * sizeof(*table));
}

}  // namespace

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
