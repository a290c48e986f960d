#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <fstream>
#include <functional>
#include <thread>

#include "tasks/job_process_posix.h"
#include "tests/tasks/store_fixture_posix.h"

namespace vrn::tasks::testing {
namespace {

TEST(CommandLine, SplitsAsTheWindowsRuntimeDoes) {
    const struct {
        const char16_t* line;
        std::vector<std::u16string> args;
    } cases[] = {
        {u"", {}},
        {u"  a \t b  ", {u"a", u"b"}},
        {u"\"a b\" c", {u"a b", u"c"}},
        {u"a\"b c\"d", {u"ab cd"}},
        {u"\"\"", {u""}},
        {u"a\\b \\\\c", {u"a\\b", u"\\\\c"}},
        {u"a\\\"b", {u"a\"b"}},             // 2n+1 backslashes: n and a quote
        {u"a\\\\\"b c\"", {u"a\\b c"}},     // 2n: n, and the quote groups
        {u"\"a\"\"b\" c", {u"a\"b", u"c"}},  // "" inside quotes
        {u"\"open end", {u"open end"}},
    };
    for (const auto& c : cases) EXPECT_EQ(jobs::SplitCommandLine(c.line), c.args) << &c - cases;
}

class JobRun : public StoreTest {
protected:
    static bool WaitFor(const std::function<bool()>& done) {
        for (int i = 0; i < 1000; ++i) {
            if (done()) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
    int32_t Status(const char16_t* name) {
        std::unique_ptr<Task> task = Open(name);
        int32_t status = 0;
        EXPECT_EQ(task->GetStatus(&status), kOk);
        return status;
    }
    bool Ended(const char16_t* name) {
        return WaitFor([&] { return Status(name) != kTaskRunning; });
    }
    // The Run left no child of ours behind, zombie or not.
    static void ExpectNoChildren() {
        errno = 0;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    }
    std::string Read(const std::string& file) {
        std::ifstream in(folder_ + "/" + file);
        return std::string((std::istreambuf_iterator<char>(in)), {});
    }
};

TEST_F(JobRun, RunsTheApplicationAndKeepsItsExitCodeAndTime) {
    std::unique_ptr<Task> task = MakeTask(u"writer", u"sh", u"-c \"echo \\\"ran $0\\\" > out.txt; exit 3\" x");
    ASSERT_EQ(task->SetFlags(kTaskFlagDisabled), kOk);  // run on demand all the same
    ASSERT_EQ(Save(*task), kOk);
    const time_t before = time(nullptr);
    ASSERT_EQ(task->Run(), kOk);
    ExpectNoChildren();
    // The watcher records the end a moment after the process is gone.
    uint32_t code = 0;
    ASSERT_TRUE(WaitFor([&] { return Open(u"writer")->GetExitCode(&code) == kOk && code == 3; }));
    EXPECT_EQ(Read("out.txt"), "ran x\n");
    task = Open(u"writer");
    SystemTime last{};
    ASSERT_EQ(task->GetMostRecentRunTime(&last), kOk);
    struct tm local {};
    localtime_r(&before, &local);
    EXPECT_EQ(last.year, local.tm_year + 1900);
    EXPECT_EQ(last.day, local.tm_mday);
    EXPECT_LE(std::abs((last.hour * 60 + last.minute) - (local.tm_hour * 60 + local.tm_min)), 1);
    int32_t status = 0;
    EXPECT_EQ(task->GetStatus(&status), kOk);
    EXPECT_EQ(status, kTaskDisabled);
}

TEST_F(JobRun, TerminateStopsTheWholeGroupAndAnotherRunWaitsItsTurn) {
    std::unique_ptr<Task> task =
        MakeTask(u"sleeper", u"/bin/sh", u"-c \"echo started >> runs; sleep 300 & echo $! > child; wait\"");
    ASSERT_EQ(task->Run(), kOk);
    ASSERT_TRUE(WaitFor([&] { return Read("child").ends_with("\n"); }));
    EXPECT_EQ(Status(u"sleeper"), kTaskRunning);
    EXPECT_EQ(Open(u"sleeper")->Run(), kOk);  // running already: no second run
    const int32_t grandchild = std::stoi(Read("child"));
    ASSERT_TRUE(jobs::ProcessStart(grandchild).has_value());

    ASSERT_EQ(Open(u"sleeper")->Terminate(), kOk);
    ASSERT_TRUE(Ended(u"sleeper"));
    EXPECT_TRUE(WaitFor([&] { return !jobs::ProcessStart(grandchild).has_value(); }));
    EXPECT_EQ(Read("runs"), "started\n");
    task = Open(u"sleeper");
    EXPECT_EQ(Status(u"sleeper"), kTaskTerminated);
    EXPECT_EQ(task->Terminate(), kTaskNotRunning);
    uint32_t code = 0;
    ASSERT_TRUE(WaitFor([&] { return Open(u"sleeper")->GetExitCode(&code) == kOk && code == 128 + 9; }));
    ExpectNoChildren();
}

TEST_F(JobRun, MaxRunTimeStopsARunThatOverstays) {
    std::unique_ptr<Task> task = MakeTask(u"slow", u"sleep", u"30");
    ASSERT_EQ(task->SetMaxRunTime(500), kOk);
    ASSERT_EQ(Save(*task), kOk);
    ASSERT_EQ(task->Run(), kOk);
    ASSERT_TRUE(Ended(u"slow"));
    uint32_t code = 0;
    ASSERT_TRUE(WaitFor([&] { return Open(u"slow")->GetExitCode(&code) == kOk && code == 128 + 9; }));
    EXPECT_EQ(Status(u"slow"), kTaskNoValidTriggers);  // ran, not stopped by a user, no trigger
}

TEST_F(JobRun, StatusAfterARunFollowsTheTriggers) {
    std::unique_ptr<Task> task = MakeTask(u"once");
    ASSERT_EQ(task->Run(), kOk);
    uint32_t code = 1;
    ASSERT_TRUE(WaitFor([&] { return Open(u"once")->GetExitCode(&code) == kOk && code == 0; }));
    const auto trigger = [](int32_t type, uint32_t flags) {
        TASK_TRIGGER t{};
        t.cbTriggerSize = sizeof t;
        t.wBeginYear = 2007, t.wBeginMonth = 1, t.wBeginDay = 1;
        t.wEndYear = 2008, t.wEndMonth = 1, t.wEndDay = 1;
        t.TriggerType = type;
        t.Type.Daily.DaysInterval = 1;
        t.rgFlags = flags;
        return t;
    };
    const struct {
        const char* what;
        std::vector<TASK_TRIGGER> triggers;
        const char16_t* application;
        int32_t status, next;
    } cases[] = {
        {"daily", {trigger(kTriggerDaily, 0)}, u"true", kTaskReady, kOk},
        {"ended", {trigger(kTriggerDaily, kTriggerFlagHasEndDate)}, u"true", kTaskNoMoreRuns, kTaskNoMoreRuns},
        {"at logon", {trigger(kTriggerAtLogon, 0)}, u"true", kTaskReady, jobs::kEventTrigger},
        {"no application", {trigger(kTriggerDaily, 0)}, u"", kTaskNotScheduled, kOk},
    };
    for (const auto& c : cases) {
        task = Open(u"once");
        uint16_t count = 0;
        while (task->GetTriggerCount(&count) == kOk && count > 0) ASSERT_EQ(task->DeleteTrigger(0), kOk);
        for (const TASK_TRIGGER& t : c.triggers) {
            uint16_t index = 0;
            std::unique_ptr<Trigger> made;
            ASSERT_EQ(task->CreateTrigger(&index, &made), kOk);
            ASSERT_EQ(made->SetTrigger(t), kOk);
        }
        ASSERT_EQ(task->SetApplicationName(c.application), kOk);
        ASSERT_EQ(Save(*task), kOk);
        EXPECT_EQ(Status(u"once"), c.status) << c.what;
        SystemTime next{};
        EXPECT_EQ(Open(u"once")->GetNextRunTime(&next), c.next) << c.what;
        EXPECT_EQ(next.year != 0, c.next == kOk) << c.what;
    }
}

TEST_F(JobRun, AStartThatFailsShowsInTheExitCodeResult) {
    const struct {
        const char16_t* application;
        const char16_t* directory;
        int32_t run, exit;
    } cases[] = {
        {u"/no/such/program", nullptr, kOk, kFileNotFound},
        {u"/bin/true", u"/no/such/folder", kOk, kFileNotFound},
        {u"", nullptr, jobs::kTaskNotReady, kTaskHasNotRun},
    };
    for (const auto& c : cases) {
        std::unique_ptr<Task> task = MakeTask(u"failing", c.application);
        if (c.directory != nullptr) {
            ASSERT_EQ(task->SetWorkingDirectory(c.directory), kOk);
        }
        ASSERT_EQ(Save(*task), kOk);
        EXPECT_EQ(task->Run(), c.run);
        uint32_t code = 0;
        EXPECT_EQ(Open(u"failing")->GetExitCode(&code), c.exit);
        EXPECT_NE(Status(u"failing"), kTaskRunning);
        ASSERT_EQ(scheduler_->Delete(u"failing"), kOk);
    }
    ExpectNoChildren();
}

}  // namespace
}  // namespace vrn::tasks::testing
