// When a task's triggers start it: the next start at or after a moment, in the
// local time of a zone the caller gives (so tests can fix both clock and zone).
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "tasks/scheduler.h"

namespace vrn::tasks {

// A wall-clock time, to the second.
struct LocalTime {
    int32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    friend bool operator==(const LocalTime&, const LocalTime&) = default;
};

// Wall-clock time against instants (seconds since 1970-01-01 UTC).
class TimeZone {
public:
    virtual ~TimeZone() = default;
    [[nodiscard]] virtual LocalTime ToLocal(int64_t instant) const = 0;
    // A time the clocks skip (02:30 on a spring-forward night) maps past the
    // gap; one they pass twice maps to either of its instants.
    [[nodiscard]] virtual int64_t ToInstant(const LocalTime& time) const = 0;
};

// The proleptic Gregorian calendar as day numbers (0 is 1970-01-01).
int64_t DaysFromCivil(int32_t year, int32_t month, int32_t day);
LocalTime CivilFromDays(int64_t days);  // midnight of that day
int32_t DayOfWeek(int64_t days);        // 0 is Sunday
int32_t DaysInMonth(int32_t year, int32_t month);
bool IsValidDate(int32_t year, int32_t month, int32_t day);

// The first start of one trigger at or after `from`: none for a disabled
// trigger, an ended term, a pattern that never matches, or an event trigger.
// Repetition (MinutesInterval within MinutesDuration) counts elapsed time from
// each day's start. A random delay (wRandomMinutesInterval) puts each start
// 0 to that many whole minutes later, drawn from `seed` and the start.
std::optional<int64_t> NextTriggerStart(const TASK_TRIGGER& trigger, int64_t from, const TimeZone& zone,
                                        uint64_t seed = 0);

// When a run that starts at `at` must stop: the earliest end of a duration
// that holds `at`, of the triggers that kill at their duration's end; none
// when no such duration holds it.
std::optional<int64_t> KillTime(std::span<const TASK_TRIGGER> triggers, int64_t at, const TimeZone& zone);

// The next start over all of a task's triggers, and why there is none.
enum class NextRunKind {
    kTime,
    kNoValidTriggers,  // no trigger, or all of them disabled
    kEventOnly,        // only triggers without set times (idle, startup, logon)
    kNoMoreRuns,
};
struct NextRun {
    NextRunKind kind = NextRunKind::kNoValidTriggers;
    int64_t instant = 0;  // for kTime
};
// `seed` (the task's) draws the random delays.
NextRun NextTaskRun(std::span<const TASK_TRIGGER> triggers, int64_t from, const TimeZone& zone, uint64_t seed = 0);

}  // namespace vrn::tasks
