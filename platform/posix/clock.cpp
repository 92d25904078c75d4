/*
 * The clocks. The system time of the hosted platform is GMT.
 */
#include <time.h>

#include "interfaces.h"

void MEL_GMT_SystimeGet(BEX_SysTime *time) {
    if (time == nullptr) {
        return;
    }
    timespec now = {};
    tm calendar = {};
    clock_gettime(CLOCK_REALTIME, &now);
    gmtime_r(&now.tv_sec, &calendar);
    time->year = static_cast<uint16_t>(calendar.tm_year + 1900);
    time->month = static_cast<uint8_t>(calendar.tm_mon + 1);
    time->day = static_cast<uint8_t>(calendar.tm_mday);
    time->hour = static_cast<uint8_t>(calendar.tm_hour);
    time->minute = static_cast<uint8_t>(calendar.tm_min);
    time->second = static_cast<uint8_t>(calendar.tm_sec);
    time->weekDay = static_cast<uint8_t>(calendar.tm_wday);
    time->millisecond = static_cast<uint32_t>(now.tv_nsec / 1000000);
}

void BEX_SystimeGet(BEX_SysTime *time) {
    MEL_GMT_SystimeGet(time);
}
