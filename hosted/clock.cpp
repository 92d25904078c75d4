/*
 * The clocks. The system time of the hosted platform is GMT.
 */
#include <time.h>
#include <cerrno>

#include <atomic>
#include <mutex>

#include "interfaces.h"

namespace {

/** A moment by the calendar. */
struct Moment {
    MEL_Date date;
    MEL_DayTime time;
};

constexpr int64_t kNotFixed = -1;
std::atomic<int64_t> fixedTime = kNotFixed;  // what all clocks of the calendar show, in seconds since 1970

/** The system's real-time clock, or what it has been fixed to. */
timespec RealTime() {
    timespec now = {};
    if (const int64_t fixed = fixedTime; fixed != kNotFixed) {
        now.tv_sec = static_cast<time_t>(fixed);
    } else {
        clock_gettime(CLOCK_REALTIME, &now);
    }
    return now;
}

/** The current time by the calendar into which `convert` (gmtime_r, localtime_r) puts it. */
Moment Now(tm *(*convert)(const time_t *, tm *)) {
    const timespec now = RealTime();
    tm calendar = {};
    convert(&now.tv_sec, &calendar);
    const MEL_Date date = {static_cast<uint16_t>(calendar.tm_year + 1900), static_cast<uint8_t>(calendar.tm_mon + 1),
                           static_cast<uint8_t>(calendar.tm_mday)};
    const MEL_DayTime time = {static_cast<uint8_t>(calendar.tm_hour), static_cast<uint8_t>(calendar.tm_min),
                              static_cast<uint8_t>(calendar.tm_sec), static_cast<uint8_t>(calendar.tm_wday),
                              static_cast<uint32_t>(now.tv_nsec / 1000000)};
    return {date, time};
}

std::mutex tickMutex;
uint64_t lastTick = 0;  // the reading that was given out last; guarded by tickMutex

}  // namespace

void MEL_GMT_SystimeGet(BEX_SysTime *time) {
    if (time == nullptr) {
        return;
    }
    const auto [date, dayTime] = Now(gmtime_r);
    *time = {date.year,      date.month,     date.day,        dayTime.hour,
             dayTime.minute, dayTime.second, dayTime.weekDay, dayTime.millisecond};
}

void BEX_SystimeGet(BEX_SysTime *time) {
    MEL_GMT_SystimeGet(time);
}

uint32_t MEL_SystimeGet(BEX_SysTime *time) {
    MEL_GMT_SystimeGet(time);
    return time != nullptr ? 0 : EINVAL;
}

void MEL_Local_SystimeGet(MEL_Date *date, MEL_DayTime *time) {
    if (date == nullptr || time == nullptr) {
        return;
    }
    const Moment now = Now(localtime_r);
    *date = now.date;
    *time = now.time;
}

uint32_t TAV_Posix_FixSystemTime(uint64_t seconds) {
    constexpr uint64_t kEndOf9999 = 253402300799;
    if (seconds > kEndOf9999 || static_cast<uint64_t>(static_cast<time_t>(seconds)) != seconds) {
        return ERANGE;
    }
    fixedTime = static_cast<int64_t>(seconds);
    return 0;
}

/** Nanoseconds since the system started. A clock that has not moved on since the last reading counts as if it had. */
void MEL_GetCpuTick(MEL_CpuTick *tick) {
    if (tick == nullptr) {
        return;
    }
    timespec now = {};
    const std::lock_guard lock(tickMutex);
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t reading = static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
    lastTick = reading > lastTick ? reading : lastTick + 1;
    *tick = {static_cast<uint32_t>(lastTick), static_cast<uint32_t>(lastTick >> 32)};
}
