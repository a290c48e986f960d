// Task listing and information: vrn_Wts_TaskEnum and vrn_Wts_TaskInfo, one
// row of 20 columns per task.
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "frame/convert.h"
#include "frame/procedure.h"
#include "tasks/connection.h"
#include "tasks/params.h"
#include "tasks/scheduler.h"
#include "tasks/task_info.h"

namespace vrn::tasks {

namespace {

// ---- Reading one task -----------------------------------------------------------

using WideMemory = SchedulerMemory<char16_t>;

int32_t ReadText(Task& task, int32_t (Task::*get)(char16_t**), WideMemory& wide, NarrowText* into) {
    const int32_t result = (task.*get)(wide.Out());
    if (!Failed(result)) *into = NarrowCopy(wide.Get());
    return result;
}

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

int32_t ReadWorkItemData(Task& task, SchedulerSource& source, TaskInfo* info) {
    SchedulerMemory<uint8_t> data(source);
    uint16_t count = 0;
    const int32_t result = task.GetWorkItemData(&count, data.Out());
    if (Failed(result) || count == 0 || data.Get() == nullptr) return result;
    info->WorkItemData.reset(static_cast<uint8_t*>(AllocateCleared(count)));
    std::memcpy(info->WorkItemData.get(), data.Get(), count);
    info->WorkItemDataLength = count;
    return result;
}

// ---- The row ---------------------------------------------------------------------

constexpr ColumnShape kTaskColumns[] = {
    {"TaskName", SRVBIGVARCHAR, 260, SRVCHAR, 0},
    {"Ud_Task", SRVBIGVARCHAR, 36, SRVCHAR, 0},
    {"Ditta", SRVBIGVARCHAR, 260, SRVCHAR, 0},
    {"AccountInformation", SRVBIGVARCHAR, 128, SRVCHAR, 0},
    {"Comment", SRVTEXT, 0, SRVCHAR, 0},
    {"Creator", SRVBIGVARCHAR, 128, SRVCHAR, 0},
    {"ApplicationName", SRVBIGVARCHAR, 128, SRVCHAR, 0},
    {"Parameters", SRVTEXT, 0, SRVCHAR, 0},
    {"WorkingDirectory", SRVBIGVARCHAR, 260, SRVCHAR, 0},
    {"WorkItemData", SRVBIGVARBINARY, 512, SRVBIGVARBINARY, 0},
    {"Status", SRVINT4, 0, SRVINT4, 0},
    {"ExitCode", SRVINT4, 0, SRVINT4, 0},
    {"Flags", SRVINT4, 0, SRVINT4, 0},
    {"LastRun", SRVDATETIMN, 8, SRVDATETIMN, 8},
    {"NextRun", SRVDATETIMN, 8, SRVDATETIMN, 8},
    {"TriggerCount", SRVINT4, 0, SRVINT2, 0},
    {"MaxRunTime", SRVINT4, 0, SRVINT4, 0},
    {"Priority", SRVINT4, 0, SRVINT4, 0},
    {"IdleWait_IdleMin", SRVINT4, 0, SRVINT2, 0},
    {"IdleWait_DeadlineMin", SRVINT4, 0, SRVINT2, 0},
};

void SetTextColumn(SRV_PROC* srvproc, int column, const NarrowText& text) {
    (void)srv_setcoldata(srvproc, column, text.get());
    (void)srv_setcollen(srvproc, column, text ? static_cast<int>(std::strlen(text.get())) : 0);
}

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
    int32_t result = scheduler.Activate(name, &task);
    if (Failed(result)) return result;
    info->TaskName = NarrowCopy(name);

    WideMemory account(source), comment(source), creator(source), application(source), parameters(source),
        directory(source);
    Task& t = *task;
    auto step = [&result](int32_t r) { return !Failed(result = r); };
    // The order of the reads is the scheduler's to see; the first failure ends it.
    const bool read = step(ReadText(t, &Task::GetAccountInformation, account, &info->AccountInformation)) &&
                      step(ReadText(t, &Task::GetComment, comment, &info->Comment)) &&
                      step(ReadText(t, &Task::GetCreator, creator, &info->Creator)) &&
                      step(t.GetTriggerCount(&info->TriggerCount)) &&
                      step(ReadText(t, &Task::GetApplicationName, application, &info->ApplicationName)) &&
                      step(ReadText(t, &Task::GetParameters, parameters, &info->Parameters)) &&
                      step(ReadText(t, &Task::GetWorkingDirectory, directory, &info->WorkingDirectory)) &&
                      step(ReadWorkItemData(t, source, info)) && step(t.GetExitCode(&info->ExitCode)) &&
                      step(t.GetFlags(&info->Flags)) && step(t.GetMostRecentRunTime(&info->LastRun)) &&
                      step(t.GetNextRunTime(&info->NextRun)) && step(t.GetStatus(&info->Status)) &&
                      step(t.GetMaxRunTime(&info->MaxRunTime)) && step(t.GetPriority(&info->Priority)) &&
                      step(t.GetIdleWait(&info->IdleMinutes, &info->DeadlineMinutes));
    if (!read) return result;
    ParseTaskParameters(info, parameters.Get(), name);
    return kOk;
}

void ReleaseTaskInfo(TaskInfo* info) {
    for (NarrowText* text : {&info->TaskName, &info->UdTask, &info->Ditta, &info->AccountInformation, &info->Comment,
                             &info->Creator, &info->ApplicationName, &info->Parameters, &info->WorkingDirectory}) {
        text->reset();
    }
    info->WorkItemData.reset();
}

void SendTaskRow(const TaskInfo* info, SRV_PROC* srvproc, bool describe) {
    if (describe) {
        DescribeColumns(srvproc, kTaskColumns);
        return;
    }
    SqlDateTime lastRun{}, nextRun{};
    int32_t lastRunNull = 0, nextRunNull = 0;
    SystemTimeToSqlDateTime(info->LastRun, &lastRun, &lastRunNull);
    SystemTimeToSqlDateTime(info->NextRun, &nextRun, &nextRunNull);

    int column = 1;
    for (const NarrowText* text : {&info->TaskName, &info->UdTask, &info->Ditta, &info->AccountInformation,
                                   &info->Comment, &info->Creator, &info->ApplicationName, &info->Parameters,
                                   &info->WorkingDirectory}) {
        SetTextColumn(srvproc, column++, *text);
    }
    (void)srv_setcoldata(srvproc, 10, info->WorkItemData.get());
    (void)srv_setcollen(srvproc, 10, info->WorkItemDataLength);
    // Integers go by their source type's width, with no length of their own.
    (void)srv_setcoldata(srvproc, 11, const_cast<int32_t*>(&info->Status));
    (void)srv_setcoldata(srvproc, 12, const_cast<uint32_t*>(&info->ExitCode));
    (void)srv_setcoldata(srvproc, 13, const_cast<uint32_t*>(&info->Flags));
    (void)srv_setcoldata(srvproc, 14, &lastRun);
    (void)srv_setcollen(srvproc, 14, lastRunNull ? 0 : sizeof lastRun);
    (void)srv_setcoldata(srvproc, 15, &nextRun);
    (void)srv_setcollen(srvproc, 15, nextRunNull ? 0 : sizeof nextRun);
    (void)srv_setcoldata(srvproc, 16, const_cast<uint16_t*>(&info->TriggerCount));
    (void)srv_setcoldata(srvproc, 17, const_cast<uint32_t*>(&info->MaxRunTime));
    (void)srv_setcoldata(srvproc, 18, const_cast<uint32_t*>(&info->Priority));
    (void)srv_setcoldata(srvproc, 19, const_cast<uint16_t*>(&info->IdleMinutes));
    (void)srv_setcoldata(srvproc, 20, const_cast<uint16_t*>(&info->DeadlineMinutes));
    (void)srv_sendrow(srvproc);
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
