/*
 * Platform clocks.
 */
#ifndef PLATFORM_MEL_CLOCK_H
#define PLATFORM_MEL_CLOCK_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A moment in calendar form, 12 bytes. */
typedef struct BEX_SysTime {
    uint16_t year;        /**< for example 2024 */
    uint8_t month;        /**< 1 to 12 */
    uint8_t day;          /**< 1 to 31 */
    uint8_t hour;         /**< 0 to 23 */
    uint8_t minute;       /**< 0 to 59 */
    uint8_t second;       /**< 0 to 60 */
    uint8_t weekDay;      /**< 0 (Sunday) to 6 */
    uint32_t millisecond; /**< 0 to 999 */
} BEX_SysTime;

/** Fills in the current system time (GMT on the hosted platform). */
void BEX_SystimeGet(BEX_SysTime *time);

/** Fills in the current GMT time. */
void MEL_GMT_SystimeGet(BEX_SysTime *time);

#ifdef __cplusplus
}
#endif

#endif
