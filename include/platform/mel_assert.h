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
 * Reports that something which must hold does not. Whether the process goes on is the platform's to decide, so a caller
 * must be able to go on safely when this returns.
 *
 * @param source  name of the source module
 * @param line    source line of the call
 */
void MEL_Assert(const char *source, uint32_t line);

#ifdef __cplusplus
}
#endif

#endif
