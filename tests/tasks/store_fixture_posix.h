// A job store in a temporary folder of its own, reached through the system
// scheduler source as the procedures reach it.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "tasks/connection.h"

namespace vrn::tasks::testing {

class StoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vrn-store-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        folder_ = pattern;
        setenv("VRN_TASK_STORE", folder_.c_str(), 1);
        ASSERT_GE(source_.Initialize(), 0);
        ASSERT_EQ(source_.CreateScheduler(&scheduler_), kOk);
    }
    void TearDown() override {
        scheduler_.reset();
        source_.Uninitialize();
        unsetenv("VRN_TASK_STORE");
        // A watcher may still be recording the end of a run in there.
        for (int i = 0; i < 100; ++i) {
            std::error_code error;
            std::filesystem::remove_all(folder_, error);
            if (!error) break;
            usleep(20000);
        }
    }

    // A stored task that runs application with parameters in the store's folder.
    std::unique_ptr<Task> MakeTask(const char16_t* name, const char16_t* application = u"/bin/true",
                                   const char16_t* parameters = u"") {
        std::unique_ptr<Task> task;
        EXPECT_EQ(scheduler_->NewWorkItem(name, &task), kOk);
        if (!task) return nullptr;
        const std::u16string folder(folder_.begin(), folder_.end());
        EXPECT_EQ(task->SetApplicationName(application), kOk);
        EXPECT_EQ(task->SetParameters(parameters), kOk);
        EXPECT_EQ(task->SetWorkingDirectory(folder.c_str()), kOk);
        EXPECT_EQ(SaveTask(*task), kOk);
        return task;
    }
    std::unique_ptr<Task> Open(const char16_t* name) {
        std::unique_ptr<Task> task;
        EXPECT_EQ(scheduler_->Activate(name, &task), kOk);
        return task;
    }
    // Bounded: ten seconds.
    static bool WaitFor(const std::function<bool()>& done) {
        for (int i = 0; i < 1000; ++i) {
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    std::string Read(const std::string& file) {
        std::ifstream in(folder_ + "/" + file, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(in)), {});
    }

    SchedulerSource& source_ = SystemScheduler();
    std::unique_ptr<Scheduler> scheduler_;
    std::string folder_;
};

}  // namespace vrn::tasks::testing
