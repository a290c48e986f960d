#include "tests/procedures/scheduler_double.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tasks/params.h"

namespace vrn::tasks::testing {

namespace {

char16_t Fold(char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c; }

// As the store names its files: ".job" added unless the name ends so, in any case.
std::u16string FileName(const std::u16string& name) {
    constexpr std::u16string_view kSuffix = u".job";
    bool hasSuffix = name.size() >= kSuffix.size();
    for (size_t i = 0; hasSuffix && i < kSuffix.size(); ++i) {
        hasSuffix = Fold(name[name.size() - kSuffix.size() + i]) == kSuffix[i];
    }
    return hasSuffix ? name : name + u".job";
}

std::string Hex(int32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(value));
    return text;
}

// Counts itself among the double's objects while it lives.
class Counted {
public:
    explicit Counted(SchedulerDouble& d) : double_(d) { ++double_.objects; }
    virtual ~Counted() { --double_.objects; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

protected:
    SchedulerDouble& double_;
};

class DoubleTask;

class DoubleTrigger final : public Trigger, Counted {
public:
    DoubleTrigger(SchedulerDouble& d, DoubleTask& task, uint16_t index) : Counted(d), task_(task), index_(index) {}
    int32_t SetTrigger(const TASK_TRIGGER& trigger) override;
    int32_t GetTrigger(TASK_TRIGGER* trigger) override;

private:
    DoubleTask& task_;
    uint16_t index_;
};

class DoublePersist final : public PersistFile, Counted {
public:
    DoublePersist(SchedulerDouble& d, DoubleTask& task) : Counted(d), task_(task) {}
    int32_t Save(const char16_t* fileName, bool remember) override;

private:
    DoubleTask& task_;
};

// A task in memory: a copy of the stored one, written back by Save. Run and
// Terminate act on the store at once.
class DoubleTask final : public Task, Counted {
public:
    DoubleTask(SchedulerDouble& d, std::u16string name, StoredTask state)
        : Counted(d), name_(std::move(name)), state_(std::move(state)) {}

    StoredTask& state() { return state_; }
    const std::u16string& name() const { return name_; }

    int32_t SetApplicationName(const char16_t* t) override { return SetText("SetApplicationName", t, &state_.applicationName); }
    int32_t SetCreator(const char16_t* t) override { return SetText("SetCreator", t, &state_.creator); }
    int32_t SetComment(const char16_t* t) override { return SetText("SetComment", t, &state_.comment); }
    int32_t SetWorkingDirectory(const char16_t* t) override {
        return SetText("SetWorkingDirectory", t, &state_.workingDirectory);
    }
    int32_t SetParameters(const char16_t* t) override { return SetText("SetParameters", t, &state_.parameters); }
    int32_t SetAccountInformation(const char16_t* account, const char16_t* password) override {
        if (int32_t r = double_.Enter("SetAccountInformation", Utf8(account) + "," + Utf8(password))) return r;
        state_.account = account;
        state_.password = password ? std::optional<std::u16string>(password) : std::nullopt;
        return kOk;
    }
    int32_t SetWorkItemData(uint16_t count, const uint8_t* data) override {
        if (int32_t r = double_.Enter("SetWorkItemData", std::to_string(count))) return r;
        state_.data.assign(data, data + count);
        return kOk;
    }
    int32_t SetMaxRunTime(uint32_t ms) override {
        if (int32_t r = double_.Enter("SetMaxRunTime", std::to_string(ms))) return r;
        state_.maxRunTime = ms;
        return kOk;
    }
    int32_t SetFlags(uint32_t flags) override {
        if (int32_t r = double_.Enter("SetFlags", std::to_string(flags))) return r;
        state_.flags = flags;
        return kOk;
    }
    int32_t GetFlags(uint32_t* flags) override { return Get("GetFlags", flags, state_.flags); }

    int32_t Run() override {
        if (int32_t r = double_.Enter("Run")) return r;
        if (StoredTask* stored = Stored()) stored->status = kTaskRunning;
        return kOk;
    }
    int32_t Terminate() override {
        if (int32_t r = double_.Enter("Terminate")) return r;
        StoredTask* stored = Stored();
        if (stored == nullptr || stored->status != kTaskRunning) return kTaskNotRunning;
        stored->status = kTaskReady;
        return kOk;
    }
    int32_t GetStatus(int32_t* status) override { return Get("GetStatus", status, state_.status); }

    int32_t GetAccountInformation(char16_t** text) override {
        if (int32_t r = double_.Enter("GetAccountInformation")) return r;
        if (!state_.account) return kAccountInformationNotSet;
        *text = double_.CopyText(*state_.account);
        return kOk;
    }
    int32_t GetComment(char16_t** t) override { return GetText("GetComment", t, state_.comment); }
    int32_t GetCreator(char16_t** t) override { return GetText("GetCreator", t, state_.creator); }
    int32_t GetApplicationName(char16_t** t) override { return GetText("GetApplicationName", t, state_.applicationName); }
    int32_t GetParameters(char16_t** t) override { return GetText("GetParameters", t, state_.parameters); }
    int32_t GetWorkingDirectory(char16_t** t) override {
        return GetText("GetWorkingDirectory", t, state_.workingDirectory);
    }
    int32_t GetWorkItemData(uint16_t* count, uint8_t** data) override {
        if (int32_t r = double_.Enter("GetWorkItemData")) return r;
        *count = static_cast<uint16_t>(state_.data.size());
        *data = nullptr;
        if (!state_.data.empty()) {
            *data = static_cast<uint8_t*>(double_.Allocate(state_.data.size()));
            std::memcpy(*data, state_.data.data(), state_.data.size());
        }
        return kOk;
    }
    int32_t GetExitCode(uint32_t* code) override { return Get("GetExitCode", code, state_.exitCode); }
    int32_t GetMaxRunTime(uint32_t* ms) override { return Get("GetMaxRunTime", ms, state_.maxRunTime); }
    int32_t GetPriority(uint32_t* priority) override { return Get("GetPriority", priority, state_.priority); }
    int32_t GetMostRecentRunTime(SystemTime* time) override { return Get("GetMostRecentRunTime", time, state_.lastRun); }
    int32_t GetNextRunTime(SystemTime* time) override { return Get("GetNextRunTime", time, state_.nextRun); }
    int32_t GetIdleWait(uint16_t* idle, uint16_t* deadline) override {
        if (int32_t r = double_.Enter("GetIdleWait")) return r;
        *idle = state_.idleMinutes;
        *deadline = state_.deadlineMinutes;
        return kOk;
    }

    int32_t GetTriggerCount(uint16_t* count) override {
        return Get("GetTriggerCount", count, static_cast<uint16_t>(state_.triggers.size()));
    }
    int32_t CreateTrigger(uint16_t* index, std::unique_ptr<Trigger>* trigger) override {
        if (int32_t r = double_.Enter("CreateTrigger")) return r;
        *index = static_cast<uint16_t>(state_.triggers.size());
        state_.triggers.emplace_back();
        state_.triggers.back().cbTriggerSize = sizeof(TASK_TRIGGER);
        *trigger = std::make_unique<DoubleTrigger>(double_, *this, *index);
        return kOk;
    }
    int32_t GetTrigger(uint16_t index, std::unique_ptr<Trigger>* trigger) override {
        if (int32_t r = double_.Enter("GetTrigger", std::to_string(index))) return r;
        if (index >= state_.triggers.size()) return kTriggerNotFound;
        *trigger = std::make_unique<DoubleTrigger>(double_, *this, index);
        return kOk;
    }
    int32_t DeleteTrigger(uint16_t index) override {
        if (int32_t r = double_.Enter("DeleteTrigger", std::to_string(index))) return r;
        if (index >= state_.triggers.size()) return kTriggerNotFound;
        state_.triggers.erase(state_.triggers.begin() + index);
        return kOk;
    }
    int32_t GetTriggerString(uint16_t index, char16_t** text) override {
        if (int32_t r = double_.Enter("GetTriggerString", std::to_string(index))) return r;
        if (index >= state_.triggers.size()) return kTriggerNotFound;
        const TASK_TRIGGER& t = state_.triggers[index];
        char line[64];
        std::snprintf(line, sizeof line, "type %d at %02u:%02u", static_cast<int>(t.TriggerType),
                      unsigned{t.wStartHour}, unsigned{t.wStartMinute});
        *text = double_.CopyText(std::u16string(line, line + std::strlen(line)));
        return kOk;
    }

    int32_t QueryPersistFile(std::unique_ptr<PersistFile>* persist) override {
        if (int32_t r = double_.Enter("QueryPersistFile")) return r;
        *persist = std::make_unique<DoublePersist>(double_, *this);
        return kOk;
    }

private:
    StoredTask* Stored() {
        auto found = double_.tasks.find(name_);
        return found == double_.tasks.end() ? nullptr : &found->second;
    }
    int32_t SetText(const char* operation, const char16_t* text, std::u16string* into) {
        if (int32_t r = double_.Enter(operation, Utf8(text))) return r;
        *into = text;
        return kOk;
    }
    int32_t GetText(const char* operation, char16_t** text, const std::u16string& from) {
        if (int32_t r = double_.Enter(operation)) return r;
        *text = double_.CopyText(from);
        return kOk;
    }
    template <class T>
    int32_t Get(const char* operation, T* into, const T& from) {
        if (int32_t r = double_.Enter(operation)) return r;
        *into = from;
        return kOk;
    }

    std::u16string name_;
    StoredTask state_;
};

int32_t DoubleTrigger::SetTrigger(const TASK_TRIGGER& trigger) {
    if (int32_t r = double_.Enter("SetTrigger", std::to_string(trigger.wStartHour) + ":" +
                                                    std::to_string(trigger.wStartMinute) + " days " +
                                                    std::to_string(trigger.Type.Weekly.rgfDaysOfTheWeek))) {
        return r;
    }
    task_.state().triggers.at(index_) = trigger;
    return kOk;
}

int32_t DoubleTrigger::GetTrigger(TASK_TRIGGER* trigger) {
    if (int32_t r = double_.Enter("Trigger.GetTrigger")) return r;
    *trigger = task_.state().triggers.at(index_);
    return kOk;
}

int32_t DoublePersist::Save(const char16_t* fileName, bool remember) {
    if (int32_t r = double_.Enter("Save", std::string(fileName ? "name" : "null") + (remember ? ",true" : ",false"))) {
        return r;
    }
    double_.tasks[task_.name()] = task_.state();
    return kOk;
}

class DoubleEnumerator final : public WorkItemEnumerator, Counted {
public:
    DoubleEnumerator(SchedulerDouble& d, std::vector<std::u16string> names) : Counted(d), names_(std::move(names)) {}
    int32_t Next(uint32_t count, char16_t*** names, uint32_t* fetched) override {
        if (int32_t r = double_.Enter("Next", std::to_string(count))) return r;
        const size_t n = std::min<size_t>(count, names_.size() - position_);
        *fetched = static_cast<uint32_t>(n);
        *names = nullptr;
        if (n > 0) {
            *names = static_cast<char16_t**>(double_.Allocate(n * sizeof(char16_t*)));
            for (size_t i = 0; i < n; ++i) (*names)[i] = double_.CopyText(names_[position_ + i]);
        }
        position_ += n;
        return n == count ? kOk : kFalse;
    }

private:
    std::vector<std::u16string> names_;
    size_t position_ = 0;
};

class DoubleScheduler final : public Scheduler, Counted {
public:
    explicit DoubleScheduler(SchedulerDouble& d) : Counted(d) {}
    int32_t Enum(std::unique_ptr<WorkItemEnumerator>* enumerator) override {
        if (int32_t r = double_.Enter("Enum")) return r;
        std::vector<std::u16string> names;
        for (const auto& entry : double_.tasks) names.push_back(entry.first);
        *enumerator = std::make_unique<DoubleEnumerator>(double_, std::move(names));
        return kOk;
    }
    int32_t Activate(const char16_t* name, std::unique_ptr<Task>* task) override {
        if (int32_t r = double_.Enter("Activate", Utf8(name))) return r;
        if (name == nullptr) return kInvalidArgument;
        const StoredTask* stored = double_.Find(name);
        if (stored == nullptr) return kFileNotFound;
        *task = std::make_unique<DoubleTask>(double_, FileName(name), *stored);
        return kOk;
    }
    int32_t Delete(const char16_t* name) override {
        if (int32_t r = double_.Enter("Delete", Utf8(name))) return r;
        if (name == nullptr) return kInvalidArgument;
        return double_.tasks.erase(FileName(name)) > 0 ? kOk : kFileNotFound;
    }
    int32_t NewWorkItem(const char16_t* name, std::unique_ptr<Task>* task) override {
        if (int32_t r = double_.Enter("NewWorkItem", Utf8(name))) return r;
        if (name == nullptr) return kInvalidArgument;
        if (double_.Find(name) != nullptr) return kFileExists;
        *task = std::make_unique<DoubleTask>(double_, FileName(name), StoredTask{});
        return kOk;
    }
};

}  // namespace

bool NameLess::operator()(const std::u16string& a, const std::u16string& b) const {
    for (size_t i = 0; i < a.size() && i < b.size(); ++i) {
        if (Fold(a[i]) != Fold(b[i])) return Fold(a[i]) < Fold(b[i]);
    }
    return a.size() < b.size();
}

std::string Utf8(const char16_t* text) {
    if (text == nullptr) return "(null)";
    std::string out;
    for (; *text != 0; ++text) out += *text < 0x80 ? static_cast<char>(*text) : '?';
    return out;
}

SchedulerDouble::SchedulerDouble() : replaced_(SetSchedulerSource(this)) {}

SchedulerDouble::~SchedulerDouble() {
    SetSchedulerSource(replaced_);
    for (void* block : memory_) std::free(block);
}

StoredTask& SchedulerDouble::Add(const std::u16string& name) { return tasks[FileName(name)]; }

const StoredTask* SchedulerDouble::Find(const std::u16string& name) const {
    auto found = tasks.find(FileName(name));
    return found == tasks.end() ? nullptr : &found->second;
}

void SchedulerDouble::FailAt(const std::string& operation, int nth, int32_t result) {
    faults_.push_back({operation, nth, result, false});
}

void SchedulerDouble::ThrowAt(const std::string& operation, int nth) { faults_.push_back({operation, nth, 0, true}); }

std::vector<std::string> SchedulerDouble::Calls(const std::set<std::string>& operations) const {
    std::vector<std::string> out;
    for (const std::string& entry : log) {
        if (operations.count(entry.substr(0, entry.find(' '))) > 0) out.push_back(entry);
    }
    return out;
}

std::string SchedulerDouble::Balance() const {
    std::string out;
    if (!memory_.empty()) out += std::to_string(memory_.size()) + " blocks kept; ";
    if (objects != 0) out += std::to_string(objects) + " objects kept; ";
    if (owedUninitialize_ != 0) out += std::to_string(owedUninitialize_) + " Uninitialize owed; ";
    if (strayFrees_ != 0) out += std::to_string(strayFrees_) + " stray frees; ";
    return out;
}

int32_t SchedulerDouble::Enter(const std::string& operation, const std::string& argument) {
    log.push_back(argument.empty() ? operation : operation + " " + argument);
    const int nth = ++calls_[operation];
    for (const Fault& f : faults_) {
        if (f.operation != operation || f.nth != nth) continue;
        if (f.throws) throw std::bad_alloc();
        log.back() += " -> " + Hex(f.result);
        return f.result;
    }
    return kOk;
}

char16_t* SchedulerDouble::CopyText(const std::u16string& text) {
    auto* copy = static_cast<char16_t*>(Allocate((text.size() + 1) * sizeof(char16_t)));
    std::memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(char16_t));
    return copy;
}

void* SchedulerDouble::Allocate(size_t bytes) {
    void* block = std::malloc(bytes);
    if (block == nullptr) throw std::bad_alloc();
    memory_.insert(block);
    return block;
}

int32_t SchedulerDouble::Initialize() {
    if (int32_t r = Enter("Initialize")) return r;
    ++owedUninitialize_;
    return initializeAnswer;
}

void SchedulerDouble::Uninitialize() {
    log.push_back("Uninitialize");
    --owedUninitialize_;
}

int32_t SchedulerDouble::CreateScheduler(std::unique_ptr<Scheduler>* scheduler) {
    if (int32_t r = Enter("CreateScheduler")) return r;
    *scheduler = std::make_unique<DoubleScheduler>(*this);
    return kOk;
}

void SchedulerDouble::FreeMemory(void* block) {
    if (block == nullptr) return;
    if (memory_.erase(block) == 0) {
        ++strayFrees_;
        return;
    }
    std::free(block);
}

std::string Trace(const host::CallResult& r) {
    std::string line = r.returnCode < 0 ? Hex(r.returnCode) : std::to_string(r.returnCode);
    size_t message = 0, output = 0, done = 0;
    for (size_t i = 0; i < r.order.size(); ++i) {
        switch (r.order[i]) {
        case host::EventKind::Message: {
            const std::string& text = r.messages[message++].text;
            line += text == kInvalidParameterText ? " M" : " M[" + text + "]";
            break;
        }
        case host::EventKind::Output: {
            const host::OutputValue& o = r.outputs[output++];
            int32_t value = 0;
            std::memcpy(&value, o.value.data(), std::min<size_t>(o.value.size(), sizeof value));
            line += " O" + std::to_string(o.param) + "=" + std::to_string(value);
            break;
        }
        case host::EventKind::Done: {
            const host::Done& d = r.dones[done++];
            line += d.status == 0 ? " D" : " D" + std::to_string(d.count);
            break;
        }
        case host::EventKind::Describe: {
            size_t k = 1;
            while (i + 1 < r.order.size() && r.order[i + 1] == host::EventKind::Describe) ++i, ++k;
            line += " C" + std::to_string(k);
            break;
        }
        case host::EventKind::Row: line += " R"; break;
        }
    }
    return line;
}

}  // namespace vrn::tasks::testing
