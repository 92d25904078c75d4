/*
 * The event that the watcher of a store reports: a change of a record. What can be asked of it (the condition types),
 * and how it is described to the subscriber (the payload).
 */
#ifndef EXAMPLES_CHANGE_EVENT_H
#define EXAMPLES_CHANGE_EVENT_H

#include "aru_detect.h"
#include "tav_extcfg.h"

/** An edit that has reached the file; its address is argument 1 of the event. */
struct Change {
    const char *what;                    // kSetText or kDeletedText
    uint32_t vsId;                       // the VS
    uint32_t cid;                        // class of the record
    const TAV_ExtCfgRecordNode *record;  // the record as it is now, or as it was before it was deleted
    unsigned matches = 0;                // out: conditions that have matched
    bool isTold = false;                 // out: a notification has been written
};

/**
 * Registers the condition types of ConditionTlv with a VS. Their events have the address of a Change as argument 1.
 *
 * @return the first result that is not ARU_DETECT_OK, or ARU_DETECT_OK
 */
uint32_t RegisterChangeConditions(uint32_t vsId, ARU_Detect_Handle *handle);

/** The notify-fill callback: writes a Change as kChangeTlv, EXT_TLV_VS_ID and the record's TLV. */
uint32_t FillChangePayload(void *dest, uint32_t size, uintptr_t event, uintptr_t arg2, uintptr_t userData);

#endif
