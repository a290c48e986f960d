// The triggers of one task: vrn_Wts_TriggerCreate, vrn_Wts_TriggerUpdate,
// vrn_Wts_TriggerDelete and vrn_Wts_TriggerEnum, one body with a mode.
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>

#include "frame/convert.h"
#include "frame/procedure.h"
#include "tasks/connection.h"
#include "tasks/params.h"
#include "tasks/scheduler.h"
#include "tasks/task_info.h"

namespace vrn::tasks {

namespace {

enum TriggerMode : int { kTriggerCreate = 0, kTriggerUpdate = 1, kTriggerDelete = 2, kTriggerEnum = 3 };

constexpr uint32_t kAllTriggers = 0xFFFFFFFFu;  // -1 as the index
constexpr uint32_t kLastHour = 23;
constexpr uint32_t kLastMinute = 59;
constexpr uint32_t kOneDayMask = 128;  // every day, for 1 January 2007 alone
constexpr uint16_t kBeginYear = 2007, kBeginMonth = 1, kBeginDay = 1;

// The one kind of trigger the procedures write: weekly at a fixed time. An
// update writes all of it again, begin date included.
TASK_TRIGGER WeeklyTrigger(uint16_t hour, uint16_t minute, uint32_t mask) {
    TASK_TRIGGER t{};
    t.cbTriggerSize = sizeof(TASK_TRIGGER);
    t.wBeginYear = kBeginYear;
    t.wBeginMonth = kBeginMonth;
    t.wBeginDay = kBeginDay;
    t.wStartHour = hour;
    t.wStartMinute = minute;
    t.TriggerType = kTriggerWeekly;
    t.Type.Weekly.WeeksInterval = 1;
    t.Type.Weekly.rgfDaysOfTheWeek = static_cast<uint16_t>(mask);
    if (mask == kOneDayMask) {
        t.Type.Weekly.rgfDaysOfTheWeek = kAllDays;
        t.wEndYear = kBeginYear;
        t.wEndMonth = kBeginMonth;
        t.wEndDay = kBeginDay;
        t.rgFlags = kTriggerFlagHasEndDate;
    }
    return t;
}

// ---- vrn_Wts_TriggerEnum's rows -------------------------------------------------

constexpr ColumnShape kTriggerColumns[] = {
    {"StartDate", SRVDATETIMN, 8, SRVDATETIMN, 8},
    {"EndDate", SRVDATETIMN, 8, SRVDATETIMN, 8},
    {"TriggerIndex", SRVINT4, 0, SRVINT2, 0},
    {"TriggerString", SRVBIGVARCHAR, 256, SRVCHAR, 0},
    {"wStartHour", SRVINT4, 0, SRVINT2, 0},
    {"wStartMinute", SRVINT4, 0, SRVINT2, 0},
    {"MinutesDuration", SRVINT4, 0, SRVINT4, 0},
    {"MinutesInterval", SRVINT4, 0, SRVINT4, 0},
    {"rgFlags", SRVINT4, 0, SRVINT4, 0},
    {"TriggerType", SRVINT4, 0, SRVINT4, 0},
    {"DaysInterval", SRVINT4, 0, SRVINT2, 0},
    {"WeeksInterval", SRVINT4, 0, SRVINT2, 0},
    {"rgfDaysOfTheWeek", SRVINT4, 0, SRVINT2, 0},
    {"rgfDays", SRVINT4, 0, SRVINT4, 0},
    {"rgfMonths", SRVINT4, 0, SRVINT2, 0},
    {"wWhichWeek", SRVINT4, 0, SRVINT2, 0},
};

// Columns 11 to 16, read from the record's union by its type; 0 where the type has nothing.
struct TypeColumns {
    uint16_t daysInterval;
    uint16_t weeksInterval;
    uint16_t daysOfTheWeek;
    uint32_t days;
    uint16_t months;
    uint16_t whichWeek;
};

TypeColumns ColumnsByType(const TASK_TRIGGER& t) {
    TypeColumns c{};
    switch (t.TriggerType) {
    case kTriggerDaily: c.daysInterval = t.Type.Daily.DaysInterval; break;
    case kTriggerWeekly:
        c.weeksInterval = t.Type.Weekly.WeeksInterval;
        c.daysOfTheWeek = t.Type.Weekly.rgfDaysOfTheWeek;
        break;
    case kTriggerMonthlyDate:
        c.days = t.Type.MonthlyDate.rgfDays;
        c.months = t.Type.MonthlyDate.rgfMonths;
        break;
    case kTriggerMonthlyDow:
        c.whichWeek = t.Type.MonthlyDOW.wWhichWeek;
        c.daysOfTheWeek = t.Type.MonthlyDOW.rgfDaysOfTheWeek;
        c.months = t.Type.MonthlyDOW.rgfMonths;
        break;
    default: break;
    }
    return c;
}

// Describes the 16 columns and sends one row per trigger, then the counted
// completion. A failure ends it, and the rows sent stand.
int32_t SendTriggerRows(SRV_PROC* srvproc, Task& task, SchedulerSource& source) {
    DescribeColumns(srvproc, kTriggerColumns);
    uint16_t count = 0;
    int32_t result = task.GetTriggerCount(&count);
    if (Failed(result)) return result;
    TASK_TRIGGER record{};
    for (uint16_t index = 0; index < count; ++index) {
        TypeColumns byType{};
        {
            std::unique_ptr<Trigger> trigger;
            result = task.GetTrigger(index, &trigger);
            if (Failed(result)) return result;
            result = trigger->GetTrigger(&record);
            if (Failed(result)) return result;
            byType = ColumnsByType(record);
        }
        NarrowText text;
        {
            SchedulerMemory<char16_t> wide(source);
            result = task.GetTriggerString(index, wide.Out());
            if (Failed(result)) return result;
            text = NarrowCopy(wide.Get());
        }
        SqlDateTime begin{}, end{};
        int32_t beginNull = 0, endNull = 0;
        DateToSqlDateTime(record.wBeginYear, record.wBeginMonth, record.wBeginDay, &begin, &beginNull);
        DateToSqlDateTime(record.wEndYear, record.wEndMonth, record.wEndDay, &end, &endNull);

        void* const values[] = {&begin, &end, &index, text.get(), &record.wStartHour, &record.wStartMinute,
                                &record.MinutesDuration, &record.MinutesInterval, &record.rgFlags,
                                &record.TriggerType, &byType.daysInterval, &byType.weeksInterval,
                                &byType.daysOfTheWeek, &byType.days, &byType.months, &byType.whichWeek};
        for (int column = 1; column <= static_cast<int>(std::size(values)); ++column) {
            (void)srv_setcoldata(srvproc, column, values[column - 1]);
        }
        (void)srv_setcollen(srvproc, 1, beginNull ? 0 : sizeof begin);
        (void)srv_setcollen(srvproc, 2, endNull ? 0 : sizeof end);
        (void)srv_setcollen(srvproc, 4, text ? static_cast<int>(std::strlen(text.get())) : 0);
        (void)srv_sendrow(srvproc);
    }
    CompleteCounted(srvproc, count);
    return result;
}

// ---- One operation on the triggers of the named task ----------------------------------

// Deletes at index 0 until none is left. A count that can't be read ends the
// loop without failing it; a count that never falls can't hold the call.
int32_t DeleteAllTriggers(Task& task) {
    for (uint32_t round = 0; round <= UINT16_MAX; ++round) {
        uint16_t count = 0;
        if (Failed(task.GetTriggerCount(&count)) || count == 0) break;
        const int32_t deleted = task.DeleteTrigger(0);
        if (Failed(deleted)) return deleted;
    }
    return kOk;
}

int32_t ChangeTriggers(Task& task, uint32_t* index, const TASK_TRIGGER& trigger, int mode) {
    if (mode == kTriggerDelete) {
        return *index == kAllTriggers ? DeleteAllTriggers(task) : task.DeleteTrigger(static_cast<uint16_t>(*index));
    }
    std::unique_ptr<Trigger> target;
    int32_t result;
    if (mode == kTriggerCreate) {
        uint16_t created = 0;
        result = task.CreateTrigger(&created, &target);
        if (Failed(result)) return result;
        *index = (*index & 0xFFFF0000u) | created;
    } else {
        result = task.GetTrigger(static_cast<uint16_t>(*index), &target);
        if (Failed(result)) return result;
    }
    return target->SetTrigger(trigger);
}

int32_t ApplyTriggerOperation(SRV_PROC* srvproc, const char16_t* name, uint32_t* index, const TASK_TRIGGER* trigger,
                              int mode) {
    SchedulerConnection connection;
    std::unique_ptr<Task> task;
    int32_t result = connection.OpenTask(name, &task);
    if (Failed(result)) return result;
    if (mode == kTriggerEnum) return SendTriggerRows(srvproc, *task, connection.source());
    std::unique_ptr<PersistFile> persist;
    result = task->QueryPersistFile(&persist);
    if (Failed(result)) return result;
    result = ChangeTriggers(*task, index, *trigger, mode);
    if (Failed(result)) return result;
    return persist->Save(nullptr, true);
}

constexpr ParamRule kTriggerTaskName{.typeTest = IsWideTextType, .direction = kIn, .notNull = true};
constexpr ParamRule kNewIndex{.typeTest = IsTaskIntegerType, .direction = kOut};
constexpr ParamRule kInteger{.typeTest = IsTaskIntegerType, .direction = kIn, .notNull = true};

struct ModeParams {
    ParamRule rules[5];
    size_t count;
};

constexpr ModeParams kModeParams[] = {
    {{kTriggerTaskName, kNewIndex, kInteger, kInteger, kInteger}, 5},
    {{kTriggerTaskName, kInteger, kInteger, kInteger, kInteger}, 5},
    {{kTriggerTaskName, kInteger}, 2},
    {{kTriggerTaskName}, 1},
};

// The body of the four. 0x80070057 from anywhere gets the message from the
// export; a count or read failure comes back before any completion.
int32_t RunTriggerProcedure(SRV_PROC* srvproc, int mode) {
    uint32_t index = 0;
    ParamInfo table[5]{};
    const ModeParams& params = kModeParams[mode];
    const CallVerdict verdict = JudgeParams(srvproc, params.rules, params.count, table);
    if (verdict == CallVerdict::kUnreadable) return kInvalidArg;
    ScopedCompletion completion(srvproc);
    if (verdict == CallVerdict::kRefused) return kInvalidArg;

    const WideText name = ReadParamText(srvproc, table, 0, false);
    if (mode == kTriggerUpdate || mode == kTriggerDelete) {
        index = ReadParamInteger(srvproc, table, 1);
        if (mode == kTriggerUpdate && index == kAllTriggers) return kInvalidArg;
    }
    TASK_TRIGGER trigger{};
    if (mode == kTriggerCreate || mode == kTriggerUpdate) {
        // Unsigned: a negative value is out of range too.
        const uint32_t hour = ReadParamInteger(srvproc, table, 2);
        if (hour > kLastHour) return kInvalidArg;
        const uint32_t minute = ReadParamInteger(srvproc, table, 3);
        if (minute > kLastMinute) return kInvalidArg;
        const uint32_t mask = ReadParamInteger(srvproc, table, 4);
        if (mask > kOneDayMask) return kInvalidArg;
        trigger = WeeklyTrigger(static_cast<uint16_t>(hour), static_cast<uint16_t>(minute), mask);
    }
    const int32_t result = ApplyTriggerOperation(srvproc, name.get(), &index, &trigger, mode);
    if (!Failed(result) && mode == kTriggerCreate) SetOutputInteger(srvproc, 2, static_cast<int32_t>(index));
    return result;
}

int32_t TriggerCall(SRV_PROC* srvproc, int mode) {
    const int32_t result = RunTriggerProcedure(srvproc, mode);
    if (result == kInvalidArg) SendInvalidParameter(srvproc);
    return result;
}

}  // namespace

}  // namespace vrn::tasks

// Task name, new index OUTPUT, hour, minute, weekday mask (0 to 127; 128: every
// day of 1 January 2007 alone). A weekly trigger; the scheduler's HRESULT.
VRN_EXPORT int32_t vrn_Wts_TriggerCreate(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerCall(srvproc, vrn::tasks::kTriggerCreate); });
}

// Task name, index, hour, minute, weekday mask: the trigger at index replaced.
VRN_EXPORT int32_t vrn_Wts_TriggerUpdate(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerCall(srvproc, vrn::tasks::kTriggerUpdate); });
}

// Task name, index (-1: all triggers).
VRN_EXPORT int32_t vrn_Wts_TriggerDelete(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerCall(srvproc, vrn::tasks::kTriggerDelete); });
}

// Task name. One row of 16 columns per trigger, counted, then the final done.
VRN_EXPORT int32_t vrn_Wts_TriggerEnum(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerCall(srvproc, vrn::tasks::kTriggerEnum); });
}
