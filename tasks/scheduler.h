// The task scheduler as the task procedures use it: exactly the operations
// they call, each answering an HRESULT as int32_t. Windows fills it with the
// system's scheduler (scheduler_win32.cpp), Linux with a job store of our own
// (scheduler_posix.cpp); tests swap in their own source.
//
// Ownership: an object handed out through a std::unique_ptr is the caller's and
// is released by its destruction. Texts and arrays handed out as raw pointers
// are the caller's too, and go back through FreeMemory of the source that gave
// them (SchedulerMemory owns one).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frame/platform.h"

namespace vrn::tasks {

// ---- Published values, under our own names (the system's are macros).
inline constexpr int32_t kOk = 0;
inline constexpr int32_t kFalse = 1;  // success: already so (a second Initialize on a thread)
inline constexpr int32_t kNotImplemented = static_cast<int32_t>(0x80004001u);
inline constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);
inline constexpr int32_t kFileNotFound = static_cast<int32_t>(0x80070002u);
inline constexpr int32_t kAccessDenied = static_cast<int32_t>(0x80070005u);
inline constexpr int32_t kOutOfMemory = static_cast<int32_t>(0x8007000Eu);
inline constexpr int32_t kSharingViolation = static_cast<int32_t>(0x80070020u);
inline constexpr int32_t kFileExists = static_cast<int32_t>(0x80070050u);
inline constexpr int32_t kInvalidArgument = static_cast<int32_t>(0x80070057u);

// Status words (successes) and failures of the scheduler.
inline constexpr int32_t kTaskReady = 0x00041300;
inline constexpr int32_t kTaskRunning = 0x00041301;
inline constexpr int32_t kTaskDisabled = 0x00041302;
inline constexpr int32_t kTaskHasNotRun = 0x00041303;
inline constexpr int32_t kTaskNoMoreRuns = 0x00041304;
inline constexpr int32_t kTaskNotScheduled = 0x00041305;
inline constexpr int32_t kTaskTerminated = 0x00041306;
inline constexpr int32_t kTaskNoValidTriggers = 0x00041307;
inline constexpr int32_t kTriggerNotFound = static_cast<int32_t>(0x80041309u);
inline constexpr int32_t kTaskNotRunning = static_cast<int32_t>(0x8004130Bu);
inline constexpr int32_t kInvalidTask = static_cast<int32_t>(0x8004130Eu);
inline constexpr int32_t kAccountInformationNotSet = static_cast<int32_t>(0x8004130Fu);

// Work item flags.
inline constexpr uint32_t kTaskFlagInteractive = 0x1;
inline constexpr uint32_t kTaskFlagDeleteWhenDone = 0x2;
inline constexpr uint32_t kTaskFlagDisabled = 0x4;

// A new task's defaults.
inline constexpr uint32_t kNormalPriorityClass = 0x20;
inline constexpr uint32_t kDefaultMaxRunTime = 259200000;  // 72 hours, in ms
inline constexpr uint16_t kDefaultIdleMinutes = 10;
inline constexpr uint16_t kDefaultDeadlineMinutes = 60;

// Trigger types, flags, days, months and weeks.
enum TriggerType : int32_t {
    kTriggerOnce = 0,
    kTriggerDaily = 1,
    kTriggerWeekly = 2,
    kTriggerMonthlyDate = 3,
    kTriggerMonthlyDow = 4,
    kTriggerOnIdle = 5,
    kTriggerAtSystemStart = 6,
    kTriggerAtLogon = 7,
};
inline constexpr uint32_t kTriggerFlagHasEndDate = 0x1;
inline constexpr uint32_t kTriggerFlagKillAtDurationEnd = 0x2;
inline constexpr uint32_t kTriggerFlagDisabled = 0x4;
inline constexpr uint16_t kSunday = 0x1;  // Monday 0x2 ... Saturday 0x40
inline constexpr uint16_t kAllDays = 0x7F;
inline constexpr uint16_t kAllMonths = 0xFFF;  // January 0x1 ... December 0x800
inline constexpr uint16_t kFirstWeek = 1;  // ... fourth 4
inline constexpr uint16_t kLastWeek = 5;

// The platform's trigger record, byte for byte (48 bytes).
struct DAILY {
    uint16_t DaysInterval;
};
struct WEEKLY {
    uint16_t WeeksInterval;
    uint16_t rgfDaysOfTheWeek;
};
struct MONTHLYDATE {
    uint32_t rgfDays;  // bit 0 is day 1
    uint16_t rgfMonths;
};
struct MONTHLYDOW {
    uint16_t wWhichWeek;
    uint16_t rgfDaysOfTheWeek;
    uint16_t rgfMonths;
};
union TRIGGER_TYPE_UNION {
    DAILY Daily;
    WEEKLY Weekly;
    MONTHLYDATE MonthlyDate;
    MONTHLYDOW MonthlyDOW;
};
struct TASK_TRIGGER {
    uint16_t cbTriggerSize;
    uint16_t Reserved1;
    uint16_t wBeginYear;
    uint16_t wBeginMonth;
    uint16_t wBeginDay;
    uint16_t wEndYear;
    uint16_t wEndMonth;
    uint16_t wEndDay;
    uint16_t wStartHour;
    uint16_t wStartMinute;
    uint32_t MinutesDuration;
    uint32_t MinutesInterval;
    uint32_t rgFlags;
    int32_t TriggerType;
    TRIGGER_TYPE_UNION Type;
    uint16_t Reserved2;
    uint16_t wRandomMinutesInterval;
};
static_assert(sizeof(TASK_TRIGGER) == 48 && offsetof(TASK_TRIGGER, TriggerType) == 32 &&
              offsetof(TASK_TRIGGER, Type) == 36 && offsetof(TASK_TRIGGER, Reserved2) == 44);

using SystemTime = platform::SystemTime;  // all zero: no such time

// ---- The operations.
class Trigger {
public:
    virtual ~Trigger() = default;
    [[nodiscard]] virtual int32_t SetTrigger(const TASK_TRIGGER& trigger) = 0;
    [[nodiscard]] virtual int32_t GetTrigger(TASK_TRIGGER* trigger) = 0;
};

// The way to save a task: Save(null, true) stores it under its name.
class PersistFile {
public:
    virtual ~PersistFile() = default;
    [[nodiscard]] virtual int32_t Save(const char16_t* fileName, bool remember) = 0;
};

class Task {
public:
    virtual ~Task() = default;
    // Changes in memory, stored by Save. A null text is the caller's to avoid;
    // the procedures never pass one.
    [[nodiscard]] virtual int32_t SetApplicationName(const char16_t* text) = 0;
    [[nodiscard]] virtual int32_t SetCreator(const char16_t* text) = 0;
    [[nodiscard]] virtual int32_t SetComment(const char16_t* text) = 0;
    [[nodiscard]] virtual int32_t SetWorkingDirectory(const char16_t* text) = 0;
    [[nodiscard]] virtual int32_t SetParameters(const char16_t* text) = 0;
    [[nodiscard]] virtual int32_t SetAccountInformation(const char16_t* account, const char16_t* password) = 0;
    [[nodiscard]] virtual int32_t SetWorkItemData(uint16_t count, const uint8_t* data) = 0;
    [[nodiscard]] virtual int32_t SetMaxRunTime(uint32_t milliseconds) = 0;
    [[nodiscard]] virtual int32_t SetFlags(uint32_t flags) = 0;
    [[nodiscard]] virtual int32_t GetFlags(uint32_t* flags) = 0;

    // Act at once; nothing waits for their effect.
    [[nodiscard]] virtual int32_t Run() = 0;
    [[nodiscard]] virtual int32_t Terminate() = 0;
    [[nodiscard]] virtual int32_t GetStatus(int32_t* status) = 0;

    // Texts the caller frees with FreeMemory.
    [[nodiscard]] virtual int32_t GetAccountInformation(char16_t** text) = 0;
    [[nodiscard]] virtual int32_t GetComment(char16_t** text) = 0;
    [[nodiscard]] virtual int32_t GetCreator(char16_t** text) = 0;
    [[nodiscard]] virtual int32_t GetApplicationName(char16_t** text) = 0;
    [[nodiscard]] virtual int32_t GetParameters(char16_t** text) = 0;
    [[nodiscard]] virtual int32_t GetWorkingDirectory(char16_t** text) = 0;
    // *data (FreeMemory) is null when *count is 0.
    [[nodiscard]] virtual int32_t GetWorkItemData(uint16_t* count, uint8_t** data) = 0;

    [[nodiscard]] virtual int32_t GetExitCode(uint32_t* code) = 0;
    [[nodiscard]] virtual int32_t GetMaxRunTime(uint32_t* milliseconds) = 0;
    [[nodiscard]] virtual int32_t GetPriority(uint32_t* priority) = 0;
    // Year, month and day are 0 when there is no such time.
    [[nodiscard]] virtual int32_t GetMostRecentRunTime(SystemTime* time) = 0;
    [[nodiscard]] virtual int32_t GetNextRunTime(SystemTime* time) = 0;
    [[nodiscard]] virtual int32_t GetIdleWait(uint16_t* idleMinutes, uint16_t* deadlineMinutes) = 0;

    [[nodiscard]] virtual int32_t GetTriggerCount(uint16_t* count) = 0;
    [[nodiscard]] virtual int32_t CreateTrigger(uint16_t* index, std::unique_ptr<Trigger>* trigger) = 0;
    [[nodiscard]] virtual int32_t GetTrigger(uint16_t index, std::unique_ptr<Trigger>* trigger) = 0;
    [[nodiscard]] virtual int32_t DeleteTrigger(uint16_t index) = 0;
    [[nodiscard]] virtual int32_t GetTriggerString(uint16_t index, char16_t** text) = 0;

    [[nodiscard]] virtual int32_t QueryPersistFile(std::unique_ptr<PersistFile>* persist) = 0;
};

class WorkItemEnumerator {
public:
    virtual ~WorkItemEnumerator() = default;
    // Up to count file names, each ending in ".job". The array and every name
    // are the caller's (FreeMemory). A failure or *fetched 0 ends a walk; kFalse
    // says that fewer than count came.
    [[nodiscard]] virtual int32_t Next(uint32_t count, char16_t*** names, uint32_t* fetched) = 0;
};

class Scheduler {
public:
    virtual ~Scheduler() = default;
    [[nodiscard]] virtual int32_t Enum(std::unique_ptr<WorkItemEnumerator>* enumerator) = 0;
    // A null name gives kInvalidArgument. A name may come with or without ".job".
    [[nodiscard]] virtual int32_t Activate(const char16_t* name, std::unique_ptr<Task>* task) = 0;
    [[nodiscard]] virtual int32_t Delete(const char16_t* name) = 0;
    // A new task in memory, stored only by Save; kFileExists when the name is taken.
    [[nodiscard]] virtual int32_t NewWorkItem(const char16_t* name, std::unique_ptr<Task>* task) = 0;
};

// One platform's scheduler and its connection steps.
class SchedulerSource {
public:
    virtual ~SchedulerSource() = default;
    // kOk, or kFalse when the thread is initialised already: both owe an
    // Uninitialize. A failure owes nothing.
    [[nodiscard]] virtual int32_t Initialize() = 0;
    virtual void Uninitialize() = 0;
    // The scheduler of the local machine.
    [[nodiscard]] virtual int32_t CreateScheduler(std::unique_ptr<Scheduler>* scheduler) = 0;
    // Gives back a text or array that an operation of this source handed out; null is allowed.
    virtual void FreeMemory(void* block) = 0;
};

// The platform's scheduler.
SchedulerSource& SystemScheduler();
// What the procedures use: a source set for tests, else the system's.
SchedulerSource& CurrentScheduler();
// Sets the source that CurrentScheduler gives (null: the system's) and returns
// the one set before. The caller keeps it alive while it is set.
SchedulerSource* SetSchedulerSource(SchedulerSource* source);

// Owner of one text or array handed out by a source.
template <class T>
class SchedulerMemory {
public:
    explicit SchedulerMemory(SchedulerSource& source) : source_(source) {}
    ~SchedulerMemory() { source_.FreeMemory(block_); }
    SchedulerMemory(const SchedulerMemory&) = delete;
    SchedulerMemory& operator=(const SchedulerMemory&) = delete;
    // Where an operation writes the pointer; whatever was held is given back first.
    T** Out() {
        source_.FreeMemory(block_);
        block_ = nullptr;
        return &block_;
    }
    [[nodiscard]] T* Get() const { return block_; }

private:
    SchedulerSource& source_;
    T* block_ = nullptr;
};

}  // namespace vrn::tasks
