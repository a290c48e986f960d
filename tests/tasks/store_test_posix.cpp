#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <random>
#include <vector>

#include "tasks/job_store_posix.h"
#include "tests/tasks/store_fixture_posix.h"

namespace vrn::tasks::testing {
namespace {

using JobStore = StoreTest;

// The names a Next walk hands out, all batches of `batch`.
std::vector<std::u16string> Walk(Scheduler& scheduler, SchedulerSource& source, uint32_t batch,
                                 std::vector<uint32_t>* sizes = nullptr) {
    std::unique_ptr<WorkItemEnumerator> items;
    EXPECT_EQ(scheduler.Enum(&items), kOk);
    std::vector<std::u16string> out;
    for (;;) {
        char16_t** names = nullptr;
        uint32_t fetched = 0;
        const int32_t result = items->Next(batch, &names, &fetched);
        EXPECT_EQ(result, fetched == batch ? kOk : kFalse);
        if (fetched == 0) return out;
        if (sizes != nullptr) sizes->push_back(fetched);
        for (uint32_t i = 0; i < fetched; ++i) {
            out.push_back(names[i]);
            source.FreeMemory(names[i]);
        }
        source.FreeMemory(names);
    }
}

TEST_F(JobStore, NamesBecomeFileNamesAndOddOnesAreRefused) {
    const struct {
        const char16_t* name;
        const char* file;  // null: refused with kInvalidArgument
    } cases[] = {
        {u"plain", "plain.job"},
        {u"with.job", "with.job"},
        {u"Upper.JoB", "Upper.JoB"},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-DITTA1$SQL2", "{6F9619FF-8B86-D011-B42D-00C04FC964FF}-DITTA1$SQL2.job"},
        {u"caf\u00e9 \U0001F600", "caf\xc3\xa9 \xf0\x9f\x98\x80.job"},
        {nullptr, nullptr}, {u"", nullptr}, {u".", nullptr}, {u"..", nullptr}, {u"a/b", nullptr},
        {u"a\\b", nullptr}, {u"a:b", nullptr}, {u"a*b", nullptr}, {u"a?b", nullptr}, {u"a\"b", nullptr},
        {u"a<b", nullptr}, {u"a>b", nullptr}, {u"a|b", nullptr}, {u"a\tb", nullptr}, {u"a\x7f", "a\x7f.job"},
        {u"\xD800x", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file != nullptr ? c.file : "refused");
        std::unique_ptr<Task> task;
        if (c.file == nullptr) {
            EXPECT_EQ(scheduler_->NewWorkItem(c.name, &task), kInvalidArgument);
            EXPECT_EQ(scheduler_->Activate(c.name, &task), kInvalidArgument);
            EXPECT_EQ(scheduler_->Delete(c.name), kInvalidArgument);
            continue;
        }
        MakeTask(c.name);
        struct stat st {};
        ASSERT_EQ(stat((folder_ + "/" + c.file).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
        // ".job" is added once: a name that has it names no other task.
        const bool added = std::string(c.file).ends_with(".job") && !std::u16string(c.name).ends_with(u".job");
        EXPECT_EQ(scheduler_->Activate((std::u16string(c.name) + u".job").c_str(), &task),
                  added ? kOk : kFileNotFound);
        EXPECT_EQ(scheduler_->NewWorkItem(c.name, &task), kFileExists);
    }
    struct stat st {};
    ASSERT_EQ(stat(folder_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    std::unique_ptr<Task> task;
    EXPECT_EQ(scheduler_->NewWorkItem(u"PLAIN.JOB", &task), kFileExists);  // letter case tells no task apart
    EXPECT_EQ(scheduler_->Activate(u"upper", &task), kOk);
}

TEST_F(JobStore, AnswersAsThePlatformDoes) {
    std::unique_ptr<Task> task;
    EXPECT_EQ(scheduler_->Activate(u"missing", &task), kFileNotFound);
    EXPECT_EQ(scheduler_->Delete(u"missing"), kFileNotFound);

    // A new task's defaults, as stored.
    ASSERT_EQ(scheduler_->NewWorkItem(u"fresh", &task), kOk);
    EXPECT_EQ(task->Terminate(), kFileNotFound);  // not stored yet
    ASSERT_EQ(Save(*task), kOk);
    task = Open(u"fresh.job");
    const struct {
        int32_t (Task::*get)(uint32_t*);
        int32_t result;
        uint32_t value;
    } numbers[] = {
        {&Task::GetFlags, kOk, 0},
        {&Task::GetPriority, kOk, 0x20},
        {&Task::GetMaxRunTime, kOk, 259200000},
        {&Task::GetExitCode, kTaskHasNotRun, 0},
    };
    for (const auto& n : numbers) {
        uint32_t value = 1;
        EXPECT_EQ(((*task).*n.get)(&value), n.result);
        EXPECT_EQ(value, n.value);
    }
    uint16_t idle = 0, deadline = 0, count = 1;
    EXPECT_EQ(task->GetIdleWait(&idle, &deadline), kOk);
    EXPECT_EQ(idle * 100 + deadline, 10 * 100 + 60);
    int32_t status = 0;
    EXPECT_EQ(task->GetStatus(&status), kOk);
    EXPECT_EQ(status, kTaskHasNotRun);
    SystemTime time{1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(task->GetMostRecentRunTime(&time), kTaskHasNotRun);
    EXPECT_EQ(time.year + time.month + time.day, 0);
    EXPECT_EQ(task->GetNextRunTime(&time), kTaskNoValidTriggers);
    char16_t* text = nullptr;
    EXPECT_EQ(task->GetAccountInformation(&text), kAccountInformationNotSet);
    uint8_t* data = nullptr;
    EXPECT_EQ(task->GetWorkItemData(&count, &data), kOk);
    EXPECT_EQ(count + (data != nullptr), 0);
    std::unique_ptr<Trigger> trigger;
    EXPECT_EQ(task->GetTriggerCount(&count), kOk);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(task->GetTrigger(0, &trigger), kTriggerNotFound);
    EXPECT_EQ(task->DeleteTrigger(0), kTriggerNotFound);
    EXPECT_EQ(task->GetTriggerString(0, &text), kTriggerNotFound);
    EXPECT_EQ(task->Terminate(), kTaskNotRunning);

    // An empty account is an account: the system's, with no password.
    ASSERT_EQ(task->SetAccountInformation(u"", nullptr), kOk);
    EXPECT_EQ(task->GetAccountInformation(&text), kOk);
    EXPECT_EQ(Take(text), u"");

    // Disabled reads disabled, and has no next run.
    ASSERT_EQ(task->SetFlags(kTaskFlagDisabled), kOk);
    EXPECT_EQ(task->GetStatus(&status), kOk);
    EXPECT_EQ(status, kTaskDisabled);
    EXPECT_EQ(task->GetNextRunTime(&time), kTaskDisabled);
}

TEST_F(JobStore, InitializeCountsPerThread) {
    // SetUp initialised once already.
    EXPECT_EQ(source_.Initialize(), kFalse);
    source_.Uninitialize();
    source_.Uninitialize();
    std::unique_ptr<Scheduler> scheduler;
    EXPECT_EQ(source_.CreateScheduler(&scheduler), jobs::kNotInitialized);
    EXPECT_EQ(source_.Initialize(), kOk);
}

TEST_F(JobStore, EverythingSavedReadsBackTheSame) {
    std::unique_ptr<Task> task;
    ASSERT_EQ(scheduler_->NewWorkItem(u"full", &task), kOk);
    const uint8_t data[] = {0, 1, 0xFF, 0x80, 7};
    ASSERT_EQ(task->SetApplicationName(u"/usr/bin/app \u00e8"), kOk);
    ASSERT_EQ(task->SetCreator(u"TolvTaskEngine"), kOk);
    ASSERT_EQ(task->SetComment(u"a comment\nover lines"), kOk);
    ASSERT_EQ(task->SetWorkingDirectory(u"/tmp"), kOk);
    ASSERT_EQ(task->SetParameters(u"/Task=X /Ditta=D"), kOk);
    ASSERT_EQ(task->SetAccountInformation(u"someone", u"secret-password"), kOk);
    ASSERT_EQ(task->SetWorkItemData(sizeof data, data), kOk);
    ASSERT_EQ(task->SetMaxRunTime(0xFFFFFFFFu), kOk);
    ASSERT_EQ(task->SetFlags(0x80000007u), kOk);

    // One trigger of each type, every field set to something of its own.
    std::vector<TASK_TRIGGER> triggers;
    for (int32_t type = kTriggerOnce; type <= kTriggerAtLogon; ++type) {
        TASK_TRIGGER t{};
        const auto u16 = [](int v) { return static_cast<uint16_t>(v); };
        t.cbTriggerSize = sizeof t, t.Reserved1 = u16(type + 100), t.TriggerType = type;
        t.wBeginYear = 2007, t.wBeginMonth = u16(type + 1), t.wBeginDay = 2;
        t.wEndYear = 2030, t.wEndMonth = 12, t.wEndDay = 31;
        t.wStartHour = 23, t.wStartMinute = u16(50 + type), t.MinutesDuration = 600, t.MinutesInterval = 15;
        t.rgFlags = kTriggerFlagHasEndDate | (type == kTriggerDaily ? kTriggerFlagDisabled : 0);
        t.Type.MonthlyDOW = {u16(type == kTriggerMonthlyDow ? 5 : 3), 0x55, 0xABC};
        t.Reserved2 = 0xBEEF, t.wRandomMinutesInterval = u16(type);
        uint16_t index = 99;
        std::unique_ptr<Trigger> trigger;
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        EXPECT_EQ(index, triggers.size());
        ASSERT_EQ(trigger->SetTrigger(t), kOk);
        triggers.push_back(t);
    }
    ASSERT_EQ(Save(*task), kOk);

    task = Open(u"full");
    char16_t* text = nullptr;
    const struct {
        int32_t (Task::*get)(char16_t**);
        const char16_t* expected;
    } texts[] = {
        {&Task::GetApplicationName, u"/usr/bin/app \u00e8"}, {&Task::GetCreator, u"TolvTaskEngine"},
        {&Task::GetComment, u"a comment\nover lines"},      {&Task::GetWorkingDirectory, u"/tmp"},
        {&Task::GetParameters, u"/Task=X /Ditta=D"},         {&Task::GetAccountInformation, u"someone"},
    };
    for (const auto& t : texts) {
        EXPECT_EQ(((*task).*t.get)(&text), kOk);
        EXPECT_EQ(Take(text), t.expected);
    }
    uint16_t count = 0;
    uint8_t* got = nullptr;
    ASSERT_EQ(task->GetWorkItemData(&count, &got), kOk);
    ASSERT_EQ(count, sizeof data);
    EXPECT_EQ(std::memcmp(got, data, sizeof data), 0);
    source_.FreeMemory(got);
    uint32_t limit = 0, flags = 0;
    ASSERT_EQ(task->GetMaxRunTime(&limit), kOk);
    ASSERT_EQ(task->GetFlags(&flags), kOk);
    EXPECT_EQ(limit, 0xFFFFFFFFu);
    EXPECT_EQ(flags, 0x80000007u);
    ASSERT_EQ(task->GetTriggerCount(&count), kOk);
    ASSERT_EQ(count, triggers.size());
    for (uint16_t i = 0; i < count; ++i) {
        std::unique_ptr<Trigger> trigger;
        TASK_TRIGGER back{};
        ASSERT_EQ(task->GetTrigger(i, &trigger), kOk);
        ASSERT_EQ(trigger->GetTrigger(&back), kOk);
        EXPECT_EQ(std::memcmp(&back, &triggers[i], sizeof back), 0) << "trigger " << i;
    }

    // The password is nowhere in the file.
    std::ifstream in(folder_ + "/full.job", std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    const char16_t secret[] = u"secret";
    EXPECT_EQ(bytes.find(std::string(reinterpret_cast<const char*>(secret), 12)), std::string::npos);
    EXPECT_EQ(bytes.find("secret"), std::string::npos);
}

TEST_F(JobStore, TriggersShiftDownAfterADeleteAndRefuseBadRecords) {
    std::unique_ptr<Task> task = MakeTask(u"t");
    std::unique_ptr<Trigger> handles[3];
    for (uint16_t hour = 0; hour < 3; ++hour) {
        uint16_t index = 0;
        ASSERT_EQ(task->CreateTrigger(&index, &handles[hour]), kOk);
        TASK_TRIGGER t{};
        ASSERT_EQ(handles[hour]->GetTrigger(&t), kOk);
        t.wStartHour = hour;
        t.rgFlags = 0;
        ASSERT_EQ(handles[hour]->SetTrigger(t), kOk);
    }
    ASSERT_EQ(task->DeleteTrigger(1), kOk);
    std::unique_ptr<Trigger> second;
    TASK_TRIGGER t{};
    ASSERT_EQ(task->GetTrigger(1, &second), kOk);
    ASSERT_EQ(second->GetTrigger(&t), kOk);
    EXPECT_EQ(t.wStartHour, 2);
    EXPECT_EQ(handles[2]->GetTrigger(&t), kOk);  // still its own trigger
    EXPECT_EQ(handles[1]->GetTrigger(&t), kTriggerNotFound);
    EXPECT_EQ(task->GetTrigger(2, &second), kTriggerNotFound);

    const struct {
        const char* why;
        void (*spoil)(TASK_TRIGGER&);
    } bad[] = {
        {"size", [](TASK_TRIGGER& r) { r.cbTriggerSize = 44; }},
        {"hour", [](TASK_TRIGGER& r) { r.wStartHour = 24; }},
        {"begin", [](TASK_TRIGGER& r) { r.wBeginDay = 31, r.wBeginMonth = 4; }},
        {"end before begin", [](TASK_TRIGGER& r) { r.rgFlags = kTriggerFlagHasEndDate, r.wEndYear = 2000, r.wEndMonth = 1, r.wEndDay = 1; }},
        {"interval over duration", [](TASK_TRIGGER& r) { r.MinutesInterval = 10, r.MinutesDuration = 10; }},
        {"no days", [](TASK_TRIGGER& r) { r.Type.Daily.DaysInterval = 0; }},
    };
    ASSERT_EQ(handles[0]->GetTrigger(&t), kOk);
    for (const auto& b : bad) {
        TASK_TRIGGER spoilt = t;
        b.spoil(spoilt);
        EXPECT_EQ(handles[0]->SetTrigger(spoilt), kInvalidArgument) << b.why;
    }
}

TEST_F(JobStore, EnumListsIntactTasksInOrderAndPassesOverDamagedFiles) {
    for (const char16_t* name : {u"b", u"a.JOB", u"c", u"d", u"e", u"Z"}) MakeTask(name);
    // Cut short, noise, an empty file, and files that aren't tasks at all.
    std::ifstream in(folder_ + "/c.job", std::ios::binary);
    const std::string whole((std::istreambuf_iterator<char>(in)), {});
    std::mt19937 random(7);
    std::string noise(whole.size(), '\0');
    for (char& ch : noise) ch = static_cast<char>(random());
    std::string flipped = whole;
    flipped[whole.size() / 2] ^= 0x10;
    const std::pair<const char*, std::string> damaged[] = {
        {"c.job", whole.substr(0, whole.size() - 1)}, {"d.job", noise}, {"e.job", ""},
        {"f.job", flipped}, {"notes.txt", whole},
    };
    for (const auto& [name, content] : damaged) std::ofstream(folder_ + "/" + name, std::ios::binary) << content;
    mkdir((folder_ + "/g.job").c_str(), 0700);

    std::vector<uint32_t> sizes;
    EXPECT_EQ(Walk(*scheduler_, source_, 2, &sizes), (std::vector<std::u16string>{u"Z.job", u"a.JOB", u"b.job"}));
    EXPECT_EQ(sizes, (std::vector<uint32_t>{2, 1}));
    std::unique_ptr<Task> task;
    for (const char16_t* name : {u"c", u"d", u"e", u"f", u"g"}) {
        EXPECT_EQ(scheduler_->Activate(name, &task), kInvalidTask);
    }
    EXPECT_EQ(scheduler_->Delete(u"d"), kOk);  // a damaged task can still be removed
}

// A saver killed anywhere leaves the task whole: the old text or the new one.
TEST_F(JobStore, AKillDuringSaveLeavesTheOldTaskOrTheNew) {
    MakeTask(u"victim");
    const std::u16string filler(4000, u'x');
    std::mt19937 random(11);
    std::u16string last = u"";
    int changed = 0;
    // The kill comes within `limit`, which follows the time a save takes here
    // (down after a save that got through, up after one that didn't), so that
    // kills keep landing inside saves however loaded the machine is.
    double limit = 2000;
    for (int round = 0; round < 200; ++round) {
        const std::u16string next = Wide(std::to_string(round)) + filler;
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            std::unique_ptr<Task> task;
            if (scheduler_->Activate(u"victim", &task) == kOk && task->SetComment(next.c_str()) == kOk) {
                (void)Save(*task);
            }
            _exit(0);
        }
        usleep(std::uniform_int_distribution<useconds_t>(0, static_cast<useconds_t>(limit))(random));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::unique_ptr<Task> task = Open(u"victim");
        ASSERT_TRUE(task);
        char16_t* text = nullptr;
        ASSERT_EQ(task->GetComment(&text), kOk);
        const std::u16string now = Take(text);
        ASSERT_TRUE(now == last || now == next) << "round " << round;
        changed += now == next ? 1 : 0;
        limit = now == next ? std::max(20.0, limit * 0.8) : std::min(200000.0, limit * 1.25);
        last = now;
    }
    // Both outcomes happened, or the test proved nothing.
    EXPECT_GT(changed, 0);
    EXPECT_LT(changed, 200);
}

}  // namespace
}  // namespace vrn::tasks::testing
