#include "tasks/connection.h"

namespace vrn::tasks {

int32_t SchedulerConnection::Open() {
    const int32_t initialized = source_.Initialize();
    if (Failed(initialized)) return initialized;
    initialized_ = true;  // kFalse too owes its Uninitialize
    return source_.CreateScheduler(&scheduler_);
}

int32_t SchedulerConnection::OpenTask(const char16_t* name, std::unique_ptr<Task>* task) {
    const int32_t result = Open();
    return Failed(result) ? result : scheduler_->Activate(name, task);
}

void SchedulerConnection::Close() {
    scheduler_.reset();
    if (initialized_) {
        initialized_ = false;
        source_.Uninitialize();
    }
}

int32_t NameBatch::Fetch(WorkItemEnumerator& items) {
    Clear();
    uint32_t fetched = 0;
    const int32_t result = items.Next(kSize, &names_, &fetched);
    // A failure hands out nothing that could be trusted; an array that came is still ours.
    fetched_ = Failed(result) || names_ == nullptr ? 0 : fetched > kSize ? kSize : fetched;
    return result;
}

void NameBatch::Release(uint32_t i) {
    source_.FreeMemory(names_[i]);
    names_[i] = nullptr;
}

void NameBatch::Clear() {
    for (uint32_t i = 0; i < fetched_; ++i) source_.FreeMemory(names_[i]);
    source_.FreeMemory(names_);
    names_ = nullptr;
    fetched_ = 0;
}

int32_t SaveTask(Task& task) {
    std::unique_ptr<PersistFile> persist;
    const int32_t queried = task.QueryPersistFile(&persist);
    if (Failed(queried)) return queried;
    return persist->Save(nullptr, true);
}

}  // namespace vrn::tasks
