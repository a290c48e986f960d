// One scheduler connection, bound to a scope: whichever way the scope is left
// (a failure, an exception) the scheduler is released and the thread's
// initialisation given back, exactly once for each that succeeded.
#pragma once

#include <cstdint>
#include <memory>

#include "tasks/scheduler.h"

namespace vrn::tasks {

inline bool Failed(int32_t result) { return result < 0; }

class SchedulerConnection {
public:
    explicit SchedulerConnection(SchedulerSource& source = CurrentScheduler()) : source_(source) {}
    ~SchedulerConnection() { Close(); }
    SchedulerConnection(const SchedulerConnection&) = delete;
    SchedulerConnection& operator=(const SchedulerConnection&) = delete;

    // Initialize, then CreateScheduler: the first failure is the result.
    [[nodiscard]] int32_t Open();
    // Releases the scheduler, then gives back the initialisation; idempotent.
    // Objects that the scheduler handed out must be gone first: declare them
    // after the connection, or reset them before.
    void Close();

    [[nodiscard]] Scheduler& scheduler() const { return *scheduler_; }
    [[nodiscard]] SchedulerSource& source() const { return source_; }

private:
    SchedulerSource& source_;
    bool initialized_ = false;
    std::unique_ptr<Scheduler> scheduler_;
};

// One batch of file names from Next: the array and each name in it, given
// back on every path.
class NameBatch {
public:
    static constexpr uint32_t kSize = 20;
    explicit NameBatch(SchedulerSource& source) : source_(source) {}
    ~NameBatch() { Clear(); }
    NameBatch(const NameBatch&) = delete;
    NameBatch& operator=(const NameBatch&) = delete;

    // Gives back the batch held and asks for the next one; Next's result.
    [[nodiscard]] int32_t Fetch(WorkItemEnumerator& items);
    [[nodiscard]] uint32_t size() const { return fetched_; }
    [[nodiscard]] const char16_t* operator[](uint32_t i) const { return names_[i]; }
    // Gives back name i now, once the walk is done with it.
    void Release(uint32_t i);

private:
    void Clear();
    SchedulerSource& source_;
    char16_t** names_ = nullptr;
    uint32_t fetched_ = 0;
};

// QueryPersistFile and Save(null, true).
[[nodiscard]] int32_t SaveTask(Task& task);

}  // namespace vrn::tasks
