// Next run times with a fixed clock, in a zone with daylight saving (TZ).
#include <gtest/gtest.h>
#include <stdlib.h>

#include <ctime>
#include <optional>
#include <set>
#include <vector>

#include "tasks/local_time_posix.h"
#include "tasks/trigger_schedule.h"

namespace vrn::tasks {

void PrintTo(const LocalTime& t, std::ostream* out) {
    *out << t.year << "-" << t.month << "-" << t.day << " " << t.hour << ":" << t.minute << ":" << t.second;
}

namespace {

// Central Europe: summer time from the last Sunday of March (02:00 becomes
// 03:00) to the last Sunday of October (03:00 becomes 02:00).
class Schedule : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* tz = getenv("TZ")) saved_ = tz;
        setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
        tzset();
    }
    void TearDown() override {
        if (saved_) {
            setenv("TZ", saved_->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    std::optional<std::string> saved_;
};

TASK_TRIGGER Make(int32_t type, uint16_t hour, uint16_t minute, LocalTime begin = {2024, 1, 1}) {
    TASK_TRIGGER t{};
    t.cbTriggerSize = sizeof t, t.TriggerType = type, t.wStartHour = hour, t.wStartMinute = minute;
    t.wBeginYear = static_cast<uint16_t>(begin.year), t.wBeginMonth = static_cast<uint16_t>(begin.month);
    return t.wBeginDay = static_cast<uint16_t>(begin.day), t;
}
TASK_TRIGGER Daily(uint16_t hour, uint16_t minute, LocalTime begin = {2024, 1, 1}) {
    TASK_TRIGGER t = Make(kTriggerDaily, hour, minute, begin);
    return t.Type.Daily.DaysInterval = 1, t;
}
TASK_TRIGGER Weekly(uint16_t days, uint16_t every = 1) {
    TASK_TRIGGER t = Make(kTriggerWeekly, 10, 30);
    return t.Type.Weekly = {every, days}, t;
}
TASK_TRIGGER MonthlyDate(uint32_t days) {
    TASK_TRIGGER t = Make(kTriggerMonthlyDate, 10, 30);
    return t.Type.MonthlyDate = {days, kAllMonths}, t;
}
TASK_TRIGGER MonthlyDow(uint16_t which, uint16_t days) {
    TASK_TRIGGER t = Make(kTriggerMonthlyDow, 10, 30);
    return t.Type.MonthlyDOW = {which, days, kAllMonths}, t;
}
TASK_TRIGGER EndingOn(TASK_TRIGGER t, uint16_t year, uint16_t month, uint16_t day) {
    return t.rgFlags |= kTriggerFlagHasEndDate, t.wEndYear = year, t.wEndMonth = month, t.wEndDay = day, t;
}
TASK_TRIGGER Repeating(TASK_TRIGGER t, uint32_t every, uint32_t forMinutes) {
    return t.MinutesInterval = every, t.MinutesDuration = forMinutes, t;
}

constexpr uint16_t kMon = 0x2, kWed = 0x8, kFri = 0x20;

TEST_F(Schedule, NextStartOfOneTrigger) {
    const TimeZone& zone = SystemTimeZone();
    const struct {
        const char* what;
        TASK_TRIGGER trigger;
        LocalTime from;
        std::optional<LocalTime> next;
    } cases[] = {
        {"weekly, later that day", Weekly(kMon | kWed), {2024, 1, 3, 9, 0}, LocalTime{2024, 1, 3, 10, 30}},
        {"weekly, at the very minute", Weekly(kMon | kWed), {2024, 1, 3, 10, 30}, LocalTime{2024, 1, 3, 10, 30}},
        {"weekly, into the next week", Weekly(kMon | kWed), {2024, 1, 3, 11, 0}, LocalTime{2024, 1, 8, 10, 30}},
        {"weekly, into the next year", Weekly(kWed), {2024, 12, 26, 0, 0}, LocalTime{2025, 1, 1, 10, 30}},
        {"every other week, weeks from Sunday", Weekly(kSunday, 2), {2024, 1, 2, 0, 0}, LocalTime{2024, 1, 14, 10, 30}},
        {"the 31st, from a 30-day month", MonthlyDate(1u << 30), {2024, 4, 1, 0, 0}, LocalTime{2024, 5, 31, 10, 30}},
        {"last Friday", MonthlyDow(kLastWeek, kFri), {2024, 5, 1, 0, 0}, LocalTime{2024, 5, 31, 10, 30}},
        {"not before the begin date", Daily(10, 30, {2024, 2, 1}), {2024, 1, 15, 0, 0}, LocalTime{2024, 2, 1, 10, 30}},
        {"on the end day", EndingOn(Daily(10, 30), 2024, 1, 10), {2024, 1, 10, 9, 0}, LocalTime{2024, 1, 10, 10, 30}},
        {"after the end day", EndingOn(Daily(10, 30), 2024, 1, 10), {2024, 1, 10, 11, 0}, std::nullopt},
        {"once, gone", Make(kTriggerOnce, 8, 0, {2024, 6, 1}), {2024, 6, 1, 8, 1}, std::nullopt},
        {"repeating, between", Repeating(Daily(10, 0), 15, 60), {2024, 1, 1, 10, 20}, LocalTime{2024, 1, 1, 10, 30}},
        {"repeating past midnight", Repeating(Daily(23, 0), 60, 180), {2024, 1, 2, 0, 30}, LocalTime{2024, 1, 2, 1, 0}},
        {"repeating, the duration's end is no start", Repeating(Daily(10, 0), 15, 60), {2024, 1, 1, 10, 46},
         LocalTime{2024, 1, 2, 10, 0}},
        {"repeating, none after the end day", Repeating(EndingOn(Daily(10, 0), 2024, 1, 1), 15, 60),
         {2024, 1, 1, 10, 46}, std::nullopt},
        {"a time the clocks skip", Daily(2, 30), {2024, 3, 30, 12, 0}, LocalTime{2024, 3, 31, 3, 30}},
        {"the day the clocks go forward", Daily(10, 0), {2024, 3, 30, 11, 0}, LocalTime{2024, 3, 31, 10, 0}},
    };
    for (const auto& c : cases) {
        const std::optional<int64_t> next = NextTriggerStart(c.trigger, zone.ToInstant(c.from), zone);
        ASSERT_EQ(next.has_value(), c.next.has_value()) << c.what;
        if (next) {
            EXPECT_EQ(zone.ToLocal(*next), *c.next) << c.what;
        }
    }
    // A time the clocks pass twice runs once.
    const int64_t first = *NextTriggerStart(Daily(2, 30), zone.ToInstant({2024, 10, 27, 0, 0}), zone);
    EXPECT_EQ(zone.ToLocal(*NextTriggerStart(Daily(2, 30), first + 1, zone)), (LocalTime{2024, 10, 28, 2, 30}));
}

TEST_F(Schedule, NextRunOfATaskAndWhyThereIsNone) {
    const TimeZone& zone = SystemTimeZone();
    TASK_TRIGGER off = Daily(1, 0);
    off.rgFlags = kTriggerFlagDisabled;
    const struct {
        std::vector<TASK_TRIGGER> triggers;
        NextRunKind kind;
        LocalTime at;
    } cases[] = {
        {{}, NextRunKind::kNoValidTriggers, {}},
        {{off}, NextRunKind::kNoValidTriggers, {}},
        {{Make(kTriggerAtSystemStart, 0, 0), off}, NextRunKind::kEventOnly, {}},
        {{Make(kTriggerOnIdle, 0, 0)}, NextRunKind::kEventOnly, {}},
        {{Make(kTriggerAtLogon, 0, 0)}, NextRunKind::kEventOnly, {}},
        {{Make(kTriggerAtLogon, 0, 0), Daily(12, 0)}, NextRunKind::kTime, {2024, 1, 3, 12, 0}},
        {{EndingOn(Daily(1, 0), 2024, 1, 2), Make(kTriggerOnIdle, 0, 0)}, NextRunKind::kNoMoreRuns, {}},
        {{Weekly(kFri), off, Daily(12, 0)}, NextRunKind::kTime, {2024, 1, 3, 12, 0}},  // the earliest
    };
    for (const auto& c : cases) {
        const NextRun next = NextTaskRun(c.triggers, zone.ToInstant({2024, 1, 3, 0, 0}), zone);
        EXPECT_EQ(next.kind, c.kind) << &c - cases;
        if (c.kind == NextRunKind::kTime) {
            EXPECT_EQ(zone.ToLocal(next.instant), c.at);
        }
    }
}

TASK_TRIGGER Killing(TASK_TRIGGER t, uint32_t forMinutes, uint32_t every = 0) {
    return t.rgFlags |= kTriggerFlagKillAtDurationEnd, t.MinutesDuration = forMinutes, t.MinutesInterval = every, t;
}

TEST_F(Schedule, ARunStopsAtTheEndOfTheDurationItStartedIn) {
    const TimeZone& zone = SystemTimeZone();
    const struct {
        std::vector<TASK_TRIGGER> triggers;
        LocalTime at;
        std::optional<LocalTime> kill;
    } cases[] = {
        {{Killing(Daily(10, 0), 60)}, {2024, 1, 1, 10, 0}, LocalTime{2024, 1, 1, 11, 0}},
        {{Killing(Daily(10, 0), 60)}, {2024, 1, 1, 11, 0}, std::nullopt},  // the end holds no more
        {{Killing(Daily(10, 0), 60)}, {2024, 1, 1, 9, 59}, std::nullopt},
        {{Killing(Daily(10, 0), 60, 15)}, {2024, 1, 1, 10, 50}, LocalTime{2024, 1, 1, 11, 0}},
        {{Killing(Daily(23, 0), 180)}, {2024, 1, 2, 1, 0}, LocalTime{2024, 1, 2, 2, 0}},
        {{Repeating(Daily(10, 0), 15, 60)}, {2024, 1, 1, 10, 20}, std::nullopt},  // no kill flag
        {{Killing(Daily(10, 0), 60), Killing(Daily(10, 10), 20)}, {2024, 1, 1, 10, 20}, LocalTime{2024, 1, 1, 10, 30}},
    };
    for (const auto& c : cases) {
        const std::optional<int64_t> kill = KillTime(c.triggers, zone.ToInstant(c.at), zone);
        EXPECT_EQ(kill ? std::optional(zone.ToLocal(*kill)) : std::nullopt, c.kill) << &c - cases;
    }
}

// Asked again from any moment before it, a delayed start names the same time,
// whole minutes within the spread; starts and tasks draw apart.
TEST_F(Schedule, ARandomDelayIsDrawnOncePerStart) {
    const TimeZone& zone = SystemTimeZone();
    TASK_TRIGGER t = Repeating(Daily(10, 0), 60, 600);
    t.wRandomMinutesInterval = 30;
    std::set<int64_t> delays;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        int64_t next = zone.ToInstant({2024, 1, 1, 9, 0});
        for (int hour = 10; hour < 13; ++hour) {
            next = NextTriggerStart(t, next + 1, zone, seed).value_or(0);
            const int64_t delay = next - zone.ToInstant({2024, 1, 1, hour, 0});
            ASSERT_TRUE(delay >= 0 && delay <= 30 * 60 && delay % 60 == 0 &&
                        NextTriggerStart(t, next - 59, zone, seed) == next) << delay;
            delays.insert(delay);
        }
    }
    EXPECT_GT(delays.size(), 5u);
}

}  // namespace
}  // namespace vrn::tasks
