// Interim: no scheduler yet on this platform; every connection fails to open.
#include "tasks/scheduler.h"

#include <cstdlib>

namespace vrn::tasks {
namespace {

class NoScheduler final : public SchedulerSource {
public:
    int32_t Initialize() override { return kOk; }
    void Uninitialize() override {}
    int32_t CreateScheduler(std::unique_ptr<Scheduler>* scheduler) override {
        scheduler->reset();
        return kNotImplemented;
    }
    void FreeMemory(void* block) override { std::free(block); }
};

}  // namespace

SchedulerSource& SystemScheduler() {
    static NoScheduler source;
    return source;
}

}  // namespace vrn::tasks
