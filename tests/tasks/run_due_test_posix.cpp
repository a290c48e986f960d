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
    // A task started by the trigger.
    void AddTask(const char16_t* name, const TASK_TRIGGER& t, const char16_t* application,
                 const char16_t* parameters = u"", uint32_t flags = 0) {
        std::unique_ptr<Task> task = MakeTask(name, application, parameters);
        uint16_t index = 0;
        std::unique_ptr<Trigger> trigger;
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        ASSERT_EQ(trigger->SetTrigger(t), kOk);
        ASSERT_EQ(task->SetFlags(flags), kOk);
        ASSERT_EQ(SaveTask(*task), kOk);
    }
    // Daily at that hour from 1 January 2024.
    static TASK_TRIGGER DailyAt(uint16_t hour) {
        TASK_TRIGGER t{};
        t.cbTriggerSize = sizeof t, t.TriggerType = kTriggerDaily, t.Type.Daily.DaysInterval = 1;
        t.wBeginYear = 2024, t.wBeginMonth = 1, t.wBeginDay = 1, t.wStartHour = hour;
        return t;
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
    AddTask(u"at10", DailyAt(10), u"true");
    AddTask(u"at8", DailyAt(8), u"true");
    AddTask(u"at12", DailyAt(12), u"true");
    AddTask(u"off", DailyAt(10), u"true", u"", kTaskFlagDisabled);
    AddTask(u"long", DailyAt(10), u"sleep", u"30");

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


// A look a minute from 09:59 to 11:05, each waiting until the runs it started have ended.
TEST_F(RunDue, RepetitionAndRandomDelayStartWhenTheNextRunTimesSay) {
    TASK_TRIGGER repeating = DailyAt(10), delayed = DailyAt(10);
    repeating.MinutesInterval = 15, repeating.MinutesDuration = 60;
    delayed.wRandomMinutesInterval = 30;
    AddTask(u"repeating", repeating, u"true");
    AddTask(u"delayed", delayed, u"true");
    jobs::Record record;
    ASSERT_EQ(store_.Read("delayed.job", &record), kOk);
    const NextRun next = NextTaskRun(record.definition.triggers, Instant(1, 9, 59) + 1, SystemTimeZone(), record.identity);
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
    TASK_TRIGGER t = DailyAt(10);
    t.MinutesDuration = 1, t.rgFlags = kTriggerFlagKillAtDurationEnd;
    AddTask(u"killed", t, u"sleep", u"30");
    Look(1, 9, 59);
    ASSERT_EQ(Look(1, 10, 0, 58), Names{"killed.job"});  // two seconds before the end
    uint32_t code = 0;
    EXPECT_TRUE(WaitFor([&] { return Open(u"killed")->GetExitCode(&code) == kOk && code == 128 + SIGKILL; }));
}

// At the end of its last run, or, when starts were left then, at a look after the last.
TEST_F(RunDue, ATaskDeletedWhenDoneGoesAfterItsLastRun) {
    TASK_TRIGGER once = DailyAt(10), twoDays = DailyAt(10);
    once.TriggerType = kTriggerOnce;
    twoDays.rgFlags = kTriggerFlagHasEndDate, twoDays.wEndYear = 2024, twoDays.wEndMonth = 1, twoDays.wEndDay = 2;
    AddTask(u"once", once, u"true", u"", kTaskFlagDeleteWhenDone);
    AddTask(u"kept", once, u"true");
    AddTask(u"twoDays", twoDays, u"true", u"", kTaskFlagDeleteWhenDone);
    Look(1, 9, 59);
    EXPECT_EQ(Look(1, 10, 0), (Names{"kept.job", "once.job", "twoDays.job"}));
    EXPECT_TRUE(WaitFor([&] { return !Exists("once.job") && !Running("kept.job") && !Running("twoDays.job"); }));
    EXPECT_TRUE(Exists("kept.job") && Exists("twoDays.job"));  // twoDays has a start left
    // Disabled, it misses its last start; the look after that deletes it.
    std::unique_ptr<Task> task = Open(u"twoDays");
    ASSERT_EQ(task->SetFlags(kTaskFlagDeleteWhenDone | kTaskFlagDisabled), kOk);
    ASSERT_EQ(SaveTask(*task), kOk);
    Look(2, 9, 0);
    EXPECT_TRUE(Exists("twoDays.job"));
    Look(2, 11, 0);
    EXPECT_FALSE(Exists("twoDays.job"));
}

}  // namespace
}  // namespace vrn::tasks::testing
