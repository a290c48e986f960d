// One scheduler connection, bound to a scope: whichever way the scope is left
// (a failure, an exception) the scheduler is released and the thread's
// initialisation given back, exactly once for each that succeeded.
#pragma once

#include <cstdint>
#include <memory>

#include "tasks/task_names.h"
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
    // Open, then Activate(name): the first failure is the result. The task
    // must be gone before the connection.
    [[nodiscard]] int32_t OpenTask(const char16_t* name, std::unique_ptr<Task>* task);
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

// Every task of company (null: all) on instance, batch by batch, each batch
// from its last name to its first, while visit(connection, name) answers
// true; the batch under way is given back whole. Only opening and Enum can
// fail the walk.
template <class Visit>
int32_t WalkTasks(const char16_t* company, const char16_t* instance, Visit visit) {
    SchedulerConnection connection;
    int32_t result = connection.Open();
    if (Failed(result)) return result;
    std::unique_ptr<WorkItemEnumerator> items;
    result = connection.scheduler().Enum(&items);
    if (Failed(result)) return result;
    NameBatch batch(connection.source());
    bool walking = true;
    while (walking && !Failed(batch.Fetch(*items)) && batch.size() > 0) {
        for (uint32_t i = batch.size(); i-- > 0;) {
            if (walking && MatchTaskFileName(batch[i], company, instance) >= 0) {
                walking = visit(connection, batch[i]);
            }
            batch.Release(i);
        }
    }
    return kOk;
}

// QueryPersistFile and Save(null, true).
[[nodiscard]] int32_t SaveTask(Task& task);

}  // namespace vrn::tasks
