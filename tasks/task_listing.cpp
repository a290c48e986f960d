// Task listing and information: vrn_Wts_TaskEnum and vrn_Wts_TaskInfo, one
// row of 20 columns per task.
#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "frame/convert.h"
#include "frame/procedure.h"
#include "tasks/connection.h"
#include "tasks/params.h"
#include "tasks/row_set.h"
#include "tasks/scheduler.h"
#include "tasks/task_info.h"

namespace vrn::tasks {

namespace {

// ---- Reading one task -----------------------------------------------------------

// What one read of the scheduler works on. The wide text of the parameters
// outlives the reads, for the parsing that follows them.
struct TaskReading {
    Task& task;
    SchedulerSource& source;
    TaskInfo& info;
    SchedulerMemory<char16_t>& parameters;
};

using TaskRead = int32_t (*)(TaskReading& reading);

template <auto get, auto member>
int32_t ReadText(TaskReading& r) {
    SchedulerMemory<char16_t> wide(r.source);
    const int32_t result = (r.task.*get)(wide.Out());
    if (!Failed(result)) r.info.*member = NarrowCopy(wide.Get());
    return result;
}

int32_t ReadParameters(TaskReading& r) {
    const int32_t result = r.task.GetParameters(r.parameters.Out());
    if (!Failed(result)) r.info.Parameters = NarrowCopy(r.parameters.Get());
    return result;
}

// An integer or a time, written by the scheduler into the record.
template <auto get, auto member>
int32_t ReadValue(TaskReading& r) {
    return (r.task.*get)(&(r.info.*member));
}

int32_t ReadWorkItemData(TaskReading& r) {
    SchedulerMemory<uint8_t> data(r.source);
    uint16_t count = 0;
    const int32_t result = r.task.GetWorkItemData(&count, data.Out());
    if (Failed(result) || count == 0 || data.Get() == nullptr) return result;
    r.info.WorkItemData.reset(static_cast<uint8_t*>(AllocateCleared(count)));
    std::memcpy(r.info.WorkItemData.get(), data.Get(), count);
    r.info.WorkItemDataLength = count;
    return result;
}

int32_t ReadIdleWait(TaskReading& r) { return r.task.GetIdleWait(&r.info.IdleMinutes, &r.info.DeadlineMinutes); }

const char16_t* Find(const char16_t* text, std::u16string_view what) {
    const std::u16string_view whole(text);
    const size_t at = whole.find(what);
    return at == std::u16string_view::npos ? nullptr : text + at;
}

// Up to the first blank or the end of the text.
NarrowText WordAt(const char16_t* start) {
    const std::u16string_view rest(start);
    return NarrowCopy(std::u16string(rest.substr(0, rest.find(u' '))).c_str());
}

constexpr size_t kIdentifierLength = 36;

// The identifier behind "/Task=" against the one inside the braces of the name.
bool SameIdentifier(const char16_t* value, const char16_t* name) {
    if (name == nullptr || name[0] == 0) return false;
    for (size_t i = 0; i < kIdentifierLength; ++i) {
        if (value[i] == 0 || name[i + 1] == 0 || LowerAscii(value[i]) != LowerAscii(name[i + 1])) return false;
    }
    return true;
}

// "/Task=" counts only when it names the task's own identifier; "/Ditta=" is
// taken as it stands, whatever company the file name holds.
void ParseTaskParameters(TaskInfo* info, const char16_t* parameters, const char16_t* name) {
    if (parameters == nullptr) return;
    constexpr std::u16string_view kTask = u"/Task=", kDitta = u"/Ditta=";
    if (const char16_t* task = Find(parameters, kTask)) {
        const char16_t* value = task + kTask.size();
        if (SameIdentifier(value, name)) info->UdTask = WordAt(value);
    }
    if (const char16_t* ditta = Find(parameters, kDitta)) info->Ditta = WordAt(ditta + kDitta.size());
}

// ---- The row ---------------------------------------------------------------------

ColumnValue WorkItemDataValue(const TaskInfo& info, SqlDateTime*) {
    return {info.WorkItemData.get(), info.WorkItemDataLength};
}

// A column of the row: its shape, its value in the record, and the read of
// the scheduler that fills it, with its place among the reads (1 to 16). The
// name, what the parameters give and the idle deadline (read with the idle
// minutes) have no read of their own: 0 and null.
struct TaskColumn {
    ColumnShape shape;
    ColumnReader<TaskInfo> value;
    int readOrder;
    TaskRead read;
};

constexpr TaskColumn kTaskColumns[] = {
    {{"TaskName", SRVBIGVARCHAR, 260, SRVCHAR, 0}, TextValue<&TaskInfo::TaskName>, 0, nullptr},
    {{"Ud_Task", SRVBIGVARCHAR, 36, SRVCHAR, 0}, TextValue<&TaskInfo::UdTask>, 0, nullptr},
    {{"Ditta", SRVBIGVARCHAR, 260, SRVCHAR, 0}, TextValue<&TaskInfo::Ditta>, 0, nullptr},
    {{"AccountInformation", SRVBIGVARCHAR, 128, SRVCHAR, 0}, TextValue<&TaskInfo::AccountInformation>,
     1, ReadText<&Task::GetAccountInformation, &TaskInfo::AccountInformation>},
    {{"Comment", SRVTEXT, 0, SRVCHAR, 0}, TextValue<&TaskInfo::Comment>,
     2, ReadText<&Task::GetComment, &TaskInfo::Comment>},
    {{"Creator", SRVBIGVARCHAR, 128, SRVCHAR, 0}, TextValue<&TaskInfo::Creator>,
     3, ReadText<&Task::GetCreator, &TaskInfo::Creator>},
    {{"ApplicationName", SRVBIGVARCHAR, 128, SRVCHAR, 0}, TextValue<&TaskInfo::ApplicationName>,
     5, ReadText<&Task::GetApplicationName, &TaskInfo::ApplicationName>},
    {{"Parameters", SRVTEXT, 0, SRVCHAR, 0}, TextValue<&TaskInfo::Parameters>,
     6, ReadParameters},
    {{"WorkingDirectory", SRVBIGVARCHAR, 260, SRVCHAR, 0}, TextValue<&TaskInfo::WorkingDirectory>,
     7, ReadText<&Task::GetWorkingDirectory, &TaskInfo::WorkingDirectory>},
    {{"WorkItemData", SRVBIGVARBINARY, 512, SRVBIGVARBINARY, 0}, WorkItemDataValue,
     8, ReadWorkItemData},
    {{"Status", SRVINT4, 0, SRVINT4, 0}, IntegerValue<&TaskInfo::Status>,
     13, ReadValue<&Task::GetStatus, &TaskInfo::Status>},
    {{"ExitCode", SRVINT4, 0, SRVINT4, 0}, IntegerValue<&TaskInfo::ExitCode>,
     9, ReadValue<&Task::GetExitCode, &TaskInfo::ExitCode>},
    {{"Flags", SRVINT4, 0, SRVINT4, 0}, IntegerValue<&TaskInfo::Flags>,
     10, ReadValue<&Task::GetFlags, &TaskInfo::Flags>},
    {{"LastRun", SRVDATETIMN, 8, SRVDATETIMN, 8}, TimeValue<&TaskInfo::LastRun>,
     11, ReadValue<&Task::GetMostRecentRunTime, &TaskInfo::LastRun>},
    {{"NextRun", SRVDATETIMN, 8, SRVDATETIMN, 8}, TimeValue<&TaskInfo::NextRun>,
     12, ReadValue<&Task::GetNextRunTime, &TaskInfo::NextRun>},
    {{"TriggerCount", SRVINT4, 0, SRVINT2, 0}, IntegerValue<&TaskInfo::TriggerCount>,
     4, ReadValue<&Task::GetTriggerCount, &TaskInfo::TriggerCount>},
    {{"MaxRunTime", SRVINT4, 0, SRVINT4, 0}, IntegerValue<&TaskInfo::MaxRunTime>,
     14, ReadValue<&Task::GetMaxRunTime, &TaskInfo::MaxRunTime>},
    {{"Priority", SRVINT4, 0, SRVINT4, 0}, IntegerValue<&TaskInfo::Priority>,
     15, ReadValue<&Task::GetPriority, &TaskInfo::Priority>},
    {{"IdleWait_IdleMin", SRVINT4, 0, SRVINT2, 0}, IntegerValue<&TaskInfo::IdleMinutes>,
     16, ReadIdleWait},
    {{"IdleWait_DeadlineMin", SRVINT4, 0, SRVINT2, 0}, IntegerValue<&TaskInfo::DeadlineMinutes>, 0, nullptr},
};

constexpr size_t kTaskReads = 16;

// The columns in the order of their reads; every place from 1 to 16 is taken once.
constexpr std::array<size_t, kTaskReads> kReadSequence = [] {
    std::array<size_t, kTaskReads> sequence{};
    std::array<int, kTaskReads> taken{};
    for (size_t i = 0; i < std::size(kTaskColumns); ++i) {
        const TaskColumn& c = kTaskColumns[i];
        if (c.readOrder < 0 || c.readOrder > static_cast<int>(kTaskReads)) throw "a read out of its places";
        if (c.readOrder == 0) continue;
        sequence[c.readOrder - 1] = i;
        ++taken[c.readOrder - 1];
    }
    for (int t : taken) {
        if (t != 1) throw "a place of the reads not taken once";
    }
    return sequence;
}();

// ---- vrn_Wts_TaskEnum --------------------------------------------------------------

// A row for every task of the walk; a task that can't be read is passed over
// in silence. The rows sent, or a failure to open.
int32_t SendTaskRows(SRV_PROC* srvproc, const char16_t* company, const char16_t* instance, int32_t* rows) {
    return WalkTasks(company, instance, [&](const SchedulerConnection& connection, const char16_t* name) {
        TaskInfo info{};
        if (!Failed(ReadTaskInfo(&info, connection.scheduler(), connection.source(), name))) {
            SendTaskRow(&info, srvproc, false);
            ++*rows;
        }
        ReleaseTaskInfo(&info);
        return true;
    });
}

int32_t TaskEnumCall(SRV_PROC* srvproc) {
    const char16_t* instance = InstanceName(srvproc);
    ParamInfo table[1]{};
    // nvarchar alone: nchar pads with blanks, and a padded company matches nothing.
    if (!JudgeCall(srvproc,
                   {{.typeTest = IsNVarCharType, .direction = kAnyDirection, .notNull = true, .optional = true}},
                   table)) {
        SendInvalidParameter(srvproc);
        CompleteCall(srvproc);
        return kInvalidArg;
    }
    int32_t rows = 0;
    {
        const WideText company = srv_rpcparams(srvproc) == 1 ? ReadParamText(srvproc, table, 0, false) : nullptr;
        SendTaskRow(nullptr, srvproc, true);
        const int32_t result = SendTaskRows(srvproc, company.get(), instance, &rows);
        if (Failed(result)) return result;  // described, and not completed
    }
    CompleteCounted(srvproc, rows);
    return kOk;
}

// ---- vrn_Wts_TaskInfo --------------------------------------------------------------

int32_t TaskInfoCall(SRV_PROC* srvproc) {
    ParamInfo table[1]{};
    if (!JudgeCall(srvproc, {{.typeTest = IsWideTextType, .direction = kAnyDirection, .notNull = true}}, table)) {
        SendInvalidParameter(srvproc);
        CompleteCall(srvproc);
        return kInvalidArg;
    }
    {
        const WideText name = ReadParamText(srvproc, table, 0, false);
        SchedulerConnection connection;
        const int32_t opened = connection.Open();
        if (Failed(opened)) return opened;
        SendTaskRow(nullptr, srvproc, true);
        TaskInfo info{};
        const int32_t read = ReadTaskInfo(&info, connection.scheduler(), connection.source(), name.get());
        if (Failed(read)) return read;  // the record is released on the way out
        SendTaskRow(&info, srvproc, false);
        ReleaseTaskInfo(&info);
    }
    CompleteCounted(srvproc, 1);
    return kOk;
}

}  // namespace

NarrowText NarrowCopy(const char16_t* text) {
    if (text == nullptr) return nullptr;
    NarrowText narrow(WideToAnsi(text));
    if (!narrow) throw std::bad_alloc();
    return narrow;
}

int32_t ReadTaskInfo(TaskInfo* info, Scheduler& scheduler, SchedulerSource& source, const char16_t* name) {
    *info = TaskInfo{};
    std::unique_ptr<Task> task;
    const int32_t activated = scheduler.Activate(name, &task);
    if (Failed(activated)) return activated;
    info->TaskName = NarrowCopy(name);

    SchedulerMemory<char16_t> parameters(source);
    TaskReading reading{*task, source, *info, parameters};
    // The order of the reads is the scheduler's to see; the first failure ends it.
    for (const size_t column : kReadSequence) {
        const int32_t result = kTaskColumns[column].read(reading);
        if (Failed(result)) return result;
    }
    ParseTaskParameters(info, parameters.Get(), name);
    return kOk;
}

void ReleaseTaskInfo(TaskInfo* info) { *info = TaskInfo{}; }

void SendTaskRow(const TaskInfo* info, SRV_PROC* srvproc, bool describe) {
    if (describe) {
        DescribeRow(srvproc, kTaskColumns);
    } else {
        SendRow<kTaskColumns>(srvproc, *info, LengthsGo::kWithEachValue);
    }
}

}  // namespace vrn::tasks

// Company, optional (nvarchar; empty: every company of this instance). Rows of
// the tasks of that company on this instance; 0, or the HRESULT of opening.
VRN_EXPORT int32_t vrn_Wts_TaskEnum(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TaskEnumCall(srvproc); });
}

// Task name. The row of that task, whoever it belongs to; 0, or the HRESULT.
VRN_EXPORT int32_t vrn_Wts_TaskInfo(SRV_PROC* srvproc) {
    return vrn::tasks::ShieldedTaskCall([&] { return vrn::tasks::TaskInfoCall(srvproc); });
}
