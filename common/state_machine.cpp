/*
 * State machine runner, and the ring in which a machine keeps its last steps.
 */
#include <algorithm>

#include "tav_common.h"

namespace {

/** Returns whether the indexes of a ring are some: nobody may have set it up. */
bool IsRing(const TAV_FSM_Ring *ring) {
    return ring->next < TAV_FSM_RECORDS && ring->oldest < TAV_FSM_RECORDS;
}

/** Returns the index behind one in the ring. */
uint16_t Following(uint16_t index) {
    return static_cast<uint16_t>(index + 1 == TAV_FSM_RECORDS ? 0 : index + 1);
}

/** Returns the record written last; in a fresh ring, the last record of all. */
TAV_FSM_Record *LastRecord(TAV_FSM_Ring *ring) {
    return &ring->records[(ring->next == 0 ? TAV_FSM_RECORDS : ring->next) - 1];
}

/**
 * Advances the index to write at, and pushes the oldest one out of its way. So the record to be written over next is
 * never shown, and readers of a ring count on at most nine of its ten records.
 */
void Advance(TAV_FSM_Ring *ring) {
    ring->next = Following(ring->next);
    if (ring->next == ring->oldest) {
        ring->oldest = Following(ring->oldest);
    }
}

/** Finds the first transition for the current state and an event; null when there is none. */
const TAV_FSM_Transition *FindTransition(const TAV_FSM *machine, uint32_t event) {
    const TAV_FSM_Transition *const table = machine->transitions;
    for (uint32_t index = 0; table != nullptr && index < machine->transitionCount; ++index) {
        if (table[index].state == machine->state && table[index].event == event) {
            return &table[index];
        }
    }
    return nullptr;
}

/**
 * Returns how many bytes a formatter has written: never more than there was room for, though one built on snprintf
 * answers what it would have needed; none when it answers a negative number.
 */
uint32_t BytesWritten(uint32_t answer, uint32_t room) {
    return answer > INT32_MAX ? 0 : std::min(answer, room);
}

}  // namespace

void TAV_FSM_Init(TAV_FSM *machine, uint8_t initialState, const TAV_FSM_Transition *transitions,
                  uint8_t transitionCount, uintptr_t userData) {
    if (machine == nullptr) {
        return;
    }
    machine->state = initialState;
    machine->transitionCount = transitionCount;
    machine->transitions = transitions;
    machine->userData = userData;
    machine->ring = {};
    TAV_FSM_SaveDiagnoseInfo(&machine->ring, initialState, TAV_FSM_START_EVENT);
}

uint32_t TAV_FSM_Run_Base(TAV_FSM *machine, uint32_t event, uintptr_t argument, uint16_t *repeat) {
    if (machine == nullptr) {
        return TAV_FSM_ERR_NULL;
    }
    const TAV_FSM_Transition *const transition = FindTransition(machine, event);
    if (transition == nullptr) {
        return TAV_FSM_NO_TRANSITION;
    }
    const uint8_t state = machine->state;  // before the action, which may run the same machine
    const bool first =
        transition->action == nullptr || transition->action(state, event, argument, machine->userData) == TAV_FSM_FIRST;
    const TAV_FSM_Outcome &outcome = first ? transition->first : transition->second;
    TAV_FSM_SaveDiagnoseInfo(&machine->ring, state, static_cast<uint16_t>(event));
    machine->state = outcome.nextState;
    *repeat = outcome.repeat;
    return 0;
}

uint32_t TAV_FSM_Run(TAV_FSM *machine, uint32_t event, uintptr_t argument) {
    constexpr uint16_t kNoStep = 2;  // stays when no step is taken, which ends the loop
    uint32_t result = 0;
    uint16_t repeat = 0;
    do {
        repeat = kNoStep;
        result = TAV_FSM_Run_Base(machine, event, argument, &repeat);
    } while (repeat == TAV_FSM_REPEAT);
    return result;
}

void TAV_FSM_SaveDiagnoseInfo(TAV_FSM_Ring *ring, uint16_t state, uint16_t event) {
    if (!IsRing(ring)) {
        return;
    }
    TAV_FSM_Record *const last = LastRecord(ring);
    if (last->state == state && last->event == event) {
        ++last->repeatCount;
        return;
    }
    TAV_FSM_Record *const record = &ring->records[ring->next];
    MEL_Local_SystimeGet(&record->date, &record->time);
    record->state = state;
    record->event = event;
    record->repeatCount = 1;
    Advance(ring);
}

uint32_t TAV_FSM_DumpDiagnoseInfo(const TAV_FSM *machine, TAV_FSM_Formatter formatter, char *buffer, uint32_t size) {
    if (machine == nullptr || formatter == nullptr || buffer == nullptr || size == 0 || !IsRing(&machine->ring)) {
        return 0;
    }
    uint32_t written = 0;
    for (uint16_t index = machine->ring.oldest; index != machine->ring.next; index = Following(index)) {
        written +=
            BytesWritten(formatter(&machine->ring.records[index], buffer + written, size - written), size - written);
    }
    return written;
}

void TAV_dummy(void) {}
