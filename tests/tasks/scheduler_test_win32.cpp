// The system's scheduler through the seam: what the task scripts can't reach
// under wine (every property read back, for wine's listing stops at the
// account) and each place where the adaptors stand in for wine. The suite
// starts from an empty task folder and leaves it empty.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "tasks/connection.h"

namespace vrn::tasks {
namespace {

constexpr char16_t kApplication[] = u"C:\\windows\\system32\\cmd.exe";

class SystemSchedulerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EmptyTaskFolder(); }
    void SetUp() override {
        ASSERT_GE(source_.Initialize(), 0);
        ASSERT_EQ(source_.CreateScheduler(&scheduler_), kOk);
    }
    void TearDown() override {
        scheduler_.reset();
        source_.Uninitialize();
        EmptyTaskFolder();
    }

    static void EmptyTaskFolder() {
        SchedulerSource& source = SystemScheduler();
        ASSERT_GE(source.Initialize(), 0);
        std::unique_ptr<Scheduler> scheduler;
        std::unique_ptr<WorkItemEnumerator> items;
        ASSERT_EQ(source.CreateScheduler(&scheduler), kOk);
        ASSERT_EQ(scheduler->Enum(&items), kOk);
        uint32_t fetched = 0;
        for (SchedulerMemory<char16_t*> names(source); items->Next(20, names.Out(), &fetched) >= 0 && fetched > 0;) {
            for (uint32_t i = 0; i < fetched; ++i) {
                EXPECT_EQ(scheduler->Delete(names.Get()[i]), kOk);
                source.FreeMemory(names.Get()[i]);
            }
        }
        items.reset();
        scheduler.reset();
        source.Uninitialize();
    }
    // A stored task that can run: an application, a folder to run in and a trigger.
    std::unique_ptr<Task> Store(const char16_t* name) {
        std::unique_ptr<Task> task;
        std::unique_ptr<Trigger> trigger;
        uint16_t index = 0;
        TASK_TRIGGER t{};
        t.cbTriggerSize = sizeof t, t.wBeginYear = 2007, t.wBeginMonth = 1, t.wBeginDay = 1, t.wStartHour = 3;
        t.TriggerType = kTriggerWeekly, t.Type.Weekly = {1, kAllDays};
        EXPECT_EQ(scheduler_->NewWorkItem(name, &task), kOk);
        if (!task) return nullptr;
        EXPECT_EQ(task->SetApplicationName(kApplication), kOk);
        EXPECT_EQ(task->SetParameters(u"/c exit 0"), kOk);
        EXPECT_EQ(task->SetWorkingDirectory(u"C:\\windows"), kOk);
        EXPECT_EQ(task->SetAccountInformation(u"", nullptr), kOk);
        EXPECT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        EXPECT_EQ(trigger->SetTrigger(t), kOk);
        EXPECT_EQ(SaveTask(*task), kOk);
        return task;
    }

    SchedulerSource& source_ = SystemScheduler();
    std::unique_ptr<Scheduler> scheduler_;
};

TEST_F(SystemSchedulerTest, EveryPropertyComesBackFromTheStore) {
    const uint8_t data[] = {1, 0, 0xE8};
    const struct {
        int32_t (Task::*set)(const char16_t*);
        int32_t (Task::*get)(char16_t**);
        const char16_t* text;
    } texts[] = {
        {&Task::SetApplicationName, &Task::GetApplicationName, kApplication},
        {&Task::SetCreator, &Task::GetCreator, u"TolvTaskEngine"},
        {&Task::SetComment, &Task::GetComment, u"a comment \u00E8"},
        {&Task::SetWorkingDirectory, &Task::GetWorkingDirectory, u"C:\\windows"},
        {&Task::SetParameters, &Task::GetParameters, u"/Task=X /Ditta=DITTA1"},
    };
    std::unique_ptr<Task> task;
    ASSERT_EQ(scheduler_->NewWorkItem(u"VrnSeam round trip", &task), kOk);
    for (const auto& t : texts) ASSERT_EQ(((*task).*t.set)(t.text), kOk);
    ASSERT_EQ(task->SetAccountInformation(u"", nullptr), kOk);
    ASSERT_EQ(task->SetWorkItemData(sizeof data, data), kOk);
    ASSERT_EQ(task->SetMaxRunTime(300000), kOk);
    ASSERT_EQ(task->SetFlags(kTaskFlagInteractive | kTaskFlagDisabled), kOk);
    SchedulerMemory<char16_t> account(source_);  // wine keeps no account in the store: read before saving
    ASSERT_EQ(task->GetAccountInformation(account.Out()), kOk);
    EXPECT_EQ(std::u16string(account.Get()), u"");
    ASSERT_EQ(SaveTask(*task), kOk);

    ASSERT_EQ(scheduler_->Activate(u"VrnSeam round trip", &task), kOk);
    for (const auto& t : texts) {
        SchedulerMemory<char16_t> text(source_);
        EXPECT_EQ(((*task).*t.get)(text.Out()), kOk);
        EXPECT_EQ(std::u16string(text.Get()), t.text);
    }
    uint16_t count = 0, idle = 0, deadline = 0;
    SchedulerMemory<uint8_t> bytes(source_);
    ASSERT_EQ(task->GetWorkItemData(&count, bytes.Out()), kOk);
    EXPECT_EQ(std::vector<uint8_t>(bytes.Get(), bytes.Get() + count), std::vector<uint8_t>(data, data + sizeof data));
    uint32_t ms = 0, flags = 0, priority = 0;
    EXPECT_EQ(task->GetMaxRunTime(&ms) | task->GetFlags(&flags) | task->GetPriority(&priority) |
                  task->GetIdleWait(&idle, &deadline), kOk);
    EXPECT_EQ(std::vector<uint32_t>({ms, flags, priority, idle, deadline}),
              std::vector<uint32_t>({300000, kTaskFlagInteractive | kTaskFlagDisabled, kNormalPriorityClass,
                                     kDefaultIdleMinutes, kDefaultDeadlineMinutes}));
    // Never run, and disabled: neither time exists.
    SystemTime last{9, 9, 9, 9, 9, 9, 9, 9}, next = last;
    EXPECT_GE(task->GetMostRecentRunTime(&last) | task->GetNextRunTime(&next), 0);
    EXPECT_EQ(last.year + last.month + last.day + next.year + next.month + next.day, 0);
}

// Wine refuses names with a dot, which Next hands out with ".job".
TEST_F(SystemSchedulerTest, NamesWithJobOnTheEnd) {
    ASSERT_TRUE(Store(u"VrnSeam dotted"));
    std::unique_ptr<Task> task;
    EXPECT_EQ(scheduler_->Activate(u"VrnSeam dotted.JOB", &task), kOk);
    EXPECT_EQ(scheduler_->Activate(u"VrnSeam missing.job", &task), kFileNotFound);
    EXPECT_EQ(scheduler_->Delete(u"VrnSeam missing.job"), kFileNotFound);
    EXPECT_EQ(scheduler_->NewWorkItem(u"VrnSeam dotted.Job", &task), kFileExists);
    EXPECT_EQ(scheduler_->Delete(u"VrnSeam dotted.jOB"), kOk);
}

// Wine's own service reads a job file as soon as it changes, and may hold it
// while a Delete comes: the pauses sweep across that moment.
TEST_F(SystemSchedulerTest, DeleteRightAfterSaveOrRun) {
    for (int round = 0; round < 80; ++round) {
        std::unique_ptr<Task> task = Store(u"VrnSeam busy");
        ASSERT_TRUE(task);
        if (round % 2 == 1) {
            EXPECT_EQ(task->Run(), kOk);
        }
        task.reset();
        std::this_thread::sleep_for(std::chrono::milliseconds(round % 16));
        ASSERT_EQ(scheduler_->Delete(u"VrnSeam busy"), kOk) << "round " << round;
        EXPECT_EQ(scheduler_->Activate(u"VrnSeam busy", &task), kFileNotFound);
    }
}

}  // namespace
}  // namespace vrn::tasks
