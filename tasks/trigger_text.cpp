#include "tasks/trigger_text.h"

#include <string>

namespace vrn::tasks {
namespace {

constexpr const char* kDayNames[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
constexpr const char* kMonthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char* kWeekNames[5] = {"first", "second", "third", "fourth", "last"};

std::string Number(uint32_t n) { return std::to_string(n); }

std::string Date(uint16_t year, uint16_t month, uint16_t day) {
    return Number(month) + "/" + Number(day) + "/" + Number(year);
}

std::string Plural(uint32_t n, const char* one) { return Number(n) + " " + one + (n == 1 ? "" : "s"); }

// Names of the set bits, comma separated; `none` when there is none.
std::string List(uint32_t mask, const char* const* names, int count, const char* none) {
    std::string out;
    for (int i = 0; i < count; ++i) {
        if (((mask >> i) & 1u) == 0) continue;
        if (!out.empty()) out += ", ";
        out += names != nullptr ? std::string(names[i]) : Number(static_cast<uint32_t>(i + 1));
    }
    return out.empty() ? none : out;
}

std::string Months(uint16_t mask) {
    return (mask & kAllMonths) == kAllMonths ? "every month" : List(mask, kMonthNames, 12, "no month");
}

// The part between the start time and the term.
std::string Pattern(const TASK_TRIGGER& t) {
    switch (t.TriggerType) {
        case kTriggerDaily:
            return t.Type.Daily.DaysInterval > 1 ? "every " + Plural(t.Type.Daily.DaysInterval, "day") : "every day";
        case kTriggerWeekly: {
            const uint16_t days = t.Type.Weekly.rgfDaysOfTheWeek & kAllDays;
            const std::string weeks =
                t.Type.Weekly.WeeksInterval > 1 ? "every " + Plural(t.Type.Weekly.WeeksInterval, "week") : "every week";
            return (days == 0 ? "on no day" : "every " + List(days, kDayNames, 7, "")) + " of " + weeks;
        }
        case kTriggerMonthlyDate:
            return "on day " + List(t.Type.MonthlyDate.rgfDays, nullptr, 31, "none") + " of " +
                   Months(t.Type.MonthlyDate.rgfMonths);
        case kTriggerMonthlyDow: {
            const uint16_t which = t.Type.MonthlyDOW.wWhichWeek;
            const std::string week = which >= kFirstWeek && which <= kLastWeek ? kWeekNames[which - 1] : "unknown";
            return "on the " + week + " " + List(t.Type.MonthlyDOW.rgfDaysOfTheWeek, kDayNames, 7, "no day") + " of " +
                   Months(t.Type.MonthlyDOW.rgfMonths);
        }
        default:
            return "";
    }
}

std::string Text(const TASK_TRIGGER& t) {
    switch (t.TriggerType) {
        case kTriggerOnIdle:
            return "When the computer is idle";
        case kTriggerAtSystemStart:
            return "At system startup";
        case kTriggerAtLogon:
            return "At logon";
        case kTriggerOnce:
        case kTriggerDaily:
        case kTriggerWeekly:
        case kTriggerMonthlyDate:
        case kTriggerMonthlyDow:
            break;
        default:
            return "Unknown trigger type " + std::to_string(t.TriggerType);
    }
    std::string out = "At " + Number(t.wStartHour) + ":" + (t.wStartMinute < 10 ? "0" : "") + Number(t.wStartMinute);
    if (t.TriggerType == kTriggerOnce) {
        out += " on " + Date(t.wBeginYear, t.wBeginMonth, t.wBeginDay);
    } else {
        out += " " + Pattern(t) + ", starting " + Date(t.wBeginYear, t.wBeginMonth, t.wBeginDay);
        if ((t.rgFlags & kTriggerFlagHasEndDate) != 0) out += ", ending " + Date(t.wEndYear, t.wEndMonth, t.wEndDay);
    }
    if (t.MinutesInterval > 0 && t.MinutesDuration > t.MinutesInterval) {
        out += ", repeating every " + Plural(t.MinutesInterval, "minute") + " for " +
               Plural(t.MinutesDuration, "minute");
    }
    return out;
}

}  // namespace

std::u16string TriggerText(const TASK_TRIGGER& trigger) {
    std::string text = Text(trigger);
    if ((trigger.rgFlags & kTriggerFlagDisabled) != 0) text += " (disabled)";
    return std::u16string(text.begin(), text.end());  // ASCII only
}

}  // namespace vrn::tasks
