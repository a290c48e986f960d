// The triggers of one task: vrn_Wts_TriggerCreate, vrn_Wts_TriggerUpdate,
// vrn_Wts_TriggerDelete and vrn_Wts_TriggerEnum, each a short body over
// shared steps.
#include <cstdint>
#include <initializer_list>
#include <memory>

#include "frame/convert.h"
#include "frame/procedure.h"
#include "tasks/connection.h"
#include "tasks/params.h"
#include "tasks/row_set.h"
#include "tasks/scheduler.h"
#include "tasks/task_info.h"

namespace vrn::tasks {

namespace {

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

// What one row shows of one trigger.
struct TriggerRow {
    uint16_t index;
    NarrowText text;
    TASK_TRIGGER record;
    TypeColumns byType;
};

// A date of the record; one with year, month and day all 0 is NULL.
ColumnValue DateValue(uint16_t year, uint16_t month, uint16_t day, SqlDateTime* made) {
    int32_t isNull = 0;
    DateToSqlDateTime(year, month, day, made, &isNull);
    return {made, isNull ? 0 : static_cast<int>(sizeof *made)};
}

ColumnValue StartDateValue(const TriggerRow& row, SqlDateTime* made) {
    return DateValue(row.record.wBeginYear, row.record.wBeginMonth, row.record.wBeginDay, made);
}

ColumnValue EndDateValue(const TriggerRow& row, SqlDateTime* made) {
    return DateValue(row.record.wEndYear, row.record.wEndMonth, row.record.wEndDay, made);
}

template <auto member>
ColumnValue RecordValue(const TriggerRow& row, SqlDateTime*) {
    return {&(row.record.*member)};
}

template <auto member>
ColumnValue ByTypeValue(const TriggerRow& row, SqlDateTime*) {
    return {&(row.byType.*member)};
}

struct TriggerColumn {
    ColumnShape shape;
    ColumnReader<TriggerRow> value;
};

constexpr TriggerColumn kTriggerColumns[] = {
    {{"StartDate", SRVDATETIMN, 8, SRVDATETIMN, 8}, StartDateValue},
    {{"EndDate", SRVDATETIMN, 8, SRVDATETIMN, 8}, EndDateValue},
    {{"TriggerIndex", SRVINT4, 0, SRVINT2, 0}, IntegerValue<&TriggerRow::index>},
    {{"TriggerString", SRVBIGVARCHAR, 256, SRVCHAR, 0}, TextValue<&TriggerRow::text>},
    {{"wStartHour", SRVINT4, 0, SRVINT2, 0}, RecordValue<&TASK_TRIGGER::wStartHour>},
    {{"wStartMinute", SRVINT4, 0, SRVINT2, 0}, RecordValue<&TASK_TRIGGER::wStartMinute>},
    {{"MinutesDuration", SRVINT4, 0, SRVINT4, 0}, RecordValue<&TASK_TRIGGER::MinutesDuration>},
    {{"MinutesInterval", SRVINT4, 0, SRVINT4, 0}, RecordValue<&TASK_TRIGGER::MinutesInterval>},
    {{"rgFlags", SRVINT4, 0, SRVINT4, 0}, RecordValue<&TASK_TRIGGER::rgFlags>},
    {{"TriggerType", SRVINT4, 0, SRVINT4, 0}, RecordValue<&TASK_TRIGGER::TriggerType>},
    {{"DaysInterval", SRVINT4, 0, SRVINT2, 0}, ByTypeValue<&TypeColumns::daysInterval>},
    {{"WeeksInterval", SRVINT4, 0, SRVINT2, 0}, ByTypeValue<&TypeColumns::weeksInterval>},
    {{"rgfDaysOfTheWeek", SRVINT4, 0, SRVINT2, 0}, ByTypeValue<&TypeColumns::daysOfTheWeek>},
    {{"rgfDays", SRVINT4, 0, SRVINT4, 0}, ByTypeValue<&TypeColumns::days>},
    {{"rgfMonths", SRVINT4, 0, SRVINT2, 0}, ByTypeValue<&TypeColumns::months>},
    {{"wWhichWeek", SRVINT4, 0, SRVINT2, 0}, ByTypeValue<&TypeColumns::whichWeek>},
};

// The trigger at row.index into the row: its record, then its text.
int32_t ReadTriggerRow(Task& task, SchedulerSource& source, TriggerRow* row) {
    {
        std::unique_ptr<Trigger> trigger;
        int32_t result = task.GetTrigger(row->index, &trigger);
        if (Failed(result)) return result;
        result = trigger->GetTrigger(&row->record);
        if (Failed(result)) return result;
        row->byType = ColumnsByType(row->record);
    }
    SchedulerMemory<char16_t> wide(source);
    const int32_t result = task.GetTriggerString(row->index, wide.Out());
    if (!Failed(result)) row->text = NarrowCopy(wide.Get());
    return result;
}

// Describes the 16 columns and sends one row per trigger, then the counted
// completion. A failure ends it, and the rows sent stand.
int32_t SendTriggerRows(SRV_PROC* srvproc, Task& task, SchedulerSource& source) {
    DescribeRow(srvproc, kTriggerColumns);
    uint16_t count = 0;
    int32_t result = task.GetTriggerCount(&count);
    if (Failed(result)) return result;
    // One record for all rows: a trigger that fills less keeps the rest of the one before.
    TriggerRow row{};
    for (row.index = 0; row.index < count; ++row.index) {
        row.text.reset();
        result = ReadTriggerRow(task, source, &row);
        if (Failed(result)) return result;
        SendRow<kTriggerColumns>(srvproc, row, LengthsGo::kAfterTheValues);
    }
    CompleteCounted(srvproc, count);
    return result;
}

// ---- One change to the triggers of the named task ---------------------------------

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

// Opens the named task, makes the change and saves the task.
template <class Change>
int32_t ApplyTriggerOperation(const char16_t* name, Change change) {
    SchedulerConnection connection;
    std::unique_ptr<Task> task;
    int32_t result = connection.OpenTask(name, &task);
    if (Failed(result)) return result;
    std::unique_ptr<PersistFile> persist;
    result = task->QueryPersistFile(&persist);
    if (Failed(result)) return result;
    result = change(*task);
    if (Failed(result)) return result;
    return persist->Save(nullptr, true);
}

int32_t SetTriggerAt(Task& task, uint16_t index, const TASK_TRIGGER& trigger) {
    std::unique_ptr<Trigger> target;
    const int32_t result = task.GetTrigger(index, &target);
    return Failed(result) ? result : target->SetTrigger(trigger);
}

int32_t AddTrigger(Task& task, const TASK_TRIGGER& trigger, uint16_t* index) {
    std::unique_ptr<Trigger> target;
    const int32_t result = task.CreateTrigger(index, &target);
    return Failed(result) ? result : target->SetTrigger(trigger);
}

// ---- The parameters ----------------------------------------------------------------

constexpr ParamRule kTriggerTaskName{.typeTest = IsWideTextType, .direction = kIn, .notNull = true};
constexpr ParamRule kNewIndex{.typeTest = IsTaskIntegerType, .direction = kOut};
constexpr ParamRule kInteger{.typeTest = IsTaskIntegerType, .direction = kIn, .notNull = true};
constexpr int kIndexParam = 1;  // 0-based, as the hour, minute and mask behind it
constexpr int kHourParam = 2;

// Hour, minute and mask, each read and tested in turn; false at the first out
// of range. Unsigned: a negative value is out of range too.
bool ReadWeeklyTrigger(SRV_PROC* srvproc, ParamTable table, TASK_TRIGGER* trigger) {
    const uint32_t hour = ReadParamInteger(srvproc, table, kHourParam);
    if (hour > kLastHour) return false;
    const uint32_t minute = ReadParamInteger(srvproc, table, kHourParam + 1);
    if (minute > kLastMinute) return false;
    const uint32_t mask = ReadParamInteger(srvproc, table, kHourParam + 2);
    if (mask > kOneDayMask) return false;
    *trigger = WeeklyTrigger(static_cast<uint16_t>(hour), static_cast<uint16_t>(minute), mask);
    return true;
}

// ---- The four ------------------------------------------------------------------------

// What one of the four does once its call is judged and the task's name read.
using TriggerBody = int32_t (*)(SRV_PROC* srvproc, ParamTable table, const char16_t* name);

// The frame of the four: the call judged, the name read, the body done, the
// call completed after the name is freed. A wrong count or an unreadable
// parameter gets no completion. 0x80070057 from anywhere gets the message,
// behind the completion.
int32_t RunTriggerProcedure(SRV_PROC* srvproc, std::initializer_list<ParamRule> rules, TriggerBody body) {
    const int32_t result = [&] {
        ParamInfo table[5]{};
        const CallVerdict verdict = JudgeParams(srvproc, rules, table);
        if (verdict == CallVerdict::kUnreadable) return kInvalidArg;
        ScopedCompletion completion(srvproc);
        if (verdict == CallVerdict::kRefused) return kInvalidArg;
        const WideText name = ReadParamText(srvproc, table, 0, false);
        return body(srvproc, table, name.get());
    }();
    if (result == kInvalidArg) SendInvalidParameter(srvproc);
    return result;
}

// The new trigger's index goes to the OUTPUT parameter, whatever it held, once saved.
int32_t CreateWeeklyTrigger(SRV_PROC* srvproc, ParamTable table, const char16_t* name) {
    TASK_TRIGGER trigger{};
    if (!ReadWeeklyTrigger(srvproc, table, &trigger)) return kInvalidArg;
    uint16_t index = 0;
    const int32_t result = ApplyTriggerOperation(name, [&](Task& task) { return AddTrigger(task, trigger, &index); });
    if (!Failed(result)) SetOutputInteger(srvproc, kIndexParam + 1, index);
    return result;
}

int32_t UpdateWeeklyTrigger(SRV_PROC* srvproc, ParamTable table, const char16_t* name) {
    const uint32_t index = ReadParamInteger(srvproc, table, kIndexParam);
    if (index == kAllTriggers) return kInvalidArg;
    TASK_TRIGGER trigger{};
    if (!ReadWeeklyTrigger(srvproc, table, &trigger)) return kInvalidArg;
    return ApplyTriggerOperation(name, [&](Task& task) {
        return SetTriggerAt(task, static_cast<uint16_t>(index), trigger);
    });
}

int32_t DeleteTriggers(SRV_PROC* srvproc, ParamTable table, const char16_t* name) {
    const uint32_t index = ReadParamInteger(srvproc, table, kIndexParam);
    return ApplyTriggerOperation(name, [&](Task& task) {
        return index == kAllTriggers ? DeleteAllTriggers(task) : task.DeleteTrigger(static_cast<uint16_t>(index));
    });
}

int32_t ListTriggers(SRV_PROC* srvproc, ParamTable, const char16_t* name) {
    SchedulerConnection connection;
    std::unique_ptr<Task> task;
    const int32_t result = connection.OpenTask(name, &task);
    return Failed(result) ? result : SendTriggerRows(srvproc, *task, connection.source());
}

int32_t TriggerCreateCall(SRV_PROC* srvproc) {
    return RunTriggerProcedure(srvproc, {kTriggerTaskName, kNewIndex, kInteger, kInteger, kInteger},
                               CreateWeeklyTrigger);
}

int32_t TriggerUpdateCall(SRV_PROC* srvproc) {
    return RunTriggerProcedure(srvproc, {kTriggerTaskName, kInteger, kInteger, kInteger, kInteger},
                               UpdateWeeklyTrigger);
}

int32_t TriggerDeleteCall(SRV_PROC* srvproc) {
    return RunTriggerProcedure(srvproc, {kTriggerTaskName, kInteger}, DeleteTriggers);
}

int32_t TriggerEnumCall(SRV_PROC* srvproc) { return RunTriggerProcedure(srvproc, {kTriggerTaskName}, ListTriggers); }

}  // namespace

}  // namespace vrn::tasks

// Task name, new index OUTPUT, hour, minute, weekday mask (0 to 127; 128: every
// day of 1 January 2007 alone). A weekly trigger; the scheduler's HRESULT.
VRN_EXPORT int32_t vrn_Wts_TriggerCreate(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerCreateCall(srvproc); });
}

// Task name, index, hour, minute, weekday mask: the trigger at index replaced.
VRN_EXPORT int32_t vrn_Wts_TriggerUpdate(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerUpdateCall(srvproc); });
}

// Task name, index (-1: all triggers).
VRN_EXPORT int32_t vrn_Wts_TriggerDelete(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerDeleteCall(srvproc); });
}

// Task name. One row of 16 columns per trigger, counted, then the final done.
VRN_EXPORT int32_t vrn_Wts_TriggerEnum(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TriggerEnumCall(srvproc); });
}
