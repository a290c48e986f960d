#include <gtest/gtest.h>

#include "tasks/trigger_text.h"

namespace vrn::tasks {
namespace {

TASK_TRIGGER Make(int32_t type, uint32_t flags = 0) {
    TASK_TRIGGER t{};
    t.cbTriggerSize = sizeof t;
    t.wBeginYear = 2007, t.wBeginMonth = 1, t.wBeginDay = 1;
    t.wEndYear = 2008, t.wEndMonth = 12, t.wEndDay = 31;
    t.wStartHour = 10, t.wStartMinute = 30;
    t.TriggerType = type;
    t.rgFlags = flags;
    return t;
}

// The weekly texts the procedures write, and the daily one wine adds, show in
// the triggers script.
TEST(TriggerText, ReadsAsTheSystemWritesIt) {
    const auto with = [](TASK_TRIGGER t, auto change) {
        change(t);
        return t;
    };
    const struct {
        TASK_TRIGGER trigger;
        const char* text;
    } cases[] = {
        {with(Make(kTriggerWeekly, kTriggerFlagHasEndDate), [](TASK_TRIGGER& t) { t.Type.Weekly = {2, 0x7F}; }),
         "At 10:30 every Sun, Mon, Tue, Wed, Thu, Fri, Sat of every 2 weeks, starting 1/1/2007, ending 12/31/2008"},
        {Make(kTriggerOnce, kTriggerFlagHasEndDate), "At 10:30 on 1/1/2007"},
        {with(Make(kTriggerDaily), [](TASK_TRIGGER& t) { t.Type.Daily.DaysInterval = 3; t.MinutesInterval = 1; t.MinutesDuration = 90; }),
         "At 10:30 every 3 days, starting 1/1/2007, repeating every 1 minute for 90 minutes"},
        {with(Make(kTriggerMonthlyDate), [](TASK_TRIGGER& t) { t.Type.MonthlyDate = {1u | 1u << 14 | 1u << 30, 0xFFF}; }),
         "At 10:30 on day 1, 15, 31 of every month, starting 1/1/2007"},
        {with(Make(kTriggerMonthlyDow, kTriggerFlagDisabled), [](TASK_TRIGGER& t) { t.Type.MonthlyDOW = {1, 0x3, 0x40}; }),
         "At 10:30 on the first Sun, Mon of Jul, starting 1/1/2007 (disabled)"},
        {Make(kTriggerOnIdle), "When the computer is idle"},
        {Make(kTriggerAtLogon), "At logon"},
        {Make(9), "Unknown trigger type 9"},
    };
    for (const auto& c : cases) {
        const std::u16string text = TriggerText(c.trigger);
        EXPECT_EQ(std::string(text.begin(), text.end()), c.text);  // ASCII
    }
}

}  // namespace
}  // namespace vrn::tasks
