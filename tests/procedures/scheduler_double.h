// An in-memory scheduler behind the seam for the task procedures' tests. Every
// call passes one gate, which logs it and can make the nth call of any
// operation answer a chosen HRESULT (or throw, as a failed allocation would).
// It counts what it hands out, so a test can see that all was given back.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/host.h"
#include "tasks/scheduler.h"

namespace vrn::tasks::testing {

struct StoredTask {
    // By the name of their Get and Set: "AccountInformation", "Comment", ...;
    // without "AccountInformation" GetAccountInformation fails as the system's does.
    std::map<std::string, std::u16string> texts{{"AccountInformation", u""}};
    // "ExitCode", "Flags", "MaxRunTime", "Priority", "Status".
    std::map<std::string, uint32_t> numbers{
        {"Flags", 0}, {"MaxRunTime", kDefaultMaxRunTime}, {"Priority", kNormalPriorityClass}, {"Status", kTaskHasNotRun}};
    std::vector<uint8_t> data;
    std::vector<TASK_TRIGGER> triggers;
};

inline constexpr int32_t kThrow = 0x7FFFFFFF;  // as an answer: std::bad_alloc instead

class SchedulerDouble final : public SchedulerSource {
public:
    SchedulerDouble();            // becomes the current source
    ~SchedulerDouble() override;  // gives the place back

    std::map<std::u16string, StoredTask> tasks;  // by file name, in the order Next gives them
    StoredTask& Add(const std::u16string& name);  // ".job" is added when missing
    [[nodiscard]] StoredTask* Find(const std::u16string& name);

    void FailAt(const std::string& operation, int nth, int32_t answer) { faults_[{operation, nth}] = answer; }
    std::vector<std::string> log;  // "Operation argument" of every call
    // What was not given back, or given back in the wrong order; "" when all is well.
    [[nodiscard]] std::string Balance() const;

    int32_t Initialize() override;
    void Uninitialize() override;
    int32_t CreateScheduler(std::unique_ptr<Scheduler>* scheduler) override;
    void FreeMemory(void* block) override;

    // The gate of every call: the answer set for it, else kOk.
    [[nodiscard]] int32_t Gate(const std::string& call);
    // The same, and when that is kOk, what effect answers.
    template <class Effect>
    [[nodiscard]] int32_t Gate(const std::string& call, Effect effect) {
        const int32_t answer = Gate(call);
        return answer != kOk ? answer : effect();
    }
    void* Allocate(size_t bytes);
    char16_t* Copy(const std::u16string& text);
    int live = 0;

private:
    SchedulerSource* replaced_;
    std::map<std::pair<std::string, int>, int32_t> faults_;
    std::map<std::string, int> calls_;
    int blocks_ = 0, owed_ = 0;
    std::string misorder_;
};

std::string Utf8(const char16_t* text);  // ASCII names; "(null)" for null

// The file name of a task of company on an engine without an instance.
inline std::u16string TaskFile(const std::u16string& company) {
    return u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-" + company + u".job";
}

// One call as a line: the return code, then each delivery in order: M the
// invalid-parameter message, O<n>=value an integer output, C<k> k columns
// described, R a row, D a plain done, D<count> a counted one.
std::string Trace(const host::CallResult& result);

}  // namespace vrn::tasks::testing
