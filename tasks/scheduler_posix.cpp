// The scheduler on Linux: a job store of our own in a folder of the user's
// (job_store_posix.h), whose tasks really run (job_process_posix.h).
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tasks/job_process_posix.h"
#include "tasks/job_store_posix.h"
#include "tasks/local_time_posix.h"
#include "tasks/scheduler.h"
#include "tasks/trigger_schedule.h"
#include "tasks/trigger_text.h"

namespace vrn::tasks {
namespace {

// A text handed out: the caller frees it with FreeMemory (free).
int32_t HandOut(const std::u16string& text, char16_t** out) {
    *out = static_cast<char16_t*>(std::malloc((text.size() + 1) * sizeof(char16_t)));
    if (*out == nullptr) return kOutOfMemory;
    std::memcpy(*out, text.data(), text.size() * sizeof(char16_t));
    (*out)[text.size()] = u'\0';
    return kOk;
}

// Bytes handed out the same way; none give a null array.
int32_t HandOut(const std::vector<uint8_t>& bytes, uint16_t* count, uint8_t** out) {
    *count = 0;
    *out = nullptr;
    if (bytes.empty()) return kOk;
    *out = static_cast<uint8_t*>(std::malloc(bytes.size()));
    if (*out == nullptr) return kOutOfMemory;
    std::memcpy(*out, bytes.data(), bytes.size());
    *count = static_cast<uint16_t>(bytes.size());
    return kOk;
}

uint64_t NewIdentity() {
    static std::atomic<uint64_t> counter{0};
    uint64_t id = 0;
    if (getrandom(&id, sizeof id, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof id)) {
        id = (static_cast<uint64_t>(time(nullptr)) << 32) ^ (static_cast<uint64_t>(getpid()) << 16) ^ ++counter;
    }
    return id != 0 ? id : 1;
}

bool IsValidTrigger(const TASK_TRIGGER& t) {
    if (t.cbTriggerSize != sizeof(TASK_TRIGGER) || t.TriggerType < kTriggerOnce || t.TriggerType > kTriggerAtLogon ||
        t.wStartHour > 23 || t.wStartMinute > 59) {
        return false;
    }
    if (t.MinutesInterval > 0 && t.MinutesDuration <= t.MinutesInterval) return false;
    if (t.TriggerType > kTriggerMonthlyDow) return true;  // no dates
    if (!IsValidDate(t.wBeginYear, t.wBeginMonth, t.wBeginDay)) return false;
    if ((t.rgFlags & kTriggerFlagHasEndDate) != 0 && t.TriggerType != kTriggerOnce &&
        (!IsValidDate(t.wEndYear, t.wEndMonth, t.wEndDay) ||
         DaysFromCivil(t.wEndYear, t.wEndMonth, t.wEndDay) < DaysFromCivil(t.wBeginYear, t.wBeginMonth, t.wBeginDay))) {
        return false;
    }
    switch (t.TriggerType) {
        case kTriggerDaily:
            return t.Type.Daily.DaysInterval > 0;
        case kTriggerWeekly:
            return t.Type.Weekly.WeeksInterval > 0;
        case kTriggerMonthlyDow:
            return t.Type.MonthlyDOW.wWhichWeek >= kFirstWeek && t.Type.MonthlyDOW.wWhichWeek <= kLastWeek;
        default:
            return true;
    }
}

// A task as one Activate or NewWorkItem gave it, shared with its triggers and
// its way to Save.
struct TaskState {
    jobs::Store store;
    std::string fileName;
    jobs::Record record;

    TaskState(jobs::Store s, std::string name, jobs::Record r)
        : store(std::move(s)), fileName(std::move(name)), record(std::move(r)) {
        for (size_t i = 0; i < Triggers().size(); ++i) triggerIds_.push_back(++lastTriggerId_);
    }
    std::vector<TASK_TRIGGER>& Triggers() { return record.definition.triggers; }
    // The run state as a run or a stop left it, when the stored task is still this one.
    void Adopt(const jobs::Record& stored) {
        if (stored.identity == record.identity) record.run = stored.run;
    }

    // A trigger's handle keeps to its trigger when an earlier one is deleted.
    uint64_t HandleAt(size_t index) const { return triggerIds_[index]; }
    TASK_TRIGGER* FindTrigger(uint64_t handle) {
        for (size_t i = 0; i < triggerIds_.size(); ++i) {
            if (triggerIds_[i] == handle) return &Triggers()[i];
        }
        return nullptr;
    }
    // The trigger appended; its handle.
    uint64_t AddTrigger(const TASK_TRIGGER& trigger) {
        Triggers().push_back(trigger);
        triggerIds_.push_back(++lastTriggerId_);
        return lastTriggerId_;
    }
    void DeleteTrigger(size_t index) {
        Triggers().erase(Triggers().begin() + static_cast<ptrdiff_t>(index));
        triggerIds_.erase(triggerIds_.begin() + static_cast<ptrdiff_t>(index));
    }

private:
    std::vector<uint64_t> triggerIds_;  // parallel to the triggers
    uint64_t lastTriggerId_ = 0;
};

// A new trigger before SetTrigger: today at this minute, daily, and disabled.
TASK_TRIGGER NewTrigger(const SystemTime& now) {
    TASK_TRIGGER t{};
    t.cbTriggerSize = sizeof t;
    t.wBeginYear = now.year;
    t.wBeginMonth = now.month;
    t.wBeginDay = now.day;
    t.wStartHour = now.hour;
    t.wStartMinute = now.minute;
    t.TriggerType = kTriggerDaily;
    t.Type.Daily.DaysInterval = 1;
    t.rgFlags = kTriggerFlagDisabled;
    return t;
}

// ---- What a task's record says of its runs.

// The status word: running, disabled, never run, stopped, without a program,
// or what its triggers leave.
int32_t StatusOf(const jobs::Record& record) {
    const jobs::RunState& run = record.run;
    const jobs::Definition& definition = record.definition;
    if (jobs::IsRunning(run)) return kTaskRunning;
    if ((definition.flags & kTaskFlagDisabled) != 0) return kTaskDisabled;
    if ((run.flags & jobs::kRunStarted) == 0) return kTaskHasNotRun;
    if ((run.flags & jobs::kRunTerminated) != 0) return kTaskTerminated;
    if (definition.application.empty()) return kTaskNotScheduled;
    switch (NextTaskRun(definition.triggers, NowInstant(), SystemTimeZone(), record.identity).kind) {
        case NextRunKind::kNoValidTriggers:
            return kTaskNoValidTriggers;
        case NextRunKind::kNoMoreRuns:
            return kTaskNoMoreRuns;
        default:
            return kTaskReady;
    }
}

// The coming run's time, or the status that says why there is none.
int32_t NextRunOf(const jobs::Record& record, SystemTime* time) {
    *time = SystemTime{};
    if ((record.definition.flags & kTaskFlagDisabled) != 0) return kTaskDisabled;
    const NextRun next = NextTaskRun(record.definition.triggers, NowInstant(), SystemTimeZone(), record.identity);
    switch (next.kind) {
        case NextRunKind::kTime:
            *time = ToSystemTime(next.instant, SystemTimeZone());
            return kOk;
        case NextRunKind::kEventOnly:
            return jobs::kEventTrigger;
        case NextRunKind::kNoMoreRuns:
            return kTaskNoMoreRuns;
        default:
            return kTaskNoValidTriggers;
    }
}

// The exit code of the last run, and as the result what starting it gave.
int32_t ExitCodeOf(const jobs::RunState& run, uint32_t* code) {
    *code = 0;
    if ((run.flags & jobs::kRunStarted) == 0) return kTaskHasNotRun;
    *code = run.exitCode;
    return run.startResult;
}

int32_t LastRunOf(const jobs::RunState& run, SystemTime* time) {
    *time = SystemTime{};
    if ((run.flags & jobs::kRunStarted) == 0) return kTaskHasNotRun;
    *time = run.lastRun;
    return kOk;
}

// ---- What the scheduler hands out.

class JobTrigger final : public Trigger {
public:
    JobTrigger(std::shared_ptr<TaskState> task, uint64_t handle) : task_(std::move(task)), handle_(handle) {}

    int32_t SetTrigger(const TASK_TRIGGER& trigger) override {
        if (!IsValidTrigger(trigger)) return kInvalidArgument;
        TASK_TRIGGER* mine = task_->FindTrigger(handle_);
        if (mine == nullptr) return kTriggerNotFound;
        *mine = trigger;
        return kOk;
    }
    int32_t GetTrigger(TASK_TRIGGER* trigger) override {
        if (trigger == nullptr) return kInvalidArgument;
        const TASK_TRIGGER* mine = task_->FindTrigger(handle_);
        if (mine == nullptr) return kTriggerNotFound;
        *trigger = *mine;
        return kOk;
    }

private:
    std::shared_ptr<TaskState> task_;
    uint64_t handle_;
};

class JobPersist final : public PersistFile {
public:
    explicit JobPersist(std::shared_ptr<TaskState> task) : task_(std::move(task)) {}

    // Only to the task's own name: the store has no other files.
    int32_t Save(const char16_t* fileName, bool) override {
        if (fileName != nullptr) return kNotImplemented;
        jobs::StoreLock lock;
        int32_t result = task_->store.Lock(&lock);
        if (result < 0) return result;
        jobs::Record stored;
        if (task_->store.Read(task_->fileName, &stored) == kOk) task_->Adopt(stored);
        jobs::MarkLastRun(&task_->record, NowInstant());  // the triggers or flags may have changed
        return task_->store.Write(task_->fileName, task_->record);
    }

private:
    std::shared_ptr<TaskState> task_;
};

class JobTask final : public Task {
public:
    explicit JobTask(std::shared_ptr<TaskState> task) : task_(std::move(task)) {}

    // ---- Its definition, changed in memory and stored by Save
    int32_t SetApplicationName(const char16_t* text) override { return SetText(text, &Definition().application); }
    int32_t SetCreator(const char16_t* text) override { return SetText(text, &Definition().creator); }
    int32_t SetComment(const char16_t* text) override { return SetText(text, &Definition().comment); }
    int32_t SetWorkingDirectory(const char16_t* text) override {
        return SetText(text, &Definition().workingDirectory);
    }
    int32_t SetParameters(const char16_t* text) override { return SetText(text, &Definition().parameters); }
    int32_t SetAccountInformation(const char16_t* account, const char16_t* password) override {
        if (account == nullptr) return kInvalidArgument;
        Definition().account = std::u16string(account);
        Definition().passwordGiven = password != nullptr;
        return kOk;
    }
    int32_t SetWorkItemData(uint16_t count, const uint8_t* data) override {
        if (count != 0 && data == nullptr) return kInvalidArgument;
        Definition().workItemData.assign(data, data + count);
        return kOk;
    }
    int32_t SetMaxRunTime(uint32_t milliseconds) override {
        Definition().maxRunTime = milliseconds;
        return kOk;
    }
    int32_t SetFlags(uint32_t flags) override {
        Definition().flags = flags;
        return kOk;
    }
    int32_t GetFlags(uint32_t* flags) override { return Out(flags, Definition().flags); }

    int32_t GetAccountInformation(char16_t** text) override {
        if (text == nullptr) return kInvalidArgument;
        *text = nullptr;
        if (!Definition().account) return kAccountInformationNotSet;
        return HandOut(*Definition().account, text);
    }
    int32_t GetComment(char16_t** text) override { return GetText(Definition().comment, text); }
    int32_t GetCreator(char16_t** text) override { return GetText(Definition().creator, text); }
    int32_t GetApplicationName(char16_t** text) override { return GetText(Definition().application, text); }
    int32_t GetParameters(char16_t** text) override { return GetText(Definition().parameters, text); }
    int32_t GetWorkingDirectory(char16_t** text) override { return GetText(Definition().workingDirectory, text); }
    int32_t GetWorkItemData(uint16_t* count, uint8_t** data) override {
        if (count == nullptr || data == nullptr) return kInvalidArgument;
        return HandOut(Definition().workItemData, count, data);
    }

    int32_t GetMaxRunTime(uint32_t* milliseconds) override { return Out(milliseconds, Definition().maxRunTime); }
    int32_t GetPriority(uint32_t* priority) override { return Out(priority, Definition().priority); }
    int32_t GetIdleWait(uint16_t* idleMinutes, uint16_t* deadlineMinutes) override {
        if (idleMinutes == nullptr || deadlineMinutes == nullptr) return kInvalidArgument;
        *idleMinutes = Definition().idleMinutes;
        *deadlineMinutes = Definition().deadlineMinutes;
        return kOk;
    }

    // ---- Its runs
    int32_t Run() override {
        jobs::Record after;
        const int32_t result = jobs::RunStoredTask(task_->store, task_->fileName, NowInstant(), &after);
        task_->Adopt(after);
        return result;
    }
    int32_t Terminate() override {
        jobs::Record after;
        const int32_t result = jobs::TerminateStoredTask(task_->store, task_->fileName, &after);
        task_->Adopt(after);
        return result;
    }
    int32_t GetStatus(int32_t* status) override {
        if (status == nullptr) return kInvalidArgument;
        *status = StatusOf(task_->record);
        return kOk;
    }
    int32_t GetExitCode(uint32_t* code) override {
        return code == nullptr ? kInvalidArgument : ExitCodeOf(task_->record.run, code);
    }
    int32_t GetMostRecentRunTime(SystemTime* time) override {
        return time == nullptr ? kInvalidArgument : LastRunOf(task_->record.run, time);
    }
    int32_t GetNextRunTime(SystemTime* time) override {
        return time == nullptr ? kInvalidArgument : NextRunOf(task_->record, time);
    }

    // ---- Its triggers
    int32_t GetTriggerCount(uint16_t* count) override {
        return Out(count, static_cast<uint16_t>(task_->Triggers().size()));
    }
    int32_t CreateTrigger(uint16_t* index, std::unique_ptr<Trigger>* trigger) override {
        if (index == nullptr || trigger == nullptr) return kInvalidArgument;
        if (task_->Triggers().size() >= 0xFFFF) return kOutOfMemory;
        const uint64_t handle = task_->AddTrigger(NewTrigger(ToSystemTime(NowInstant(), SystemTimeZone())));
        *index = static_cast<uint16_t>(task_->Triggers().size() - 1);
        *trigger = std::make_unique<JobTrigger>(task_, handle);
        return kOk;
    }
    int32_t GetTrigger(uint16_t index, std::unique_ptr<Trigger>* trigger) override {
        if (trigger == nullptr) return kInvalidArgument;
        if (index >= task_->Triggers().size()) return kTriggerNotFound;
        *trigger = std::make_unique<JobTrigger>(task_, task_->HandleAt(index));
        return kOk;
    }
    int32_t DeleteTrigger(uint16_t index) override {
        if (index >= task_->Triggers().size()) return kTriggerNotFound;
        task_->DeleteTrigger(index);
        return kOk;
    }
    int32_t GetTriggerString(uint16_t index, char16_t** text) override {
        if (text == nullptr) return kInvalidArgument;
        *text = nullptr;
        if (index >= task_->Triggers().size()) return kTriggerNotFound;
        return HandOut(TriggerText(task_->Triggers()[index]), text);
    }

    int32_t QueryPersistFile(std::unique_ptr<PersistFile>* persist) override {
        if (persist == nullptr) return kInvalidArgument;
        *persist = std::make_unique<JobPersist>(task_);
        return kOk;
    }

private:
    jobs::Definition& Definition() { return task_->record.definition; }

    static int32_t SetText(const char16_t* text, std::u16string* into) {
        if (text == nullptr) return kInvalidArgument;
        *into = text;
        return kOk;
    }
    static int32_t GetText(const std::u16string& text, char16_t** out) {
        if (out == nullptr) return kInvalidArgument;
        return HandOut(text, out);
    }
    template <class T>
    static int32_t Out(T* out, T value) {
        if (out == nullptr) return kInvalidArgument;
        *out = value;
        return kOk;
    }

    std::shared_ptr<TaskState> task_;
};

class JobEnumerator final : public WorkItemEnumerator {
public:
    explicit JobEnumerator(std::vector<std::string> names) : names_(std::move(names)) {}

    int32_t Next(uint32_t count, char16_t*** names, uint32_t* fetched) override {
        if (names == nullptr || fetched == nullptr || count == 0) return kInvalidArgument;
        *names = nullptr;
        *fetched = 0;
        const size_t n = std::min<size_t>(count, names_.size() - next_);
        if (n == 0) return kFalse;
        auto** array = static_cast<char16_t**>(std::calloc(n, sizeof(char16_t*)));
        if (array == nullptr) return kOutOfMemory;
        for (size_t i = 0; i < n; ++i) {
            // Listed names are UTF-8 by the store's choosing.
            if (HandOut(jobs::ToUtf16(names_[next_ + i]).value_or(u""), &array[i]) < 0) {
                for (size_t k = 0; k < i; ++k) std::free(array[k]);
                std::free(array);
                return kOutOfMemory;
            }
        }
        next_ += n;
        *names = array;
        *fetched = static_cast<uint32_t>(n);
        return n == count ? kOk : kFalse;
    }

private:
    std::vector<std::string> names_;
    size_t next_ = 0;
};

class JobScheduler final : public Scheduler {
public:
    explicit JobScheduler(jobs::Store store) : store_(std::move(store)) {}

    int32_t Enum(std::unique_ptr<WorkItemEnumerator>* enumerator) override {
        if (enumerator == nullptr) return kInvalidArgument;
        std::vector<std::string> names;
        const int32_t result = store_.List(&names);
        if (result < 0) return result;
        *enumerator = std::make_unique<JobEnumerator>(std::move(names));
        return kOk;
    }

    int32_t Activate(const char16_t* name, std::unique_ptr<Task>* task) override {
        if (task == nullptr) return kInvalidArgument;
        std::string fileName, stored;
        int32_t result = jobs::FileNameOf(name, &fileName);
        if (result < 0 || (result = store_.Resolve(fileName, &stored)) < 0) return result;
        jobs::Record record;
        if ((result = store_.Read(stored, &record)) < 0) return result;
        *task = std::make_unique<JobTask>(std::make_shared<TaskState>(store_, stored, std::move(record)));
        return kOk;
    }

    int32_t Delete(const char16_t* name) override {
        std::string fileName, stored;
        int32_t result = jobs::FileNameOf(name, &fileName);
        if (result < 0) return result;
        jobs::StoreLock lock;
        if ((result = store_.Lock(&lock)) < 0 || (result = store_.Resolve(fileName, &stored)) < 0) return result;
        return store_.Remove(stored);
    }

    int32_t NewWorkItem(const char16_t* name, std::unique_ptr<Task>* task) override {
        if (task == nullptr) return kInvalidArgument;
        std::string fileName, stored;
        int32_t result = jobs::FileNameOf(name, &fileName);
        if (result < 0) return result;
        result = store_.Resolve(fileName, &stored);
        if (result == kOk) return kFileExists;
        if (result != kFileNotFound) return result;
        jobs::Record record;
        record.identity = NewIdentity();
        *task = std::make_unique<JobTask>(std::make_shared<TaskState>(store_, fileName, std::move(record)));
        return kOk;
    }

private:
    jobs::Store store_;
};

// Initialize counts per thread, as the platform's does.
thread_local uint32_t initializeDepth = 0;

class JobSource final : public SchedulerSource {
public:
    int32_t Initialize() override { return initializeDepth++ == 0 ? kOk : kFalse; }
    void Uninitialize() override {
        if (initializeDepth > 0) --initializeDepth;
    }
    int32_t CreateScheduler(std::unique_ptr<Scheduler>* scheduler) override {
        if (scheduler == nullptr) return kInvalidArgument;
        scheduler->reset();
        if (initializeDepth == 0) return jobs::kNotInitialized;
        jobs::Store store;
        const int32_t result = jobs::Store::Open(jobs::DefaultFolder(), &store);
        if (result < 0) return result;
        *scheduler = std::make_unique<JobScheduler>(std::move(store));
        return kOk;
    }
    void FreeMemory(void* block) override { std::free(block); }
};

}  // namespace

SchedulerSource& SystemScheduler() {
    static JobSource source;
    return source;
}

}  // namespace vrn::tasks
