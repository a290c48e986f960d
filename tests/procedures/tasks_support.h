// What the task procedure tests share: the loaded library, task names, and a
// fixture whose scheduler double must be given everything back by the end.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/host.h"
#include "tests/procedures/calls.h"
#include "tests/procedures/scheduler_double.h"

namespace vrn::tasks::testing {

using ::vrn::test::Lib;

inline constexpr char16_t kId[] = u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}";
inline constexpr int32_t kFailure = static_cast<int32_t>(0x80004005u);

// The file name of a task of company on instance (none: an engine without one).
inline std::u16string TaskFile(const std::u16string& company, const std::u16string& instance = u"") {
    return std::u16string(kId) + u"-" + company + (instance.empty() ? u"" : u"$" + instance) + u".job";
}

// Scheduler calls of the log between opening and closing the connection.
inline std::vector<std::string> Work(const SchedulerDouble& d) {
    std::vector<std::string> work;
    for (const std::string& entry : d.log) {
        if (entry != "Initialize" && entry != "CreateScheduler" && entry != "Uninitialize") work.push_back(entry);
    }
    return work;
}

class TasksTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(scheduler.Balance(), ""); }
    host::CallResult Call(const std::string& procedure, std::vector<host::Param> params,
                          const host::CallOptions& options = {}) {
        return Lib().Call(procedure, std::move(params), options);
    }
    SchedulerDouble scheduler;
};

}  // namespace vrn::tasks::testing
