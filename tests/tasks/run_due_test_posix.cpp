#include <stdlib.h>

#include <ctime>
#include <fstream>

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
    std::vector<std::string> Look(int day, int hour, int minute) {
        std::vector<std::string> started;
        const int64_t now = SystemTimeZone().ToInstant({2024, 1, day, hour, minute});
        EXPECT_EQ(jobs::RunDue(store_, now, SystemTimeZone(), &started), kOk);
        return started;
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

}  // namespace
}  // namespace vrn::tasks::testing
