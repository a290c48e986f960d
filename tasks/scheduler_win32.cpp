// The system's task scheduler through its COM interfaces: each seam method is
// one call of the interface behind it. A few adaptors absorb where wine's
// scheduler answers otherwise than Windows'; on Windows each leaves the
// system's answer as it is.
#include <windows.h>
#include <mstask.h>
#include <objidl.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "tasks/scheduler.h"
#include "tasks/trigger_text.h"

namespace vrn::tasks {
namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t));
static_assert(sizeof(HRESULT) == sizeof(int32_t));

// Ours and the system's records are the same bytes, so they are copied as such.
#define VRN_SAME_FIELD(ours, theirs, field) \
    static_assert(offsetof(ours, field) == offsetof(theirs, field) && sizeof(ours::field) == sizeof(theirs::field))
static_assert(sizeof(TASK_TRIGGER) == sizeof(::TASK_TRIGGER));
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, cbTriggerSize);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, wBeginYear);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, wEndDay);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, wStartMinute);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, MinutesDuration);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, MinutesInterval);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, rgFlags);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, TriggerType);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, Type);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, Reserved2);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, wRandomMinutesInterval);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, Type.MonthlyDate.rgfMonths);
VRN_SAME_FIELD(TASK_TRIGGER, ::TASK_TRIGGER, Type.MonthlyDOW.rgfMonths);
#undef VRN_SAME_FIELD
static_assert(sizeof(SystemTime) == sizeof(::SYSTEMTIME) && offsetof(SystemTime, year) == offsetof(::SYSTEMTIME, wYear) &&
              offsetof(SystemTime, dayOfWeek) == offsetof(::SYSTEMTIME, wDayOfWeek) &&
              offsetof(SystemTime, day) == offsetof(::SYSTEMTIME, wDay) &&
              offsetof(SystemTime, hour) == offsetof(::SYSTEMTIME, wHour) &&
              offsetof(SystemTime, milliseconds) == offsetof(::SYSTEMTIME, wMilliseconds));

LPCWSTR Wide(const char16_t* text) { return reinterpret_cast<LPCWSTR>(text); }
LPWSTR* Wide(char16_t** text) { return reinterpret_cast<LPWSTR*>(text); }

// One reference to a COM object, released with its owner.
template <class I>
class ComRef {
public:
    ComRef() = default;
    explicit ComRef(I* object) : object_(object) {}
    ~ComRef() { Reset(); }
    ComRef(const ComRef&) = delete;
    ComRef& operator=(const ComRef&) = delete;
    I* operator->() const { return object_; }
    I* Get() const { return object_; }
    I** Out() {
        Reset();
        return &object_;
    }
    void** OutVoid() { return reinterpret_cast<void**>(Out()); }
    IUnknown** OutUnknown() { return reinterpret_cast<IUnknown**>(Out()); }
    I* Detach() { return std::exchange(object_, nullptr); }

private:
    void Reset() {
        if (object_ != nullptr) std::exchange(object_, nullptr)->Release();
    }

    I* object_ = nullptr;
};

// Hands the reference over to a new seam object; on failure the reference
// stays with `ref` and is released there.
template <class Seam, class Adaptor, class I>
int32_t HandOut(ComRef<I>& ref, std::unique_ptr<Seam>* out) {
    auto* made = new (std::nothrow) Adaptor(ref.Get());
    if (made == nullptr) return kOutOfMemory;
    ref.Detach();
    out->reset(made);
    return kOk;
}

class ComTrigger final : public Trigger {
public:
    explicit ComTrigger(ITaskTrigger* trigger) : trigger_(trigger) {}

    int32_t SetTrigger(const TASK_TRIGGER& trigger) override {
        ::TASK_TRIGGER system;
        std::memcpy(&system, &trigger, sizeof system);
        return trigger_->SetTrigger(&system);
    }
    int32_t GetTrigger(TASK_TRIGGER* trigger) override {
        ::TASK_TRIGGER system;
        std::memcpy(&system, trigger, sizeof system);  // the caller's cbTriggerSize goes in
        const HRESULT result = trigger_->GetTrigger(&system);
        if (SUCCEEDED(result)) std::memcpy(trigger, &system, sizeof system);
        return result;
    }

private:
    ComRef<ITaskTrigger> trigger_;
};

class ComPersistFile final : public PersistFile {
public:
    explicit ComPersistFile(IPersistFile* persist) : persist_(persist) {}

    int32_t Save(const char16_t* fileName, bool remember) override {
        return persist_->Save(Wide(fileName), remember ? TRUE : FALSE);
    }

private:
    ComRef<IPersistFile> persist_;
};

int32_t ReadTime(HRESULT result, const ::SYSTEMTIME& system, SystemTime* time) {
    std::memcpy(time, &system, sizeof system);
    return result;
}

class ComTask final : public Task {
public:
    explicit ComTask(ITask* task) : task_(task) {}

    int32_t SetApplicationName(const char16_t* text) override { return task_->SetApplicationName(Wide(text)); }
    int32_t SetCreator(const char16_t* text) override { return task_->SetCreator(Wide(text)); }
    int32_t SetComment(const char16_t* text) override { return task_->SetComment(Wide(text)); }
    int32_t SetWorkingDirectory(const char16_t* text) override { return task_->SetWorkingDirectory(Wide(text)); }
    int32_t SetParameters(const char16_t* text) override { return task_->SetParameters(Wide(text)); }
    int32_t SetAccountInformation(const char16_t* account, const char16_t* password) override {
        return task_->SetAccountInformation(Wide(account), Wide(password));
    }
    int32_t SetWorkItemData(uint16_t count, const uint8_t* data) override {
        // The interface takes the bytes as non-const but only reads them.
        return task_->SetWorkItemData(count, const_cast<BYTE*>(data));
    }
    int32_t SetMaxRunTime(uint32_t milliseconds) override { return task_->SetMaxRunTime(milliseconds); }
    int32_t SetFlags(uint32_t flags) override { return task_->SetFlags(flags); }
    int32_t GetFlags(uint32_t* flags) override {
        DWORD value = 0;
        const HRESULT result = task_->GetFlags(&value);
        *flags = value;
        return result;
    }

    int32_t Run() override { return task_->Run(); }
    int32_t Terminate() override { return task_->Terminate(); }
    int32_t GetStatus(int32_t* status) override {
        HRESULT value = 0;
        const HRESULT result = task_->GetStatus(&value);
        *status = value;
        return result;
    }

    int32_t GetAccountInformation(char16_t** text) override { return task_->GetAccountInformation(Wide(text)); }
    int32_t GetComment(char16_t** text) override { return task_->GetComment(Wide(text)); }
    int32_t GetCreator(char16_t** text) override { return task_->GetCreator(Wide(text)); }
    int32_t GetApplicationName(char16_t** text) override { return task_->GetApplicationName(Wide(text)); }
    int32_t GetParameters(char16_t** text) override { return task_->GetParameters(Wide(text)); }
    int32_t GetWorkingDirectory(char16_t** text) override { return task_->GetWorkingDirectory(Wide(text)); }
    int32_t GetWorkItemData(uint16_t* count, uint8_t** data) override {
        WORD bytes = 0;
        BYTE* block = nullptr;
        const HRESULT result = task_->GetWorkItemData(&bytes, &block);
        *count = bytes;
        *data = block;
        return result;
    }

    int32_t GetExitCode(uint32_t* code) override {
        DWORD value = 0;
        const HRESULT result = task_->GetExitCode(&value);
        *code = value;
        return result;
    }
    int32_t GetMaxRunTime(uint32_t* milliseconds) override {
        DWORD value = 0;
        const HRESULT result = task_->GetMaxRunTime(&value);
        *milliseconds = value;
        return result;
    }
    int32_t GetPriority(uint32_t* priority) override {
        DWORD value = 0;
        const HRESULT result = task_->GetPriority(&value);
        *priority = value;
        return result;
    }
    int32_t GetMostRecentRunTime(SystemTime* time) override {
        ::SYSTEMTIME system{};
        return ReadTime(task_->GetMostRecentRunTime(&system), system, time);
    }
    int32_t GetNextRunTime(SystemTime* time) override {
        ::SYSTEMTIME system{};
        return ReadTime(task_->GetNextRunTime(&system), system, time);
    }
    int32_t GetIdleWait(uint16_t* idleMinutes, uint16_t* deadlineMinutes) override {
        WORD idle = 0;
        WORD deadline = 0;
        const HRESULT result = task_->GetIdleWait(&idle, &deadline);
        *idleMinutes = idle;
        *deadlineMinutes = deadline;
        return result;
    }

    int32_t GetTriggerCount(uint16_t* count) override {
        WORD value = 0;
        const HRESULT result = task_->GetTriggerCount(&value);
        *count = value;
        return result;
    }
    int32_t CreateTrigger(uint16_t* index, std::unique_ptr<Trigger>* trigger) override {
        trigger->reset();
        WORD value = 0;
        ComRef<ITaskTrigger> made;
        const HRESULT result = task_->CreateTrigger(&value, made.Out());
        *index = value;
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<Trigger, ComTrigger>(made, trigger);
        return handed == kOk ? result : handed;
    }
    int32_t GetTrigger(uint16_t index, std::unique_ptr<Trigger>* trigger) override {
        trigger->reset();
        ComRef<ITaskTrigger> found;
        const HRESULT result = task_->GetTrigger(index, found.Out());
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<Trigger, ComTrigger>(found, trigger);
        return handed == kOk ? result : handed;
    }
    int32_t DeleteTrigger(uint16_t index) override { return task_->DeleteTrigger(index); }
    int32_t GetTriggerString(uint16_t index, char16_t** text) override {
        const HRESULT result = task_->GetTriggerString(index, Wide(text));
        // Wine has no trigger texts (E_NOTIMPL); ours read as the system's do.
        return result == E_NOTIMPL ? TextOfTrigger(index, text) : result;
    }

    int32_t QueryPersistFile(std::unique_ptr<PersistFile>* persist) override {
        persist->reset();
        ComRef<IPersistFile> found;
        const HRESULT result = task_->QueryInterface(IID_IPersistFile, found.OutVoid());
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<PersistFile, ComPersistFile>(found, persist);
        return handed == kOk ? result : handed;
    }

private:
    int32_t TextOfTrigger(uint16_t index, char16_t** text) {
        ComRef<ITaskTrigger> trigger;
        HRESULT result = task_->GetTrigger(index, trigger.Out());
        if (FAILED(result)) return result;
        ::TASK_TRIGGER system{};
        system.cbTriggerSize = sizeof system;
        result = trigger->GetTrigger(&system);
        if (FAILED(result)) return result;
        TASK_TRIGGER ours;
        std::memcpy(&ours, &system, sizeof ours);
        const std::u16string words = TriggerText(ours);
        const size_t bytes = (words.size() + 1) * sizeof(char16_t);
        auto* copy = static_cast<char16_t*>(CoTaskMemAlloc(bytes));
        if (copy == nullptr) return kOutOfMemory;
        std::memcpy(copy, words.c_str(), bytes);
        *text = copy;
        return kOk;
    }

    ComRef<ITask> task_;
};

class ComEnumerator final : public WorkItemEnumerator {
public:
    explicit ComEnumerator(IEnumWorkItems* items) : items_(items) {}

    int32_t Next(uint32_t count, char16_t*** names, uint32_t* fetched) override {
        LPWSTR* array = nullptr;
        ULONG got = 0;
        const HRESULT result = items_->Next(count, &array, &got);
        *names = reinterpret_cast<char16_t**>(array);
        *fetched = got;
        return result;
    }

private:
    ComRef<IEnumWorkItems> items_;
};

// Wine refuses every name that holds a dot (E_INVALIDARG), while its Next
// hands out names ending in ".job" and the procedures pass those on. Retried
// once without that ending (any case); Windows takes both forms at once.
template <class Call>
HRESULT ByName(const char16_t* name, Call call) {
    HRESULT result = call(Wide(name));
    if (result != E_INVALIDARG) return result;
    const size_t length = std::char_traits<char16_t>::length(name);
    constexpr char16_t kSuffix[] = u".job";
    if (length < 4) return result;
    for (size_t i = 0; i < 4; ++i) {
        char16_t c = name[length - 4 + i];
        if (c >= u'A' && c <= u'Z') c = static_cast<char16_t>(c - u'A' + u'a');
        if (c != kSuffix[i]) return result;
    }
    const std::u16string bare(name, length - 4);
    return call(Wide(bare.c_str()));
}

class ComScheduler final : public Scheduler {
public:
    explicit ComScheduler(ITaskScheduler* scheduler) : scheduler_(scheduler) {}

    int32_t Enum(std::unique_ptr<WorkItemEnumerator>* enumerator) override {
        enumerator->reset();
        ComRef<IEnumWorkItems> items;
        const HRESULT result = scheduler_->Enum(items.Out());
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<WorkItemEnumerator, ComEnumerator>(items, enumerator);
        return handed == kOk ? result : handed;
    }

    int32_t Activate(const char16_t* name, std::unique_ptr<Task>* task) override {
        task->reset();
        ComRef<ITask> found;
        const HRESULT result = Open(name, found);
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<Task, ComTask>(found, task);
        return handed == kOk ? result : handed;
    }

    int32_t Delete(const char16_t* name) override {
        // A null name crashes wine's scheduler, and the host with it.
        if (name == nullptr) return kInvalidArgument;
        // Wine's service reads a job file whenever it changes (a Save, a Run),
        // and a Delete that meets the read fails with a sharing violation.
        const ULONGLONG start = GetTickCount64();
        for (;;) {
            const HRESULT result = ByName(name, [this](LPCWSTR n) { return scheduler_->Delete(n); });
            if (result != kSharingViolation || GetTickCount64() - start >= kDeleteRetryMs) return result;
            Sleep(kDeleteRetryPauseMs);
        }
    }

    int32_t NewWorkItem(const char16_t* name, std::unique_ptr<Task>* task) override {
        task->reset();
        if (name == nullptr) return kInvalidArgument;
        // Wine gives a fresh task over an existing one; Windows refuses the name.
        {
            ComRef<ITask> existing;
            if (SUCCEEDED(Open(name, existing))) return kFileExists;
        }
        ComRef<ITask> made;
        const HRESULT result = ByName(name, [this, &made](LPCWSTR n) {
            return scheduler_->NewWorkItem(n, CLSID_CTask, IID_ITask, made.OutUnknown());
        });
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<Task, ComTask>(made, task);
        return handed == kOk ? result : handed;
    }

private:
    static constexpr ULONGLONG kDeleteRetryMs = 2000;
    static constexpr DWORD kDeleteRetryPauseMs = 20;

    HRESULT Open(const char16_t* name, ComRef<ITask>& task) {
        // A null name crashes wine's scheduler, and the host with it.
        if (name == nullptr) return kInvalidArgument;
        return ByName(name, [this, &task](LPCWSTR n) {
            return scheduler_->Activate(n, IID_ITask, task.OutUnknown());
        });
    }

    ComRef<ITaskScheduler> scheduler_;
};

class ComSource final : public SchedulerSource {
public:
    int32_t Initialize() override { return CoInitialize(nullptr); }
    void Uninitialize() override { CoUninitialize(); }
    int32_t CreateScheduler(std::unique_ptr<Scheduler>* scheduler) override {
        scheduler->reset();
        ComRef<ITaskScheduler> made;
        const HRESULT result =
            CoCreateInstance(CLSID_CTaskScheduler, nullptr, CLSCTX_INPROC_SERVER, IID_ITaskScheduler, made.OutVoid());
        if (FAILED(result)) return result;
        const int32_t handed = HandOut<Scheduler, ComScheduler>(made, scheduler);
        return handed == kOk ? result : handed;
    }
    void FreeMemory(void* block) override { CoTaskMemFree(block); }
};

}  // namespace

SchedulerSource& SystemScheduler() {
    static ComSource source;
    return source;
}

}  // namespace vrn::tasks
