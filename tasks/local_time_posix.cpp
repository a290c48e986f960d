#include "tasks/local_time_posix.h"

#include <ctime>

namespace vrn::tasks {
namespace {

class PosixTimeZone final : public TimeZone {
public:
    LocalTime ToLocal(int64_t instant) const override {
        const time_t t = static_cast<time_t>(instant);
        struct tm tm {};
        localtime_r(&t, &tm);
        return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
    }

    int64_t ToInstant(const LocalTime& time) const override {
        struct tm tm {};
        tm.tm_year = time.year - 1900;
        tm.tm_mon = time.month - 1;
        tm.tm_mday = time.day;
        tm.tm_hour = time.hour;
        tm.tm_min = time.minute;
        tm.tm_sec = time.second;
        tm.tm_isdst = -1;
        const int64_t instant = mktime(&tm);
        // In a gap mktime may answer the instant before it; the wall clock
        // then reads earlier than asked, and the time lies past the gap.
        const LocalTime back = ToLocal(instant);
        const int64_t asked = DaysFromCivil(time.year, time.month, time.day) * 86400 +
                              (time.hour * 60 + time.minute) * 60 + time.second;
        const int64_t got = DaysFromCivil(back.year, back.month, back.day) * 86400 +
                            (back.hour * 60 + back.minute) * 60 + back.second;
        return got < asked ? instant + (asked - got) : instant;
    }
};

}  // namespace

const TimeZone& SystemTimeZone() {
    static const PosixTimeZone zone;
    return zone;
}

int64_t NowInstant() { return static_cast<int64_t>(time(nullptr)); }

SystemTime ToSystemTime(int64_t instant, const TimeZone& zone) {
    const LocalTime t = zone.ToLocal(instant);
    SystemTime out{};
    out.year = static_cast<uint16_t>(t.year);
    out.month = static_cast<uint16_t>(t.month);
    out.dayOfWeek = static_cast<uint16_t>(DayOfWeek(DaysFromCivil(t.year, t.month, t.day)));
    out.day = static_cast<uint16_t>(t.day);
    out.hour = static_cast<uint16_t>(t.hour);
    out.minute = static_cast<uint16_t>(t.minute);
    out.second = static_cast<uint16_t>(t.second);
    return out;
}

}  // namespace vrn::tasks
