// The system's scheduler through the seam: a task and its triggers there and
// back, the listing, and each place where the adaptors stand in for wine.
// The suite starts from an empty task folder and leaves it empty.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tasks/scheduler.h"

namespace vrn::tasks {
namespace {

constexpr char16_t kApplication[] = u"C:\\windows\\system32\\cmd.exe";

std::string Narrow(const std::u16string& text) { return std::string(text.begin(), text.end()); }

class SystemSchedulerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { EmptyTaskFolder(); }
    static void TearDownTestSuite() { EmptyTaskFolder(); }

    void SetUp() override {
        ASSERT_GE(source_.Initialize(), 0);
        ASSERT_EQ(source_.CreateScheduler(&scheduler_), kOk);
    }
    void TearDown() override {
        for (const std::u16string& name : List(*scheduler_)) EXPECT_EQ(scheduler_->Delete(name.c_str()), kOk);
        scheduler_.reset();
        source_.Uninitialize();
    }

    static void EmptyTaskFolder() {
        SchedulerSource& source = SystemScheduler();
        ASSERT_GE(source.Initialize(), 0);
        {
            std::unique_ptr<Scheduler> scheduler;
            ASSERT_EQ(source.CreateScheduler(&scheduler), kOk);
            for (const std::u16string& name : List(*scheduler)) ASSERT_EQ(scheduler->Delete(name.c_str()), kOk);
        }
        source.Uninitialize();
    }

    // Every name of the folder, as Next gives them.
    static std::vector<std::u16string> List(Scheduler& scheduler) {
        SchedulerSource& source = SystemScheduler();
        std::vector<std::u16string> names;
        std::unique_ptr<WorkItemEnumerator> items;
        EXPECT_EQ(scheduler.Enum(&items), kOk);
        if (!items) return names;
        for (;;) {
            SchedulerMemory<char16_t*> array(source);
            uint32_t fetched = 0;
            const int32_t result = items->Next(20, array.Out(), &fetched);
            for (uint32_t i = 0; i < fetched; ++i) {
                names.emplace_back(array.Get()[i]);
                source.FreeMemory(array.Get()[i]);
            }
            if (result < 0 || fetched == 0) return names;
        }
    }

    std::u16string Take(char16_t* text) {
        std::u16string out = text != nullptr ? text : u"(null)";
        source_.FreeMemory(text);
        return out;
    }
    static int32_t Save(Task& task) {
        std::unique_ptr<PersistFile> persist;
        const int32_t result = task.QueryPersistFile(&persist);
        return result < 0 ? result : persist->Save(nullptr, true);
    }
    // A stored task that can run: an application, a folder to run in and an
    // enabled trigger.
    std::unique_ptr<Task> Store(const char16_t* name) {
        std::unique_ptr<Task> task;
        EXPECT_EQ(scheduler_->NewWorkItem(name, &task), kOk);
        if (!task) return nullptr;
        EXPECT_EQ(task->SetApplicationName(kApplication), kOk);
        EXPECT_EQ(task->SetParameters(u"/c exit 0"), kOk);
        EXPECT_EQ(task->SetWorkingDirectory(u"C:\\windows"), kOk);
        EXPECT_EQ(task->SetAccountInformation(u"", nullptr), kOk);
        uint16_t index = 0;
        std::unique_ptr<Trigger> trigger;
        EXPECT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        if (trigger) {
            EXPECT_EQ(trigger->SetTrigger(Weekly(3, 0, kAllDays)), kOk);
        }
        EXPECT_EQ(Save(*task), kOk);
        return task;
    }
    std::unique_ptr<Task> Open(const char16_t* name) {
        std::unique_ptr<Task> task;
        EXPECT_EQ(scheduler_->Activate(name, &task), kOk) << Narrow(name);
        return task;
    }
    static TASK_TRIGGER Weekly(uint16_t hour, uint16_t minute, uint16_t days) {
        TASK_TRIGGER t{};
        t.cbTriggerSize = sizeof t;
        t.wBeginYear = 2007;
        t.wBeginMonth = 1;
        t.wBeginDay = 1;
        t.wStartHour = hour;
        t.wStartMinute = minute;
        t.TriggerType = kTriggerWeekly;
        t.Type.Weekly.WeeksInterval = 1;
        t.Type.Weekly.rgfDaysOfTheWeek = days;
        return t;
    }

    SchedulerSource& source_ = SystemScheduler();
    std::unique_ptr<Scheduler> scheduler_;
};

TEST_F(SystemSchedulerTest, EveryPropertyComesBackFromTheStore) {
    const uint8_t data[] = {1, 0, 0xE8};
    {
        std::unique_ptr<Task> task;
        ASSERT_EQ(scheduler_->NewWorkItem(u"VrnSeam round trip", &task), kOk);
        ASSERT_EQ(task->SetApplicationName(kApplication), kOk);
        ASSERT_EQ(task->SetAccountInformation(u"", nullptr), kOk);
        ASSERT_EQ(task->SetCreator(u"TolvTaskEngine"), kOk);
        ASSERT_EQ(task->SetComment(u"a comment \u00E8"), kOk);
        ASSERT_EQ(task->SetWorkingDirectory(u"C:\\windows"), kOk);
        ASSERT_EQ(task->SetParameters(u"/Task=X /Ditta=DITTA1"), kOk);
        ASSERT_EQ(task->SetWorkItemData(sizeof data, data), kOk);
        ASSERT_EQ(task->SetMaxRunTime(300000), kOk);
        ASSERT_EQ(task->SetFlags(kTaskFlagInteractive | kTaskFlagDisabled), kOk);
        // Wine keeps no account in the store, so this is read before saving.
        char16_t* account = nullptr;
        ASSERT_EQ(task->GetAccountInformation(&account), kOk);
        EXPECT_EQ(Take(account), u"");
        ASSERT_EQ(Save(*task), kOk);
    }

    std::unique_ptr<Task> task = Open(u"VrnSeam round trip");
    ASSERT_TRUE(task);
    const struct {
        int32_t (Task::*get)(char16_t**);
        std::u16string expected;
    } texts[] = {
        {&Task::GetApplicationName, kApplication}, {&Task::GetCreator, u"TolvTaskEngine"},
        {&Task::GetComment, u"a comment \u00E8"},  {&Task::GetWorkingDirectory, u"C:\\windows"},
        {&Task::GetParameters, u"/Task=X /Ditta=DITTA1"},
    };
    for (const auto& row : texts) {
        char16_t* text = nullptr;
        EXPECT_EQ(((*task).*row.get)(&text), kOk);
        EXPECT_EQ(Take(text), row.expected);
    }

    uint16_t count = 0;
    SchedulerMemory<uint8_t> bytes(source_);
    ASSERT_EQ(task->GetWorkItemData(&count, bytes.Out()), kOk);
    ASSERT_EQ(count, sizeof data);
    EXPECT_EQ(std::memcmp(bytes.Get(), data, sizeof data), 0);

    uint32_t value = 0;
    EXPECT_EQ(task->GetMaxRunTime(&value), kOk);
    EXPECT_EQ(value, 300000u);
    EXPECT_EQ(task->GetFlags(&value), kOk);
    EXPECT_EQ(value, kTaskFlagInteractive | kTaskFlagDisabled);
    EXPECT_EQ(task->GetPriority(&value), kOk);
    EXPECT_EQ(value, kNormalPriorityClass);
    uint16_t idle = 0, deadline = 0;
    EXPECT_EQ(task->GetIdleWait(&idle, &deadline), kOk);
    EXPECT_EQ(idle, kDefaultIdleMinutes);
    EXPECT_EQ(deadline, kDefaultDeadlineMinutes);

    // Never run, and disabled: neither time exists.
    SystemTime last{9, 9, 9, 9, 9, 9, 9, 9};
    SystemTime next = last;
    EXPECT_GE(task->GetMostRecentRunTime(&last), 0);
    EXPECT_GE(task->GetNextRunTime(&next), 0);
    EXPECT_EQ(last.year + last.month + last.day + next.year + next.month + next.day, 0);
}

TEST_F(SystemSchedulerTest, TriggersAreCreatedReadTextedAndDeleted) {
    ASSERT_TRUE(Store(u"VrnSeam triggers"));
    std::unique_ptr<Task> task = Open(u"VrnSeam triggers");
    ASSERT_TRUE(task);
    uint16_t first = 0;
    ASSERT_EQ(task->GetTriggerCount(&first), kOk);

    TASK_TRIGGER lastDay = Weekly(23, 59, kAllDays);
    lastDay.wEndYear = 2007;
    lastDay.wEndMonth = 1;
    lastDay.wEndDay = 1;
    lastDay.rgFlags = kTriggerFlagHasEndDate;
    const TASK_TRIGGER made[] = {Weekly(23, 59, 0x2A), lastDay};
    for (uint16_t i = 0; i < 2; ++i) {
        uint16_t index = 0xFFFF;
        std::unique_ptr<Trigger> trigger;
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        EXPECT_EQ(index, first + i);
        ASSERT_EQ(trigger->SetTrigger(made[i]), kOk);
    }
    ASSERT_EQ(Save(*task), kOk);

    task = Open(u"VrnSeam triggers");
    ASSERT_TRUE(task);
    uint16_t count = 0;
    ASSERT_EQ(task->GetTriggerCount(&count), kOk);
    ASSERT_EQ(count, first + 2);
    for (uint16_t i = 0; i < 2; ++i) {
        std::unique_ptr<Trigger> trigger;
        ASSERT_EQ(task->GetTrigger(first + i, &trigger), kOk);
        TASK_TRIGGER read{};
        ASSERT_EQ(trigger->GetTrigger(&read), kOk);
        EXPECT_EQ(std::memcmp(&read, &made[i], sizeof read), 0) << "trigger " << i;
        char16_t* text = nullptr;
        EXPECT_EQ(task->GetTriggerString(first + i, &text), kOk);
        EXPECT_FALSE(Take(text).empty());
    }
    char16_t* text = nullptr;
    EXPECT_EQ(task->GetTriggerString(first + 2, &text), kTriggerNotFound);
    Take(text);

    ASSERT_EQ(task->DeleteTrigger(first), kOk);
    EXPECT_EQ(task->DeleteTrigger(first + 1), kTriggerNotFound);
    ASSERT_EQ(task->GetTriggerCount(&count), kOk);
    EXPECT_EQ(count, first + 1);
    std::unique_ptr<Trigger> trigger;
    ASSERT_EQ(task->GetTrigger(first, &trigger), kOk);
    TASK_TRIGGER read{};
    ASSERT_EQ(trigger->GetTrigger(&read), kOk);
    EXPECT_EQ(read.rgFlags, kTriggerFlagHasEndDate);
}

TEST_F(SystemSchedulerTest, TheListingGivesJobNamesInBatchesThatOpenAndDelete) {
    const std::vector<std::u16string> names = {u"VrnSeam Zeta", u"VrnSeam alpha", u"VrnSeam Mid"};
    for (const std::u16string& name : names) ASSERT_TRUE(Store(name.c_str()));

    // Batches of 2: full, short (kFalse), then none.
    SchedulerMemory<char16_t*> array(source_);
    std::unique_ptr<WorkItemEnumerator> items;
    ASSERT_EQ(scheduler_->Enum(&items), kOk);
    for (const auto& [result, fetched] : {std::pair{kOk, 2u}, {kFalse, 1u}, {kFalse, 0u}}) {
        uint32_t got = 99;
        EXPECT_EQ(items->Next(2, array.Out(), &got), result);
        EXPECT_EQ(got, fetched);
        for (uint32_t i = 0; i < got; ++i) source_.FreeMemory(array.Get()[i]);
    }

    std::vector<std::u16string> listed = List(*scheduler_);
    std::vector<std::u16string> expected;
    for (const std::u16string& name : names) expected.push_back(name + u".job");
    std::sort(listed.begin(), listed.end());
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(listed, expected);
    for (const std::u16string& name : listed) {
        EXPECT_TRUE(Open(name.c_str()));
        EXPECT_EQ(scheduler_->Delete(name.c_str()), kOk) << Narrow(name);
    }
    EXPECT_TRUE(List(*scheduler_).empty());
}

TEST_F(SystemSchedulerTest, NamesThatWineAnswersOtherwise) {
    ASSERT_TRUE(Store(u"VrnSeam dotted"));
    std::unique_ptr<Task> task;
    struct Row {
        const char* what;
        int32_t result;
        int32_t expected;
        bool gotTask;
    };
    const Row rows[] = {
        {"Activate with .job", scheduler_->Activate(u"VrnSeam dotted.job", &task), kOk, bool(task)},
        {"Activate with .JOB", scheduler_->Activate(u"VrnSeam dotted.JOB", &task), kOk, bool(task)},
        {"Activate missing .job", scheduler_->Activate(u"VrnSeam missing.job", &task), kFileNotFound, bool(task)},
        {"Activate null", scheduler_->Activate(nullptr, &task), kInvalidArgument, bool(task)},
        {"Delete null", scheduler_->Delete(nullptr), kInvalidArgument, false},
        {"Delete missing .job", scheduler_->Delete(u"VrnSeam missing.job"), kFileNotFound, false},
        {"NewWorkItem null", scheduler_->NewWorkItem(nullptr, &task), kInvalidArgument, bool(task)},
        {"NewWorkItem existing", scheduler_->NewWorkItem(u"VrnSeam dotted", &task), kFileExists, bool(task)},
        {"NewWorkItem existing .job", scheduler_->NewWorkItem(u"VrnSeam dotted.Job", &task), kFileExists, bool(task)},
        {"NewWorkItem new .job", scheduler_->NewWorkItem(u"VrnSeam fresh.job", &task), kOk, bool(task)},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.result, row.expected) << row.what;
        EXPECT_EQ(row.gotTask, row.expected == kOk) << row.what;
    }
    // The task made under "fresh.job" is stored under "fresh".
    ASSERT_TRUE(task);
    ASSERT_EQ(task->SetApplicationName(kApplication), kOk);
    ASSERT_EQ(Save(*task), kOk);
    EXPECT_TRUE(Open(u"VrnSeam fresh"));
    EXPECT_EQ(scheduler_->Delete(u"VrnSeam fresh.JOB"), kOk);
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

TEST(SystemSchedulerSource, ASecondInitializeOnAThreadIsFalseAndOwesItsUninitialize) {
    std::thread([] {
        SchedulerSource& source = SystemScheduler();
        EXPECT_EQ(source.Initialize(), kOk);
        EXPECT_EQ(source.Initialize(), kFalse);
        source.Uninitialize();
        std::unique_ptr<Scheduler> scheduler;
        EXPECT_EQ(source.CreateScheduler(&scheduler), kOk);  // still initialised once
        scheduler.reset();
        source.Uninitialize();
        source.FreeMemory(nullptr);
    }).join();
}

}  // namespace
}  // namespace vrn::tasks
