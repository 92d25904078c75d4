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

/** A day of the calendar, 4 bytes. With a MEL_DayTime behind it, it is laid out as a BEX_SysTime. */
typedef struct MEL_Date {
    uint16_t year; /**< for example 2024 */
    uint8_t month; /**< 1 to 12 */
    uint8_t day;   /**< 1 to 31 */
} MEL_Date;

/** A time of the day, 8 bytes. */
typedef struct MEL_DayTime {
    uint8_t hour;         /**< 0 to 23 */
    uint8_t minute;       /**< 0 to 59 */
    uint8_t second;       /**< 0 to 60 */
    uint8_t weekDay;      /**< 0 (Sunday) to 6 */
    uint32_t millisecond; /**< 0 to 999 */
} MEL_DayTime;

/** A reading of the tick counter, a 64-bit number in two words. */
typedef struct MEL_CpuTick {
    uint32_t low;  /**< the lower 32 bits */
    uint32_t high; /**< the upper 32 bits */
} MEL_CpuTick;

/** Fills in the current system time (GMT on the hosted platform). */
void BEX_SystimeGet(BEX_SysTime *time);

/** Fills in the current system time, as BEX_SystimeGet does. Returns 0, else a code (and the output is left alone). */
uint32_t MEL_SystimeGet(BEX_SysTime *time);

/** Fills in the current GMT time. */
void MEL_GMT_SystimeGet(BEX_SysTime *time);

/** Fills in the current date and time in the local time zone. */
void MEL_Local_SystimeGet(MEL_Date *date, MEL_DayTime *time);

/**
 * Reads the tick counter. It only grows while the system runs, and two readings in one process always differ; so do
 * readings of two processes, unless both fall into the same tick.
 */
void MEL_GetCpuTick(MEL_CpuTick *tick);

#ifdef __cplusplus
}
#endif

#endif
