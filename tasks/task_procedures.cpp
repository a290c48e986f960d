// Task creation and task control: vrn_Wts_TaskCreate, the seven procedures on
// one named task, and enabling or disabling all tasks of a company.
#include <cstdint>
#include <memory>

#include "frame/procedure.h"
#include "tasks/connection.h"
#include "tasks/params.h"
#include "tasks/scheduler.h"

namespace vrn::tasks {

namespace {

constexpr char16_t kCreator[] = u"TolvTaskEngine";

// ---- vrn_Wts_TaskCreate -----------------------------------------------------

enum TaskCreateMode : uint32_t { kCreateNew = 0, kReplace = 1, kCreateOrUpdate = 2 };

// A task as the client describes it. A null text or data is absent, and the
// property keeps what the store has (or nothing, for a new task).
struct TaskDefinition {
    const char16_t* name;
    const char16_t* comment;
    const char16_t* applicationName;
    const char16_t* account;  // an empty text is present: it clears the account
    const char16_t* password;
    const char16_t* creator;
    const char16_t* workingDirectory;
    const char16_t* parameters;
    const uint8_t* workItemData;
    uint16_t workItemDataCount;
    uint32_t maxRunTimeMinutes;
    uint32_t flags;
    uint32_t mode;
};

int32_t OpenForCreation(Scheduler& scheduler, const TaskDefinition& d, std::unique_ptr<Task>* task) {
    if (d.mode == kCreateNew) return scheduler.NewWorkItem(d.name, task);
    // Replace deletes first and then updates what may still be there: the
    // Delete's result counts for nothing.
    if (d.mode == kReplace) (void)scheduler.Delete(d.name);
    const int32_t activated = scheduler.Activate(d.name, task);
    return Failed(activated) ? scheduler.NewWorkItem(d.name, task) : activated;
}

// The properties in their fixed order, each the client gave; the first failure ends it.
int32_t SetTaskProperties(Task& task, const TaskDefinition& d) {
    int32_t result = kOk;
    if (d.applicationName != nullptr) result = task.SetApplicationName(d.applicationName);
    if (!Failed(result) && d.account != nullptr) result = task.SetAccountInformation(d.account, d.password);
    if (!Failed(result)) result = task.SetCreator(d.creator);
    if (!Failed(result) && d.comment != nullptr) result = task.SetComment(d.comment);
    if (!Failed(result) && d.workingDirectory != nullptr) result = task.SetWorkingDirectory(d.workingDirectory);
    if (!Failed(result) && d.parameters != nullptr) result = task.SetParameters(d.parameters);
    if (!Failed(result) && d.workItemData != nullptr && d.workItemDataCount != 0) {
        result = task.SetWorkItemData(d.workItemDataCount, d.workItemData);
    }
    if (!Failed(result)) result = task.SetMaxRunTime(MinutesToMilliseconds(d.maxRunTimeMinutes));
    if (!Failed(result)) result = task.SetFlags(d.flags);
    return result;
}

// A failed Save deletes the task, also one that stood in the store before.
int32_t CreateTask(const TaskDefinition& d) {
    SchedulerConnection connection;
    int32_t result = connection.Open();
    if (Failed(result)) return result;
    std::unique_ptr<Task> task;
    result = OpenForCreation(connection.scheduler(), d, &task);
    if (Failed(result)) return result;
    result = SetTaskProperties(*task, d);
    if (Failed(result)) return result;
    std::unique_ptr<PersistFile> persist;
    result = task->QueryPersistFile(&persist);
    if (Failed(result)) return result;
    result = persist->Save(nullptr, true);
    if (Failed(result)) (void)connection.scheduler().Delete(d.name);
    return result;
}

constexpr ParamRule kCreateText{.typeTest = IsWideTextOrVoidType, .direction = kAnyDirection};
constexpr ParamRule kCreateRequiredText{.typeTest = IsWideTextOrVoidType, .direction = kAnyDirection, .notNull = true};
constexpr ParamRule kCreateData{.typeTest = IsBinaryOrVoidType, .direction = kAnyDirection};
constexpr ParamRule kCreateInteger{.typeTest = IsTaskIntegerType, .direction = kAnyDirection, .notNull = true};
constexpr int kAccountParam = 3;  // 0-based: the one text where empty isn't absent
constexpr int kDataParam = 7;
constexpr uint32_t kLeastWorkItemData = 2;

int32_t TaskCreateCall(SRV_PROC* srvproc) {
    ParamInfo table[11]{};
    if (!JudgeCall(srvproc,
                   {kCreateRequiredText, kCreateText, kCreateRequiredText, kCreateText, kCreateText, kCreateText,
                    kCreateText, kCreateData, kCreateInteger, kCreateInteger, kCreateInteger},
                   table)) {
        SendInvalidParameter(srvproc);
        return kInvalidArg;
    }
    bool modeRefused = false;
    int32_t result;
    {
        ScopedCompletion completion(srvproc);  // after the buffers are freed
        WideText texts[7];
        for (int i = 0; i < 7; ++i) texts[i] = ReadParamText(srvproc, table, i, i == kAccountParam);
        platform::HeapPtr<uint8_t> data;
        const ParamInfo& dataInfo = table[kDataParam];
        if (!dataInfo.isNull && dataInfo.actualLength >= kLeastWorkItemData) {
            data.reset(static_cast<uint8_t*>(AllocateCleared(size_t{dataInfo.actualLength} + 1)));
            (void)ReadParamValue(srvproc, table, kDataParam, data.get(), dataInfo.actualLength);
        }
        const uint32_t minutes = ReadParamInteger(srvproc, table, 8);
        const uint32_t flags = ReadParamInteger(srvproc, table, 9);
        const uint32_t mode = ReadParamInteger(srvproc, table, 10);
        if (mode > kCreateOrUpdate) {
            modeRefused = true;
            result = kInvalidArg;
        } else {
            result = CreateTask({texts[0].get(), texts[1].get(), texts[2].get(), texts[3].get(), texts[4].get(),
                                 kCreator, texts[5].get(), texts[6].get(), data.get(),
                                 static_cast<uint16_t>(dataInfo.actualLength), minutes, flags, mode});
        }
    }
    if (modeRefused) SendInvalidParameter(srvproc);  // behind the completion
    return result;
}

// ---- The seven on one named task ----------------------------------------------

int32_t DeleteTask(const char16_t* name) {
    SchedulerConnection connection;
    int32_t result = connection.Open();
    if (Failed(result)) return result;
    result = connection.scheduler().Delete(name);
    return Failed(result) ? result : kOk;
}

// Opens the named task and does one thing with it. What the thing answers on
// success is the result; the callers say whether it is passed on.
template <class Work>
int32_t OnTask(const char16_t* name, Work work) {
    SchedulerConnection connection;
    std::unique_ptr<Task> task;
    const int32_t result = connection.OpenTask(name, &task);
    return Failed(result) ? result : work(*task);
}

int32_t ZeroOnSuccess(int32_t result) { return Failed(result) ? result : kOk; }

int32_t RunTask(const char16_t* name) {
    return ZeroOnSuccess(OnTask(name, [](Task& task) { return task.Run(); }));
}

int32_t TerminateTask(const char16_t* name) {
    return ZeroOnSuccess(OnTask(name, [](Task& task) { return task.Terminate(); }));
}

int32_t ReadTaskFlags(const char16_t* name, uint32_t* flags) {
    return OnTask(name, [flags](Task& task) { return task.GetFlags(flags); });
}

int32_t ReadTaskStatus(const char16_t* name, int32_t* status) {
    return OnTask(name, [status](Task& task) { return task.GetStatus(status); });
}

int32_t WriteTaskFlags(const char16_t* name, uint32_t flags) {
    return ZeroOnSuccess(OnTask(name, [flags](Task& task) {
        const int32_t set = task.SetFlags(flags);
        return Failed(set) ? set : SaveTask(task);
    }));
}

int32_t WriteTaskMaxRunTime(const char16_t* name, uint32_t minutes) {
    return ZeroOnSuccess(OnTask(name, [minutes](Task& task) {
        const int32_t set = task.SetMaxRunTime(MinutesToMilliseconds(minutes));
        return Failed(set) ? set : SaveTask(task);
    }));
}

constexpr ParamRule kTaskName{.typeTest = IsWideTextType, .direction = kAnyDirection};
constexpr ParamRule kIntegerOutput{.typeTest = IsTaskIntegerType, .direction = kOut};
constexpr ParamRule kIntegerValue{.typeTest = IsTaskIntegerType, .direction = kAnyDirection, .notNull = true};

// The name read, the work done, the call completed after the name is freed.
template <class Work>
int32_t OnNamedTask(SRV_PROC* srvproc, ParamTable table, Work work) {
    ScopedCompletion completion(srvproc);
    const WideText name = ReadParamText(srvproc, table, 0, false);
    return work(name.get());
}

// The seven answer a wrong call with the message alone, no completion.
int32_t RefuseOneTaskCall(SRV_PROC* srvproc) {
    SendInvalidParameter(srvproc);
    return kInvalidArg;
}

int32_t NameOnlyCall(SRV_PROC* srvproc, int32_t (*work)(const char16_t*)) {
    ParamInfo table[1]{};
    if (!JudgeCall(srvproc, {kTaskName}, table)) return RefuseOneTaskCall(srvproc);
    return OnNamedTask(srvproc, table, work);
}

// GetFlags and GetStatus deliver their value only on success, and pass the result on.
template <class Value>
int32_t ReadValueCall(SRV_PROC* srvproc, int32_t (*work)(const char16_t*, Value*)) {
    ParamInfo table[2]{};
    if (!JudgeCall(srvproc, {kTaskName, kIntegerOutput}, table)) return RefuseOneTaskCall(srvproc);
    return OnNamedTask(srvproc, table, [&](const char16_t* name) {
        Value value = 0;
        const int32_t result = work(name, &value);
        if (!Failed(result)) SetOutputInteger(srvproc, 2, static_cast<int32_t>(value));
        return result;
    });
}

int32_t WriteValueCall(SRV_PROC* srvproc, int32_t (*work)(const char16_t*, uint32_t)) {
    ParamInfo table[2]{};
    if (!JudgeCall(srvproc, {kTaskName, kIntegerValue}, table)) return RefuseOneTaskCall(srvproc);
    return OnNamedTask(srvproc, table, [&](const char16_t* name) {
        return work(name, ReadParamInteger(srvproc, table, 1));
    });
}

// ---- vrn_Wts_TaskEnableAll, vrn_Wts_TaskDisableAll ------------------------------

int32_t SetTaskEnabled(Scheduler& scheduler, const char16_t* name, bool enable) {
    std::unique_ptr<Task> task;
    int32_t result = scheduler.Activate(name, &task);
    if (Failed(result)) return result;
    uint32_t flags = 0;
    result = task->GetFlags(&flags);
    if (Failed(result)) return result;
    // Written even when already so.
    flags = enable ? flags & ~kTaskFlagDisabled : flags | kTaskFlagDisabled;
    result = task->SetFlags(flags);
    return Failed(result) ? result : SaveTask(*task);
}

// A failure on a task ends the walk, and the tasks done stay done: only
// opening can fail the call.
int32_t SetAllTasksEnabled(const char16_t* company, const char16_t* instance, bool enable) {
    return WalkTasks(company, instance, [&](const SchedulerConnection& connection, const char16_t* name) {
        return !Failed(SetTaskEnabled(connection.scheduler(), name, enable));
    });
}

int32_t SetAllTasksEnabledCall(SRV_PROC* srvproc, bool enable) {
    const char16_t* instance = InstanceName(srvproc);
    ParamInfo table[1]{};
    if (!JudgeCall(srvproc, {{.typeTest = IsWideTextType, .direction = kAnyDirection, .notNull = true}}, table)) {
        SendInvalidParameter(srvproc);
        CompleteCall(srvproc);
        return kInvalidArg;
    }
    ScopedCompletion completion(srvproc);
    const WideText company = ReadParamText(srvproc, table, 0, false);  // empty: every company
    return SetAllTasksEnabled(company.get(), instance, enable);
}

}  // namespace

}  // namespace vrn::tasks

using vrn::tasks::ShieldedTaskCall;

// The eleven parameters of a task and the creation mode (0 new, 1 replace,
// 2 create or update). The scheduler's HRESULT; 0x80070057 for a wrong call.
VRN_EXPORT int32_t vrn_Wts_TaskCreate(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::TaskCreateCall(srvproc); });
}

// Task name. The scheduler's HRESULT; 0x80070057 for a wrong call.
VRN_EXPORT int32_t vrn_Wts_TaskDelete(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::NameOnlyCall(srvproc, vrn::tasks::DeleteTask); });
}
VRN_EXPORT int32_t vrn_Wts_TaskRun(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::NameOnlyCall(srvproc, vrn::tasks::RunTask); });
}
VRN_EXPORT int32_t vrn_Wts_TaskTerminate(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::NameOnlyCall(srvproc, vrn::tasks::TerminateTask); });
}

// Task name, value OUTPUT. The scheduler's HRESULT, a success passed on as it came.
VRN_EXPORT int32_t vrn_Wts_TaskGetFlags(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::ReadValueCall(srvproc, vrn::tasks::ReadTaskFlags); });
}
VRN_EXPORT int32_t vrn_Wts_TaskGetStatus(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::ReadValueCall(srvproc, vrn::tasks::ReadTaskStatus); });
}

// Task name, the whole set of flags / the maximum run time in minutes.
VRN_EXPORT int32_t vrn_Wts_TaskSetFlags(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::WriteValueCall(srvproc, vrn::tasks::WriteTaskFlags); });
}
VRN_EXPORT int32_t vrn_Wts_TaskSetMaxRunTime(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::WriteValueCall(srvproc, vrn::tasks::WriteTaskMaxRunTime); });
}

// Company (empty: every company of this instance). 0 once the scheduler opens.
VRN_EXPORT int32_t vrn_Wts_TaskEnableAll(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::SetAllTasksEnabledCall(srvproc, true); });
}
VRN_EXPORT int32_t vrn_Wts_TaskDisableAll(SRV_PROC* srvproc) {
    return ShieldedTaskCall([&] { return vrn::tasks::SetAllTasksEnabledCall(srvproc, false); });
}
