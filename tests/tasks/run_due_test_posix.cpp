#include <signal.h>
#include <stdlib.h>

#include <ctime>
#include <fstream>
#include <map>

#include "tasks/job_process_posix.h"
#include "tasks/local_time_posix.h"
#include "tasks/run_due_posix.h"
#include "tests/tasks/store_fixture_posix.h"

namespace vrn::tasks::testing {
namespace {

class RunDue : public StoreTest {
protected:
    void SetUp() override {
        StoreTest::SetUp();
        setenv("TZ", "UTC0", 1);
        tzset();
        ASSERT_EQ(jobs::Store::Open(folder_, &store_), kOk);
    }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
        StoreTest::TearDown();
    }
    // A task started daily at that hour from 1 January 2024.
    void Daily(const char16_t* name, uint16_t hour, const char16_t* application, const char16_t* parameters = u"",
               uint32_t flags = 0) {
        std::unique_ptr<Task> task = MakeTask(name, application, parameters);
        uint16_t index = 0;
        std::unique_ptr<Trigger> trigger;
        TASK_TRIGGER t{};
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        ASSERT_EQ(trigger->GetTrigger(&t), kOk);
        t.wBeginYear = 2024, t.wBeginMonth = 1, t.wBeginDay = 1, t.wStartHour = hour, t.wStartMinute = 0, t.rgFlags = 0;
        ASSERT_EQ(trigger->SetTrigger(t), kOk);
        ASSERT_EQ(task->SetFlags(flags), kOk);
        ASSERT_EQ(SaveTask(*task), kOk);
    }
    static TASK_TRIGGER DailyAt(uint16_t hour, uint16_t minute) {
        TASK_TRIGGER t{};
        t.cbTriggerSize = sizeof t, t.TriggerType = kTriggerDaily, t.Type.Daily.DaysInterval = 1;
        t.wBeginYear = 2024, t.wBeginMonth = 1, t.wBeginDay = 1, t.wStartHour = hour, t.wStartMinute = minute;
        return t;
    }
    void AddTask(const char16_t* name, const char16_t* application, const char16_t* parameters, uint32_t flags,
                 const TASK_TRIGGER& t) {
        std::unique_ptr<Task> task = MakeTask(name, application, parameters);
        uint16_t index = 0;
        std::unique_ptr<Trigger> trigger;
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        ASSERT_EQ(trigger->SetTrigger(t), kOk);
        ASSERT_EQ(task->SetFlags(flags), kOk);
        ASSERT_EQ(SaveTask(*task), kOk);
    }
    static int64_t Instant(int day, int hour, int minute, int second = 0) {
        return SystemTimeZone().ToInstant({2024, 1, day, hour, minute, second});
    }
    std::vector<std::string> Look(int day, int hour, int minute, int second = 0) {
        std::vector<std::string> started;
        EXPECT_EQ(jobs::RunDue(store_, Instant(day, hour, minute, second), SystemTimeZone(), &started), kOk);
        return started;
    }
    bool Running(const std::string& file) const {
        jobs::Record record;
        return store_.Read(file, &record) == kOk && jobs::IsRunning(record.run);
    }
    bool Exists(const std::string& file) const {
        jobs::Record record;
        return store_.Read(file, &record) != kFileNotFound;
    }
    jobs::Store store_;
};

using Names = std::vector<std::string>;

TEST_F(RunDue, StartsWhatWasDueSinceThePreviousLookOnce) {
    Daily(u"at10", 10, u"true");
    Daily(u"at8", 8, u"true");
    Daily(u"at12", 12, u"true");
    Daily(u"off", 10, u"true", u"", kTaskFlagDisabled);
    Daily(u"long", 10, u"sleep", u"30");

    EXPECT_EQ(Look(1, 9, 0), Names{});  // the first look only records the time
    EXPECT_EQ(Look(1, 10, 30), (Names{"at10.job", "long.job"}));
    EXPECT_EQ(Look(1, 10, 31), Names{});
    // Three days missed: each task once; the long one still runs from before.
    EXPECT_EQ(Look(4, 8, 30), (Names{"at10.job", "at12.job", "at8.job"}));
    EXPECT_EQ(Look(3, 0, 0), Names{});  // the clock went back
    EXPECT_EQ(Look(3, 10, 0), (Names{"at10.job", "at8.job"}));

    EXPECT_EQ(Open(u"long")->Terminate(), kOk);
    SystemTime last{};
    ASSERT_EQ(Open(u"at8")->GetMostRecentRunTime(&last), kOk);
    EXPECT_EQ(last.day * 100 + last.hour, 310);  // the look's time
}


// Starts through the looks, a look a minute from 09:59 to 11:05, each waiting
// until the runs it started have ended.
TEST_F(RunDue, RepetitionAndRandomDelayStartWhenTheNextRunTimesSay) {
    TASK_TRIGGER repeating = DailyAt(10, 0), delayed = DailyAt(10, 0);
    repeating.MinutesInterval = 15, repeating.MinutesDuration = 60;
    delayed.wRandomMinutesInterval = 30;
    AddTask(u"repeating", u"true", u"", 0, repeating);
    AddTask(u"delayed", u"true", u"", 0, delayed);
    jobs::Record record;
    ASSERT_EQ(store_.Read("delayed.job", &record), kOk);
    const NextRun next = NextTaskRun(record.definition.triggers, Instant(1, 9, 59) + 1, SystemTimeZone(), record.identity);
    ASSERT_EQ(next.kind, NextRunKind::kTime);
    const LocalTime drawn = SystemTimeZone().ToLocal(next.instant);

    std::map<std::string, std::vector<int>> starts;  // minutes of the day
    for (int minute = 9 * 60 + 59; minute <= 11 * 60 + 5; ++minute) {
        for (const std::string& name : Look(1, minute / 60, minute % 60)) starts[name].push_back(minute);
        ASSERT_TRUE(WaitFor([&] { return !Running("repeating.job") && !Running("delayed.job"); }));
    }
    EXPECT_EQ(starts["repeating.job"], (std::vector<int>{600, 615, 630, 645}));
    EXPECT_EQ(starts["delayed.job"], std::vector<int>{drawn.hour * 60 + drawn.minute});
}

TEST_F(RunDue, ARunStartedInADurationThatKillsStopsAtItsEnd) {
    TASK_TRIGGER t = DailyAt(10, 0);
    t.MinutesDuration = 1, t.rgFlags = kTriggerFlagKillAtDurationEnd;
    AddTask(u"killed", u"sleep", u"30", 0, t);
    Look(1, 9, 59);
    ASSERT_EQ(Look(1, 10, 0, 58), Names{"killed.job"});  // two seconds before the end
    uint32_t code = 0;
    EXPECT_TRUE(WaitFor([&] { return Open(u"killed")->GetExitCode(&code) == kOk && code == 128 + SIGKILL; }));
}

// A task that deletes itself when done goes once its last run has ended: at
// that run's end, or, when starts were left then, at a look after the last.
TEST_F(RunDue, ATaskDeletedWhenDoneGoesAfterItsLastRun) {
    TASK_TRIGGER once = DailyAt(10, 0), twoDays = DailyAt(10, 0);
    once.TriggerType = kTriggerOnce;
    twoDays.rgFlags = kTriggerFlagHasEndDate, twoDays.wEndYear = 2024, twoDays.wEndMonth = 1, twoDays.wEndDay = 2;
    AddTask(u"once", u"true", u"", kTaskFlagDeleteWhenDone, once);
    AddTask(u"kept", u"true", u"", 0, once);
    AddTask(u"twoDays", u"true", u"", kTaskFlagDeleteWhenDone, twoDays);
    Look(1, 9, 59);
    EXPECT_EQ(Look(1, 10, 0), (Names{"kept.job", "once.job", "twoDays.job"}));
    EXPECT_TRUE(WaitFor([&] { return !Exists("once.job") && !Running("kept.job") && !Running("twoDays.job"); }));
    EXPECT_TRUE(Exists("kept.job"));
    EXPECT_TRUE(Exists("twoDays.job"));  // a start was left
    // Disabled, it misses its last start; the look after that deletes it.
    std::unique_ptr<Task> task = Open(u"twoDays");
    ASSERT_EQ(task->SetFlags(kTaskFlagDeleteWhenDone | kTaskFlagDisabled), kOk);
    ASSERT_EQ(SaveTask(*task), kOk);
    EXPECT_EQ(Look(2, 9, 0), Names{});
    EXPECT_TRUE(Exists("twoDays.job"));
    EXPECT_EQ(Look(2, 11, 0), Names{});
    EXPECT_FALSE(Exists("twoDays.job"));
    EXPECT_TRUE(Exists("kept.job"));
}

}  // namespace
}  // namespace vrn::tasks::testing
