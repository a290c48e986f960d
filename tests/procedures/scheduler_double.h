// An in-memory scheduler behind the seam for the task procedures' tests. It
// logs every call, fails any named operation at its Nth call with a chosen
// HRESULT (or throws, as a failed allocation would), and counts what it hands
// out, so a test can see that all was given back.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/host.h"
#include "tasks/scheduler.h"

namespace vrn::tasks::testing {

struct StoredTask {
    std::u16string applicationName, comment, creator, workingDirectory, parameters;
    std::optional<std::u16string> account;  // none: GetAccountInformation fails as the scheduler's does
    std::optional<std::u16string> password;
    std::vector<uint8_t> data;
    uint32_t maxRunTime = kDefaultMaxRunTime;
    uint32_t flags = 0;
    uint32_t exitCode = 0;
    uint32_t priority = kNormalPriorityClass;
    int32_t status = kTaskHasNotRun;
    SystemTime lastRun{}, nextRun{};
    uint16_t idleMinutes = kDefaultIdleMinutes, deadlineMinutes = kDefaultDeadlineMinutes;
    std::vector<TASK_TRIGGER> triggers;
};

// File names compare as the system's do: A to Z fold.
struct NameLess {
    bool operator()(const std::u16string& a, const std::u16string& b) const;
};

class SchedulerDouble final : public SchedulerSource {
public:
    SchedulerDouble();  // becomes the current source
    ~SchedulerDouble() override;  // gives the place back

    // Tasks by file name (".job" on the end), in the order Next gives them.
    std::map<std::u16string, StoredTask, NameLess> tasks;
    StoredTask& Add(const std::u16string& name);  // ".job" is added when missing
    [[nodiscard]] const StoredTask* Find(const std::u16string& name) const;

    // The nth call (from 1) of operation answers result; Throw: std::bad_alloc instead.
    void FailAt(const std::string& operation, int nth, int32_t result);
    void ThrowAt(const std::string& operation, int nth);
    int32_t initializeAnswer = kOk;  // what a successful Initialize says (kFalse: already so)

    // Every call: "Operation" or "Operation argument".
    std::vector<std::string> log;
    // The calls of one operation, or of the operations named, in their order.
    [[nodiscard]] std::vector<std::string> Calls(const std::set<std::string>& operations) const;
    // Nothing handed out is left, and every Initialize met its Uninitialize.
    [[nodiscard]] std::string Balance() const;  // "" when all is given back

    // Seam.
    int32_t Initialize() override;
    void Uninitialize() override;
    int32_t CreateScheduler(std::unique_ptr<Scheduler>* scheduler) override;
    void FreeMemory(void* block) override;

    // For the objects it hands out.
    [[nodiscard]] int32_t Enter(const std::string& operation, const std::string& argument = {});
    char16_t* CopyText(const std::u16string& text);
    void* Allocate(size_t bytes);
    int objects = 0;

private:
    struct Fault {
        std::string operation;
        int nth;
        int32_t result;
        bool throws;
    };
    SchedulerSource* replaced_;
    std::vector<Fault> faults_;
    std::map<std::string, int> calls_;
    std::set<void*> memory_;
    int owedUninitialize_ = 0;
    int strayFrees_ = 0;
};

std::string Utf8(const char16_t* text);  // ASCII names; "(null)" for null

// One call as a line: the return code, then each delivery in order: M a
// message, O<n>=value an integer output, C<k> k columns described, R a row,
// D a final done, D<count> a counted one.
std::string Trace(const host::CallResult& result);

}  // namespace vrn::tasks::testing
