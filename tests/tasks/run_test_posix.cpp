// Running a stored task for real. What a run shows through the procedures
// (its effect, exit code, time and status) is the task scripts'.
#include <linux/capability.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <thread>

#include "tasks/job_process_posix.h"
#include "tasks/job_store_posix.h"
#include "tasks/local_time_posix.h"
#include "tests/tasks/store_fixture_posix.h"

namespace vrn::tasks::testing {
namespace {

TEST(CommandLine, SplitsAsTheWindowsRuntimeDoes) {
    const struct {
        const char16_t* line;
        std::vector<std::u16string> args;
    } cases[] = {
        {u"  a \t b  ", {u"a", u"b"}},
        {u"a\"b c\"d", {u"ab cd"}},
        {u"\"\"", {u""}},
        {u"a\\b \\\\c", {u"a\\b", u"\\\\c"}},  // backslashes before no quote stand as they are
        {u"a\\\"b", {u"a\"b"}},               // 2n+1 backslashes: n and a quote
        {u"a\\\\\"b c\"", {u"a\\b c"}},       // 2n: n, and the quote groups
        {u"\"a\"\"b\" c", {u"a\"b", u"c"}},    // "" inside quotes
        {u"\"open end", {u"open end"}},
    };
    for (const auto& c : cases) EXPECT_EQ(jobs::SplitCommandLine(c.line), c.args) << &c - cases;
}

class JobRun : public StoreTest {
protected:
    int32_t Status(const char16_t* name) {
        int32_t status = 0;
        EXPECT_EQ(Open(name)->GetStatus(&status), kOk);
        return status;
    }
    bool ExitsWith(const char16_t* name, uint32_t expected) {
        uint32_t code = 0;
        return WaitFor([&] { return Open(name)->GetExitCode(&code) == kOk && code == expected; });
    }
    // The runs left no child of ours behind, zombie or not.
    static void ExpectNoChildren() {
        errno = 0;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
    }
};

TEST_F(JobRun, TerminateStopsTheWholeGroupAndAnotherRunWaitsItsTurn) {
    std::unique_ptr<Task> task =
        MakeTask(u"sleeper", u"/bin/sh", u"-c \"echo started >> runs; sleep 300 & echo $! > child; wait\"");
    ASSERT_EQ(task->Run(), kOk);
    ASSERT_TRUE(WaitFor([&] { return Read("child").ends_with("\n"); }));
    EXPECT_EQ(Open(u"sleeper")->Run(), kOk);  // running already: no second run
    const int32_t grandchild = std::stoi(Read("child"));
    ASSERT_TRUE(jobs::ProcessStart(grandchild).has_value());
    ASSERT_EQ(Open(u"sleeper")->Terminate(), kOk);
    EXPECT_TRUE(WaitFor([&] { return !jobs::ProcessStart(grandchild).has_value(); }));
    EXPECT_TRUE(ExitsWith(u"sleeper", 128 + SIGKILL));
    EXPECT_EQ(Read("runs"), "started\n");
    ExpectNoChildren();
}

TEST_F(JobRun, MaxRunTimeStopsARunThatOverstays) {
    std::unique_ptr<Task> task = MakeTask(u"slow", u"sleep", u"30");
    ASSERT_EQ(task->SetMaxRunTime(500), kOk);
    ASSERT_EQ(SaveTask(*task), kOk);
    ASSERT_EQ(task->Run(), kOk);
    EXPECT_TRUE(ExitsWith(u"slow", 128 + SIGKILL));
    EXPECT_EQ(Status(u"slow"), kTaskNoValidTriggers);  // ran, not stopped by a user, no trigger
}

TEST_F(JobRun, StatusAfterARunFollowsTheTriggers) {
    ASSERT_EQ(MakeTask(u"once")->Run(), kOk);
    ASSERT_TRUE(ExitsWith(u"once", 0));
    const struct {
        int32_t type;
        uint32_t flags;
        const char16_t* application;
        int32_t status, next;
    } cases[] = {
        {kTriggerDaily, 0, u"true", kTaskReady, kOk},
        {kTriggerDaily, kTriggerFlagHasEndDate, u"true", kTaskNoMoreRuns, kTaskNoMoreRuns},
        {kTriggerAtLogon, 0, u"true", kTaskReady, jobs::kEventTrigger},
        {kTriggerDaily, 0, u"", kTaskNotScheduled, kOk},
    };
    for (const auto& c : cases) {
        std::unique_ptr<Task> task = Open(u"once");
        uint16_t index = 0;
        std::unique_ptr<Trigger> trigger;
        (void)task->DeleteTrigger(0);
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        TASK_TRIGGER t{};
        ASSERT_EQ(trigger->GetTrigger(&t), kOk);
        t.wBeginYear = 2007, t.wEndYear = 2008, t.wBeginMonth = t.wBeginDay = t.wEndMonth = t.wEndDay = 1;
        t.TriggerType = c.type, t.rgFlags = c.flags;
        ASSERT_EQ(trigger->SetTrigger(t), kOk);
        ASSERT_EQ(task->SetApplicationName(c.application), kOk);
        ASSERT_EQ(SaveTask(*task), kOk);
        SystemTime next{};
        EXPECT_EQ(Status(u"once"), c.status) << &c - cases;
        EXPECT_EQ(Open(u"once")->GetNextRunTime(&next), c.next) << &c - cases;
        EXPECT_EQ(next.year != 0, c.next == kOk) << &c - cases;
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
        ASSERT_EQ(SaveTask(*task), kOk);
        EXPECT_EQ(task->Run(), c.run);
        uint32_t code = 0;
        EXPECT_EQ(Open(u"failing")->GetExitCode(&code), c.exit);
        EXPECT_NE(Status(u"failing"), kTaskRunning);
        ASSERT_EQ(scheduler_->Delete(u"failing"), kOk);
    }
    ExpectNoChildren();
}

// Whether this process may raise a priority: a child tries.
bool MayRaisePriority() {
    const pid_t child = fork();
    if (child == 0) _exit(setpriority(PRIO_PROCESS, 0, -1) == 0 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Gives up the right to raise priorities, as a user without it is.
bool DropRaising() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[2]{};
    if (syscall(SYS_capget, &header, data) != 0) return false;
    data[0].effective &= ~(1u << CAP_SYS_NICE);  // capabilities 0 to 31
    data[0].permitted &= ~(1u << CAP_SYS_NICE);
    return syscall(SYS_capset, &header, data) == 0;
}

TEST_F(JobRun, ThePriorityClassIsTheProgramsNicenessAndOneNotAllowedRunsAtNormal) {
    if (getpriority(PRIO_PROCESS, 0) != 0) GTEST_SKIP() << "the tests run niced";
    const bool privileged = MayRaisePriority();
    const struct {
        uint32_t priorityClass;
        int allowed, refused;  // niceness when the user may raise it, and when not
    } cases[] = {{0x40, 19, 19}, {0x4000, 10, 10}, {0x20, 0, 0},     {0x8000, -5, 0},
                 {0x80, -10, 0}, {0x100, -10, 0},  {0x12345, 0, 0}};  // the last no class: normal
    MakeTask(u"nice", u"/bin/sh", u"-c \"nice > niceness\"");
    jobs::Store store;
    ASSERT_EQ(jobs::Store::Open(folder_, &store), kOk);
    for (const auto& c : cases) {
        for (const bool refused : {false, true}) {
            jobs::Record record;
            {
                jobs::StoreLock lock;  // the last run's watcher may still be recording its end
                ASSERT_TRUE(store.Lock(&lock) == kOk && store.Read("nice.job", &record) == kOk);
                record.definition.priority = c.priorityClass;
                ASSERT_EQ(store.Write("nice.job", record), kOk);
            }
            unlink((folder_ + "/niceness").c_str());
            const pid_t child = fork();
            if (child == 0) {
                // From above normal, where a privileged server may stand, so that normal is a change.
                if (refused && privileged) setpriority(PRIO_PROCESS, 0, -3);
                _exit((!refused || DropRaising()) && jobs::RunStoredTask(store, "nice.job", NowInstant(), &record) == kOk
                          ? 0 : 1);
            }
            int status = 1;
            waitpid(child, &status, 0);
            ASSERT_TRUE(status == 0 && WaitFor([&] { return Read("niceness").ends_with("\n"); }));
            EXPECT_EQ(std::stoi(Read("niceness")), privileged && !refused ? c.allowed : c.refused)
                << std::hex << c.priorityClass << (refused ? " refused" : "");
            ASSERT_TRUE(WaitFor([&] { return store.Read("nice.job", &record) == kOk && !jobs::IsRunning(record.run); }));
        }
    }
}

}  // namespace
}  // namespace vrn::tasks::testing
