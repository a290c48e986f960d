#include "tests/procedures/scheduler_double.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "tasks/params.h"

namespace vrn::tasks::testing {

namespace {

std::u16string FileName(const std::u16string& name) { return name.ends_with(u".job") ? name : name + u".job"; }

std::string Hex(int32_t value) {
    char text[16];
    return std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(value)), text;
}

// Counts itself among the double's objects while it lives.
struct Live {
    explicit Live(SchedulerDouble& d) : d_(d) { ++d_.live; }
    virtual ~Live() { --d_.live; }
    Live(const Live&) = delete;
    SchedulerDouble& d_;
};

class DoubleTrigger final : public Trigger, Live {
public:
    DoubleTrigger(SchedulerDouble& d, TASK_TRIGGER& stored) : Live(d), stored_(stored) {}
    // Logged whole, as the procedures write every field.
    int32_t SetTrigger(const TASK_TRIGGER& t) override {
        char line[128];
        std::snprintf(line, sizeof line, "SetTrigger %u-%u-%u to %u-%u-%u at %u:%02u type %d every %u days %u flags %u",
                      t.wBeginYear, t.wBeginMonth, t.wBeginDay, t.wEndYear, t.wEndMonth, t.wEndDay, t.wStartHour,
                      t.wStartMinute, t.TriggerType, t.Type.Weekly.WeeksInterval, t.Type.Weekly.rgfDaysOfTheWeek,
                      t.rgFlags);
        return d_.Gate(line, [&] { return stored_ = t, kOk; });
    }
    int32_t GetTrigger(TASK_TRIGGER* t) override { return d_.Gate("Trigger.GetTrigger", [&] { return *t = stored_, kOk; }); }

private:
    TASK_TRIGGER& stored_;
};

// A task in memory: a copy of the stored one, written back by Save.
class DoubleTask final : public Task, Live {
public:
    DoubleTask(SchedulerDouble& d, std::u16string name, StoredTask state)
        : Live(d), name_(std::move(name)), state_(std::move(state)) {}

    int32_t SetApplicationName(const char16_t* t) override { return SetText("ApplicationName", t); }
    int32_t SetCreator(const char16_t* t) override { return SetText("Creator", t); }
    int32_t SetComment(const char16_t* t) override { return SetText("Comment", t); }
    int32_t SetWorkingDirectory(const char16_t* t) override { return SetText("WorkingDirectory", t); }
    int32_t SetParameters(const char16_t* t) override { return SetText("Parameters", t); }
    int32_t SetAccountInformation(const char16_t* account, const char16_t* password) override {
        return SetText("AccountInformation", account, "," + Utf8(password));
    }
    int32_t SetWorkItemData(uint16_t n, const uint8_t* data) override {
        return d_.Gate("SetWorkItemData " + std::to_string(n), [&] { return state_.data.assign(data, data + n), kOk; });
    }
    int32_t SetMaxRunTime(uint32_t ms) override { return SetNumber("MaxRunTime", ms); }
    int32_t SetFlags(uint32_t flags) override { return SetNumber("Flags", flags); }
    int32_t GetFlags(uint32_t* flags) override { return GetNumber("Flags", flags); }
    int32_t Run() override { return d_.Gate("Run"); }
    int32_t Terminate() override { return d_.Gate("Terminate"); }
    int32_t GetStatus(int32_t* status) override { return GetNumber("Status", reinterpret_cast<uint32_t*>(status)); }

    int32_t GetAccountInformation(char16_t** t) override {
        if (state_.texts.count("AccountInformation") > 0) return GetText("AccountInformation", t);
        return d_.Gate("GetAccountInformation", [] { return kAccountInformationNotSet; });
    }
    int32_t GetComment(char16_t** t) override { return GetText("Comment", t); }
    int32_t GetCreator(char16_t** t) override { return GetText("Creator", t); }
    int32_t GetApplicationName(char16_t** t) override { return GetText("ApplicationName", t); }
    int32_t GetParameters(char16_t** t) override { return GetText("Parameters", t); }
    int32_t GetWorkingDirectory(char16_t** t) override { return GetText("WorkingDirectory", t); }
    int32_t GetWorkItemData(uint16_t* n, uint8_t** data) override {
        return d_.Gate("GetWorkItemData", [&] {
            *n = static_cast<uint16_t>(state_.data.size());
            *data = *n == 0 ? nullptr : static_cast<uint8_t*>(std::memcpy(d_.Allocate(*n), state_.data.data(), *n));
            return kOk;
        });
    }
    int32_t GetExitCode(uint32_t* code) override { return GetNumber("ExitCode", code); }
    int32_t GetMaxRunTime(uint32_t* ms) override { return GetNumber("MaxRunTime", ms); }
    int32_t GetPriority(uint32_t* priority) override { return GetNumber("Priority", priority); }
    int32_t GetMostRecentRunTime(SystemTime* t) override { return *t = {}, d_.Gate("GetMostRecentRunTime"); }
    int32_t GetNextRunTime(SystemTime* t) override { return *t = {}, d_.Gate("GetNextRunTime"); }
    int32_t GetIdleWait(uint16_t* idle, uint16_t* deadline) override {
        return d_.Gate("GetIdleWait", [&] { return *idle = kDefaultIdleMinutes, *deadline = kDefaultDeadlineMinutes, kOk; });
    }

    int32_t GetTriggerCount(uint16_t* n) override {
        return d_.Gate("GetTriggerCount", [&] { return *n = static_cast<uint16_t>(state_.triggers.size()), kOk; });
    }
    int32_t CreateTrigger(uint16_t* index, std::unique_ptr<Trigger>* trigger) override {
        return d_.Gate("CreateTrigger", [&] {
            *index = static_cast<uint16_t>(state_.triggers.size());
            *trigger = std::make_unique<DoubleTrigger>(d_, state_.triggers.emplace_back());
            return kOk;
        });
    }
    int32_t GetTrigger(uint16_t index, std::unique_ptr<Trigger>* trigger) override {
        return d_.Gate("GetTrigger " + std::to_string(index), [&] {
            if (index >= state_.triggers.size()) return kTriggerNotFound;
            return *trigger = std::make_unique<DoubleTrigger>(d_, state_.triggers[index]), kOk;
        });
    }
    int32_t DeleteTrigger(uint16_t index) override {
        return d_.Gate("DeleteTrigger " + std::to_string(index), [&] {
            return index >= state_.triggers.size() ? kTriggerNotFound
                                                   : (state_.triggers.erase(state_.triggers.begin() + index), kOk);
        });
    }
    int32_t GetTriggerString(uint16_t index, char16_t** text) override {
        return d_.Gate("GetTriggerString " + std::to_string(index), [&] { return *text = d_.Copy(u"a trigger"), kOk; });
    }
    int32_t QueryPersistFile(std::unique_ptr<PersistFile>* persist) override;

    std::u16string name_;
    StoredTask state_;

private:
    int32_t SetText(const std::string& key, const char16_t* text, const std::string& more = "") {
        return d_.Gate("Set" + key + " " + Utf8(text) + more, [&] { return state_.texts[key] = text, kOk; });
    }
    int32_t GetText(const std::string& key, char16_t** text) {
        return d_.Gate("Get" + key, [&] { return *text = d_.Copy(state_.texts[key]), kOk; });
    }
    int32_t SetNumber(const std::string& key, uint32_t value) {
        return d_.Gate("Set" + key + " " + std::to_string(value), [&] { return state_.numbers[key] = value, kOk; });
    }
    int32_t GetNumber(const std::string& key, uint32_t* value) {
        return d_.Gate("Get" + key, [&] { return *value = state_.numbers[key], kOk; });
    }
};

struct DoublePersist final : public PersistFile, Live {
    DoublePersist(SchedulerDouble& d, DoubleTask& task) : Live(d), task_(task) {}
    int32_t Save(const char16_t* file, bool remember) override {
        const std::string call = std::string("Save ") + (file ? "name" : "null") + (remember ? ",true" : ",false");
        return d_.Gate(call, [&] { return d_.tasks[task_.name_] = task_.state_, kOk; });
    }
    DoubleTask& task_;
};

int32_t DoubleTask::QueryPersistFile(std::unique_ptr<PersistFile>* persist) {
    return d_.Gate("QueryPersistFile", [&] { return *persist = std::make_unique<DoublePersist>(d_, *this), kOk; });
}

class DoubleEnumerator final : public WorkItemEnumerator, Live {
public:
    explicit DoubleEnumerator(SchedulerDouble& d) : Live(d) {
        for (const auto& entry : d.tasks) names_.push_back(entry.first);
    }
    int32_t Next(uint32_t count, char16_t*** names, uint32_t* fetched) override {
        return d_.Gate("Next " + std::to_string(count), [&] {
            *fetched = static_cast<uint32_t>(std::min<size_t>(count, names_.size() - position_));
            *names = *fetched == 0 ? nullptr : static_cast<char16_t**>(d_.Allocate(*fetched * sizeof(char16_t*)));
            for (uint32_t i = 0; i < *fetched; ++i) (*names)[i] = d_.Copy(names_[position_++]);
            return *fetched == count ? kOk : kFalse;
        });
    }

private:
    std::vector<std::u16string> names_;
    size_t position_ = 0;
};

struct DoubleScheduler final : public Scheduler, Live {
    explicit DoubleScheduler(SchedulerDouble& d) : Live(d) {}
    int32_t Enum(std::unique_ptr<WorkItemEnumerator>* items) override {
        return d_.Gate("Enum", [&] { return *items = std::make_unique<DoubleEnumerator>(d_), kOk; });
    }
    int32_t Activate(const char16_t* name, std::unique_ptr<Task>* task) override {
        return d_.Gate("Activate " + Utf8(name), [&] {
            const StoredTask* stored = name != nullptr ? d_.Find(name) : nullptr;
            if (stored == nullptr) return name != nullptr ? kFileNotFound : kInvalidArgument;
            return *task = std::make_unique<DoubleTask>(d_, FileName(name), *stored), kOk;
        });
    }
    int32_t Delete(const char16_t* name) override {
        return d_.Gate("Delete " + Utf8(name), [&] {
            if (name == nullptr) return kInvalidArgument;
            return d_.tasks.erase(FileName(name)) > 0 ? kOk : kFileNotFound;
        });
    }
    // A new task has no account, as the system's has none.
    int32_t NewWorkItem(const char16_t* name, std::unique_ptr<Task>* task) override {
        return d_.Gate("NewWorkItem " + Utf8(name), [&] {
            if (name == nullptr) return kInvalidArgument;
            if (d_.Find(name) != nullptr) return kFileExists;
            StoredTask fresh;
            fresh.texts.clear();
            return *task = std::make_unique<DoubleTask>(d_, FileName(name), fresh), kOk;
        });
    }
};

}  // namespace

std::string Utf8(const char16_t* text) {
    if (text == nullptr) return "(null)";
    std::string out;
    for (; *text != 0; ++text) out += *text < 0x80 ? static_cast<char>(*text) : '?';
    return out;
}

SchedulerDouble::SchedulerDouble() : replaced_(SetSchedulerSource(this)) {}
SchedulerDouble::~SchedulerDouble() { SetSchedulerSource(replaced_); }

StoredTask& SchedulerDouble::Add(const std::u16string& name) { return tasks[FileName(name)]; }

StoredTask* SchedulerDouble::Find(const std::u16string& name) {
    auto found = tasks.find(FileName(name));
    return found == tasks.end() ? nullptr : &found->second;
}

std::string SchedulerDouble::Balance() const {
    const auto kept = [](int n, const char* what) { return n != 0 ? std::to_string(n) + what : ""; };
    return misorder_ + kept(blocks_, " blocks kept; ") + kept(live, " objects kept; ") + kept(owed_, " Uninitialize owed; ");
}

int32_t SchedulerDouble::Gate(const std::string& call) {
    log.push_back(call);
    const std::string operation = call.substr(0, call.find(' '));
    auto fault = faults_.find({operation, ++calls_[operation]});
    if (fault == faults_.end()) return kOk;
    if (fault->second == kThrow) throw std::bad_alloc();
    log.back() += " -> " + Hex(fault->second);
    return fault->second;
}

void* SchedulerDouble::Allocate(size_t bytes) {
    void* block = std::malloc(bytes);
    if (block == nullptr) throw std::bad_alloc();
    ++blocks_;
    return block;
}

char16_t* SchedulerDouble::Copy(const std::u16string& text) {
    const size_t bytes = (text.size() + 1) * sizeof(char16_t);
    return static_cast<char16_t*>(std::memcpy(Allocate(bytes), text.c_str(), bytes));
}

// A host's thread may have COM up already: kFalse, which still owes its Uninitialize.
int32_t SchedulerDouble::Initialize() { return Gate("Initialize", [this] { return ++owed_, kFalse; }); }

void SchedulerDouble::Uninitialize() {
    log.push_back("Uninitialize");
    if (live != 0) misorder_ = "Uninitialize before every object was released; ";
    --owed_;
}

int32_t SchedulerDouble::CreateScheduler(std::unique_ptr<Scheduler>* scheduler) {
    return Gate("CreateScheduler", [&] { return *scheduler = std::make_unique<DoubleScheduler>(*this), kOk; });
}

void SchedulerDouble::FreeMemory(void* block) { blocks_ -= block != nullptr, std::free(block); }

std::string Trace(const host::CallResult& r) {
    std::string line = r.returnCode < 0 ? Hex(r.returnCode) : std::to_string(r.returnCode);
    size_t message = 0, output = 0, done = 0;
    for (size_t i = 0; i < r.order.size(); ++i) {
        switch (r.order[i]) {
        case host::EventKind::Message: line += r.messages[message++].text == kInvalidParameterText ? " M" : " M?"; break;
        case host::EventKind::Output: {
            int32_t value = 0;
            const host::OutputValue& o = r.outputs[output++];
            std::memcpy(&value, o.value.data(), std::min<size_t>(o.value.size(), sizeof value));
            line += " O" + std::to_string(o.param) + "=" + std::to_string(value);
            break;
        }
        case host::EventKind::Done:
            line += r.dones[done].status == 0 ? " D" : " D" + std::to_string(r.dones[done].count), ++done;
            break;
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
