#include "frame/platform.h"

namespace vrn::platform {

namespace {

constexpr uint64_t kUnitsPerMillisecond = 10000;
constexpr uint64_t kUnitsPerDay = 864000000000ull;

bool IsLeapYear(uint32_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

uint32_t DaysInMonth(uint32_t year, uint32_t month) {
    static constexpr uint8_t kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// The range the system accepts; the day of week isn't looked at.
bool IsValid(const SystemTime& t) {
    return t.year >= 1601 && t.year <= 30827 && t.month >= 1 && t.month <= 12 && t.day >= 1 &&
           t.day <= DaysInMonth(t.year, t.month) && t.hour < 24 && t.minute < 60 && t.second < 60 &&
           t.milliseconds < 1000;
}

// Days from 1601-01-01 in the proleptic Gregorian calendar. 1601 starts a
// 400-year cycle, so whole cycles, centuries and leap quads count from it.
uint64_t DaysSince1601(uint32_t year, uint32_t month, uint32_t day) {
    const uint64_t y = year - 1601;
    uint64_t days = y * 365 + y / 4 - y / 100 + y / 400;
    for (uint32_t m = 1; m < month; ++m) days += DaysInMonth(year, m);
    return days + day - 1;
}

}  // namespace

// A refused date gives 0, what a caller's cleared FILETIME keeps when the system refuses it.
uint64_t SystemTimeToFileTime(const SystemTime& time) {
    if (!IsValid(time)) return 0;
    const uint64_t milliseconds =
        ((uint64_t{time.hour} * 60 + time.minute) * 60 + time.second) * 1000 + time.milliseconds;
    return DaysSince1601(time.year, time.month, time.day) * kUnitsPerDay + milliseconds * kUnitsPerMillisecond;
}

}  // namespace vrn::platform
