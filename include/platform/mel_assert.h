/*
 * Platform assertions.
 */
#ifndef PLATFORM_MEL_ASSERT_H
#define PLATFORM_MEL_ASSERT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Reports that something which must hold does not: the library's caller has broken a rule. Whether the process goes on
 * is the platform's to decide. When this returns, the library goes on with what it was given, and that is as safe as
 * the caller's table is large:
 *
 * - TAV_GetMsgHandleByState, with a state that is not one of the table's, scans from that place on, up to the first
 *   entry without a handler that it comes across;
 * - FSM_Process, with an event that is not one of the table's, calls the handler of the entry at that place. Without an
 *   entry it does nothing;
 * - TAV_GetCharFromZip goes on at the position that its control block has.
 *
 * Beyond the end of a table lies what is no entry. So a platform that does not know all tables of its process does not
 * return from this.
 *
 * @param source  name of the source module
 * @param line    source line of the call
 */
void MEL_Assert(const char *source, uint32_t line);

#ifdef __cplusplus
}
#endif

#endif
