#include "tasks/scheduler.h"

#include <atomic>

namespace vrn::tasks {
namespace {

std::atomic<SchedulerSource*> replacedSource{nullptr};

}  // namespace

SchedulerSource& CurrentScheduler() {
    SchedulerSource* source = replacedSource.load(std::memory_order_acquire);
    return source != nullptr ? *source : SystemScheduler();
}

SchedulerSource* SetSchedulerSource(SchedulerSource* source) {
    return replacedSource.exchange(source, std::memory_order_acq_rel);
}

}  // namespace vrn::tasks
