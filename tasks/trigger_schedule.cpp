#include "tasks/trigger_schedule.h"

#include <algorithm>

namespace vrn::tasks {
namespace {

constexpr int32_t kMaxYear = 9999;  // a SYSTEMTIME can't say more
// How far back a repetition may reach: starts older than this are not looked
// at, so a duration of years costs no more than one of a year.
constexpr int64_t kMaxRepetitionDays = 400;
// How many starts a random delay may make worth looking at (a delay of days
// over a repetition of minutes); past that the earliest found stands.
constexpr int kMaxDelayedStarts = 20000;

bool IsLeapYear(int32_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

bool HasDay(uint32_t mask, int32_t bit) { return ((mask >> bit) & 1u) != 0; }

// The first day at or after `day` in the week pattern, none when the mask is empty.
std::optional<int64_t> NextWeeklyDay(const TASK_TRIGGER& t, int64_t begin, int64_t day) {
    const uint16_t mask = t.Type.Weekly.rgfDaysOfTheWeek & kAllDays;
    if (mask == 0) return std::nullopt;
    const int64_t every = std::max<int64_t>(1, t.Type.Weekly.WeeksInterval);
    const int64_t firstWeek = begin - DayOfWeek(begin);  // weeks run Sunday to Saturday
    for (int64_t d = std::max(day, begin);;) {
        const int64_t week = (d - firstWeek) / 7;
        if (week % every != 0) {
            d = firstWeek + (week + every - week % every) * 7;
            continue;
        }
        for (int64_t end = firstWeek + (week + 1) * 7; d < end; ++d) {
            if (HasDay(mask, DayOfWeek(d))) return d;
        }
    }
}

// The first day at or after `day` on one of the month days, over eight years
// (every day of a month, 29 February too, comes round in that time).
std::optional<int64_t> NextMonthlyDate(const TASK_TRIGGER& t, int64_t day) {
    const uint32_t days = t.Type.MonthlyDate.rgfDays & 0x7FFFFFFFu;
    const uint16_t months = t.Type.MonthlyDate.rgfMonths & kAllMonths;
    if (days == 0 || months == 0) return std::nullopt;
    LocalTime at = CivilFromDays(day);
    for (int n = 0; n <= 12 * 8; ++n) {
        if (HasDay(months, at.month - 1)) {
            for (int32_t d = at.day; d <= DaysInMonth(at.year, at.month); ++d) {
                if (HasDay(days, d - 1)) return DaysFromCivil(at.year, at.month, d);
            }
        }
        at.day = 1;
        if (++at.month > 12) at.month = 1, ++at.year;
    }
    return std::nullopt;
}

// The first day at or after `day` that is the chosen week's weekday of a chosen month.
std::optional<int64_t> NextMonthlyDow(const TASK_TRIGGER& t, int64_t day) {
    const uint16_t which = t.Type.MonthlyDOW.wWhichWeek;
    const uint16_t weekdays = t.Type.MonthlyDOW.rgfDaysOfTheWeek & kAllDays;
    const uint16_t months = t.Type.MonthlyDOW.rgfMonths & kAllMonths;
    if (which < kFirstWeek || which > kLastWeek || weekdays == 0 || months == 0) return std::nullopt;
    LocalTime at = CivilFromDays(day);
    for (int n = 0; n <= 12; ++n) {
        if (HasDay(months, at.month - 1)) {
            const int64_t first = DaysFromCivil(at.year, at.month, 1);
            const int32_t length = DaysInMonth(at.year, at.month);
            std::optional<int64_t> best;
            for (int32_t w = 0; w < 7; ++w) {
                if (!HasDay(weekdays, w)) continue;
                int64_t d = first + (w - DayOfWeek(first) + 7) % 7;
                if (which == kLastWeek) {
                    while (d + 7 < first + length) d += 7;
                } else {
                    d += 7 * (which - 1);
                }
                if (d >= day && (!best || d < *best)) best = d;
            }
            if (best) return best;
        }
        at.day = 1;
        if (++at.month > 12) at.month = 1, ++at.year;
        day = DaysFromCivil(at.year, at.month, 1);
    }
    return std::nullopt;
}

// The first day at or after `day` on which the trigger starts.
std::optional<int64_t> NextStartDay(const TASK_TRIGGER& t, int64_t begin, int64_t day) {
    switch (t.TriggerType) {
        case kTriggerOnce:
            return day <= begin ? std::optional<int64_t>(begin) : std::nullopt;
        case kTriggerDaily: {
            if (day <= begin) return begin;
            const int64_t every = std::max<int64_t>(1, t.Type.Daily.DaysInterval);
            return begin + (day - begin + every - 1) / every * every;
        }
        case kTriggerWeekly:
            return NextWeeklyDay(t, begin, day);
        case kTriggerMonthlyDate:
            return NextMonthlyDate(t, std::max(day, begin));
        case kTriggerMonthlyDow:
            return NextMonthlyDow(t, std::max(day, begin));
        default:
            return std::nullopt;
    }
}

bool HasSetTimes(const TASK_TRIGGER& t) { return t.TriggerType >= kTriggerOnce && t.TriggerType <= kTriggerMonthlyDow; }

}  // namespace

int64_t DaysFromCivil(int32_t year, int32_t month, int32_t day) {
    // Years counted from March, so the leap day ends a year.
    const int64_t y = static_cast<int64_t>(year) - (month <= 2 ? 1 : 0);
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yearOfEra = y - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

LocalTime CivilFromDays(int64_t days) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t mp = (5 * dayOfYear + 2) / 153;
    LocalTime out;
    out.day = static_cast<int32_t>(dayOfYear - (153 * mp + 2) / 5 + 1);
    out.month = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
    out.year = static_cast<int32_t>(yearOfEra + era * 400 + (out.month <= 2 ? 1 : 0));
    return out;
}

int32_t DayOfWeek(int64_t days) { return static_cast<int32_t>(((days % 7) + 11) % 7); }  // 1970-01-01 was a Thursday

int32_t DaysInMonth(int32_t year, int32_t month) {
    static constexpr int8_t kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

bool IsValidDate(int32_t year, int32_t month, int32_t day) {
    return year >= 1601 && year <= kMaxYear && month >= 1 && month <= 12 && day >= 1 &&
           day <= DaysInMonth(year, month);
}

namespace {

// The days a trigger may start on, or none for a trigger that never starts.
struct Term {
    int64_t begin = 0, last = 0;
};
std::optional<Term> TermOf(const TASK_TRIGGER& t) {
    if ((t.rgFlags & kTriggerFlagDisabled) != 0 || !HasSetTimes(t)) return std::nullopt;
    if (!IsValidDate(t.wBeginYear, t.wBeginMonth, t.wBeginDay) || t.wStartHour > 23 || t.wStartMinute > 59) {
        return std::nullopt;
    }
    Term term{DaysFromCivil(t.wBeginYear, t.wBeginMonth, t.wBeginDay), DaysFromCivil(kMaxYear, 12, 31)};
    if ((t.rgFlags & kTriggerFlagHasEndDate) != 0 && t.TriggerType != kTriggerOnce) {
        if (!IsValidDate(t.wEndYear, t.wEndMonth, t.wEndDay)) return std::nullopt;
        term.last = DaysFromCivil(t.wEndYear, t.wEndMonth, t.wEndDay);
    }
    return term;
}

// The first start of the trigger on or after `day`: its day and its instant.
struct Occurrence {
    int64_t day = 0, instant = 0;
};
std::optional<Occurrence> NextOccurrence(const TASK_TRIGGER& t, const Term& term, int64_t day, const TimeZone& zone) {
    const std::optional<int64_t> start = NextStartDay(t, term.begin, day);
    if (!start || *start > term.last) return std::nullopt;
    LocalTime at = CivilFromDays(*start);
    at.hour = t.wStartHour;
    at.minute = t.wStartMinute;
    return Occurrence{*start, zone.ToInstant(at)};
}

// The first day whose start may still matter at `from`: a start whose
// duration can't reach it needn't be looked at; a day more covers the zone's offset.
int64_t FirstDayToLook(const TASK_TRIGGER& t, int64_t from, const TimeZone& zone) {
    const int64_t reach = std::min(int64_t{t.MinutesDuration} * 60 / 86400 + 1, kMaxRepetitionDays) + 1;
    const LocalTime now = zone.ToLocal(from);
    return DaysFromCivil(now.year, now.month, now.day) - reach;
}

// The first start at or after `from`, repetitions counted, no random delay.
std::optional<int64_t> FirstStart(const TASK_TRIGGER& t, int64_t from, const TimeZone& zone) {
    const std::optional<Term> term = TermOf(t);
    if (!term) return std::nullopt;
    const bool repeats = t.MinutesInterval > 0 && t.MinutesDuration > t.MinutesInterval;
    const int64_t step = repeats ? int64_t{t.MinutesInterval} * 60 : 0;
    const int64_t span = repeats ? int64_t{t.MinutesDuration} * 60 : 0;
    std::optional<int64_t> best;
    for (int64_t day = FirstDayToLook(t, from, zone);;) {
        const std::optional<Occurrence> o = NextOccurrence(t, *term, day, zone);
        if (!o) break;
        const int64_t s = o->instant;
        if (s >= from) {
            if (!best || s < *best) best = s;
            break;
        }
        if (repeats) {
            const int64_t k = (from - s + step - 1) / step;
            if (k * step < span && (!best || s + k * step < *best)) best = s + k * step;
        }
        day = o->day + 1;
    }
    return best;
}

// The random delay of one start, in seconds (whole minutes): a hash of the
// task's seed and the start, so a start keeps the delay it drew however often
// it is asked for.
int64_t RandomDelay(const TASK_TRIGGER& t, uint64_t seed, int64_t start) {
    uint64_t x = seed ^ (static_cast<uint64_t>(start) * 0x9E3779B97F4A7C15u);
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9u;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBu;
    x ^= x >> 31;
    return static_cast<int64_t>(x % (uint64_t{t.wRandomMinutesInterval} + 1)) * 60;
}

}  // namespace

std::optional<int64_t> NextTriggerStart(const TASK_TRIGGER& t, int64_t from, const TimeZone& zone, uint64_t seed) {
    if (t.wRandomMinutesInterval == 0) return FirstStart(t, from, zone);
    // A start up to the spread before `from` may be delayed past it; delays
    // can reorder starts, so the search runs until a start comes no earlier
    // than the best delayed one.
    std::optional<int64_t> best;
    int64_t at = from - int64_t{t.wRandomMinutesInterval} * 60;
    for (int n = 0; n < kMaxDelayedStarts; ++n) {
        const std::optional<int64_t> s = FirstStart(t, at, zone);
        if (!s || (best && *s >= *best)) break;
        const int64_t delayed = *s + RandomDelay(t, seed, *s);
        if (delayed >= from && (!best || delayed < *best)) best = delayed;
        at = *s + 1;
    }
    return best;
}

std::optional<int64_t> KillTime(std::span<const TASK_TRIGGER> triggers, int64_t at, const TimeZone& zone) {
    std::optional<int64_t> best;
    for (const TASK_TRIGGER& t : triggers) {
        const std::optional<Term> term = TermOf(t);
        if ((t.rgFlags & kTriggerFlagKillAtDurationEnd) == 0 || t.MinutesDuration == 0 || !term) continue;
        const int64_t span = int64_t{t.MinutesDuration} * 60;
        for (int64_t day = FirstDayToLook(t, at, zone);;) {
            const std::optional<Occurrence> o = NextOccurrence(t, *term, day, zone);
            if (!o || o->instant > at) break;
            if (at < o->instant + span && (!best || o->instant + span < *best)) best = o->instant + span;
            day = o->day + 1;
        }
    }
    return best;
}

NextRun NextTaskRun(std::span<const TASK_TRIGGER> triggers, int64_t from, const TimeZone& zone, uint64_t seed) {
    NextRun out;
    bool timed = false, events = false;
    for (size_t i = 0; i < triggers.size(); ++i) {
        const TASK_TRIGGER& t = triggers[i];
        if ((t.rgFlags & kTriggerFlagDisabled) != 0) continue;
        if (!HasSetTimes(t)) {
            events = true;
            continue;
        }
        timed = true;
        // Each trigger draws its own delays.
        const std::optional<int64_t> start = NextTriggerStart(t, from, zone, seed + i * 0xD1B54A32D192ED03u);
        if (start && (out.kind != NextRunKind::kTime || *start < out.instant)) {
            out.kind = NextRunKind::kTime;
            out.instant = *start;
        }
    }
    if (out.kind == NextRunKind::kTime) return out;
    out.kind = timed ? NextRunKind::kNoMoreRuns : events ? NextRunKind::kEventOnly : NextRunKind::kNoValidTriggers;
    return out;
}

}  // namespace vrn::tasks
