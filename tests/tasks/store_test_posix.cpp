// The job store's own rules. What a client sees of it through the procedures
// (codes, defaults, properties read back) is the task scripts'.
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <random>
#include <set>
#include <vector>

#include "tasks/job_store_posix.h"
#include "tests/tasks/store_fixture_posix.h"

namespace vrn::tasks::testing {
namespace {

class JobStore : public StoreTest {
protected:
    std::set<std::string> FolderEntries() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) names.insert(entry.path().filename());
        return names;
    }
    // The file seems written that many seconds ago.
    void Age(const std::string& name, int seconds) const {
        const timespec times[2] = {{time(nullptr) - seconds, 0}, {time(nullptr) - seconds, 0}};
        utimensat(AT_FDCWD, (folder_ + "/" + name).c_str(), times, 0);
    }
};

TEST_F(JobStore, NamesBecomeFileNamesAndOddOnesAreRefused) {
    const struct {
        const char16_t* name;
        const char* file;  // null: refused with kInvalidArgument
    } cases[] = {
        {u"plain", "plain.job"}, {u"with.job", "with.job"}, {u"Upper.JoB", "Upper.JoB"},
        {u"caf\u00e9 \U0001F600", "caf\xc3\xa9 \xf0\x9f\x98\x80.job"},
        {nullptr, nullptr}, {u"", nullptr}, {u"..", nullptr}, {u"a/b", nullptr}, {u"a\tb", nullptr},
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
        const bool added = !std::u16string(c.name).ends_with(u".job") && !std::u16string(c.name).ends_with(u".JoB");
        EXPECT_EQ(scheduler_->Activate((std::u16string(c.name) + u".job").c_str(), &task), added ? kOk : kFileNotFound);
    }
    struct stat st {};
    ASSERT_EQ(stat(folder_.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    std::unique_ptr<Task> task;
    EXPECT_EQ(scheduler_->NewWorkItem(u"PLAIN.JOB", &task), kFileExists);  // letter case tells no task apart
    EXPECT_EQ(scheduler_->Activate(u"upper", &task), kOk);
}

TEST_F(JobStore, InitializeCountsPerThread) {
    EXPECT_EQ(source_.Initialize(), kFalse);  // SetUp's is the first
    source_.Uninitialize();
    source_.Uninitialize();
    std::unique_ptr<Scheduler> scheduler;
    EXPECT_EQ(source_.CreateScheduler(&scheduler), jobs::kNotInitialized);
    EXPECT_EQ(source_.Initialize(), kOk);
}

TEST_F(JobStore, TriggersOfEveryTypeAndDataReadBackExactlyAndNoPasswordIsKept) {
    std::unique_ptr<Task> task = MakeTask(u"full");
    const uint8_t data[] = {0, 1, 0xFF, 0x80, 7};
    ASSERT_EQ(task->SetAccountInformation(u"someone", u"secret-password"), kOk);
    ASSERT_EQ(task->SetWorkItemData(sizeof data, data), kOk);
    std::vector<TASK_TRIGGER> triggers;
    for (int32_t type = kTriggerOnce; type <= kTriggerAtLogon; ++type) {
        const auto u16 = [](int v) { return static_cast<uint16_t>(v); };
        // Every field its own value: the store writes them one by one.
        TASK_TRIGGER t{sizeof t, u16(type + 100), 2007, u16(type + 1), 2, 2030, 12, 31, 23, u16(50 + type), 600, 15,
                       kTriggerFlagHasEndDate | (type == kTriggerDaily ? kTriggerFlagDisabled : 0u), type, {}, 0xBEEF, u16(type)};
        t.Type.MonthlyDOW = {u16(type == kTriggerMonthlyDow ? 5 : 3), 0x55, 0xABC};
        uint16_t index = 99;
        std::unique_ptr<Trigger> trigger;
        ASSERT_EQ(task->CreateTrigger(&index, &trigger), kOk);
        EXPECT_EQ(index, triggers.size());
        ASSERT_EQ(trigger->SetTrigger(t), kOk);
        triggers.push_back(t);
    }
    ASSERT_EQ(SaveTask(*task), kOk);

    task = Open(u"full");
    uint16_t count = 0;
    uint8_t* got = nullptr;
    ASSERT_EQ(task->GetWorkItemData(&count, &got), kOk);
    EXPECT_EQ(std::vector<uint8_t>(got, got + count), std::vector<uint8_t>(data, data + sizeof data));
    source_.FreeMemory(got);
    ASSERT_EQ(task->GetTriggerCount(&count), kOk);
    ASSERT_EQ(count, triggers.size());
    for (uint16_t i = 0; i < count; ++i) {
        std::unique_ptr<Trigger> trigger;
        TASK_TRIGGER back{};
        ASSERT_EQ(task->GetTrigger(i, &trigger), kOk);
        ASSERT_EQ(trigger->GetTrigger(&back), kOk);
        EXPECT_EQ(std::memcmp(&back, &triggers[i], sizeof back), 0) << "trigger " << i;
    }
    const std::string bytes = Read("full.job");
    EXPECT_EQ(bytes.find(std::string(reinterpret_cast<const char*>(u"secret"), 12)), std::string::npos);
    EXPECT_EQ(bytes.find("secret"), std::string::npos);
}

TEST_F(JobStore, EnumListsIntactTasksInOrderAndPassesOverDamagedFiles) {
    for (const char16_t* name : {u"b", u"a.JOB", u"c", u"d", u"e", u"Z"}) MakeTask(name);
    // Cut short, noise, an empty file, a flipped bit, and files that aren't tasks at all.
    const std::string whole = Read("c.job");
    std::mt19937 random(7);
    std::string noise(whole.size(), '\0');
    for (char& ch : noise) ch = static_cast<char>(random());
    std::string flipped = whole;
    flipped[whole.size() / 2] ^= 0x10;
    const std::pair<const char*, std::string> damaged[] = {
        {"c.job", whole.substr(0, whole.size() - 1)}, {"d.job", noise}, {"e.job", ""}, {"f.job", flipped},
        {"notes.txt", whole},
    };
    for (const auto& [name, content] : damaged) std::ofstream(folder_ + "/" + name, std::ios::binary) << content;
    mkdir((folder_ + "/g.job").c_str(), 0700);

    // In batches of 2: a full one, then a short one that says so.
    std::unique_ptr<WorkItemEnumerator> items;
    ASSERT_EQ(scheduler_->Enum(&items), kOk);
    std::vector<std::u16string> listed;
    for (const auto& [answer, size] : {std::pair{kOk, 2u}, {kFalse, 1u}, {kFalse, 0u}}) {
        SchedulerMemory<char16_t*> names(source_);
        uint32_t fetched = 9;
        EXPECT_EQ(items->Next(2, names.Out(), &fetched), answer);
        ASSERT_EQ(fetched, size);
        for (uint32_t i = 0; i < fetched; ++i) listed.push_back(names.Get()[i]), source_.FreeMemory(names.Get()[i]);
    }
    EXPECT_EQ(listed, (std::vector<std::u16string>{u"Z.job", u"a.JOB", u"b.job"}));
    std::unique_ptr<Task> task;
    for (const char16_t* name : {u"c", u"d", u"e", u"f", u"g"}) EXPECT_EQ(scheduler_->Activate(name, &task), kInvalidTask);
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
        const std::string number = std::to_string(round);
        const std::u16string next = std::u16string(number.begin(), number.end()) + filler;
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            std::unique_ptr<Task> task;
            if (scheduler_->Activate(u"victim", &task) == kOk && task->SetComment(next.c_str()) == kOk) {
                (void)SaveTask(*task);
            }
            _exit(0);
        }
        usleep(std::uniform_int_distribution<useconds_t>(0, static_cast<useconds_t>(limit))(random));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        std::unique_ptr<Task> task = Open(u"victim");
        ASSERT_TRUE(task);
        SchedulerMemory<char16_t> text(source_);
        ASSERT_EQ(task->GetComment(text.Out()), kOk);
        const std::u16string now = text.Get();
        ASSERT_TRUE(now == last || now == next) << "round " << round;
        changed += now == next ? 1 : 0;
        limit = now == next ? std::max(20.0, limit * 0.8) : std::min(200000.0, limit * 1.25);
        last = now;
    }
    // Both outcomes happened, or the test proved nothing.
    EXPECT_GT(changed, 0);
    EXPECT_LT(changed, 200);

    // Once what the killed savers left is older than a save, the next writer sweeps it.
    for (const std::string& name : FolderEntries()) Age(name, 3600);
    ASSERT_EQ(SaveTask(*Open(u"victim")), kOk);
    EXPECT_EQ(FolderEntries(), (std::set<std::string>{".lock", "victim.job"}));
}

TEST_F(JobStore, TheNextWriterSweepsOnlyTemporaryFilesNoOneHoldsThatAreOlderThanASave) {
    MakeTask(u".tmp-ab");  // a task, though its file name looks like a temporary one
    const struct {
        const char* name;
        int age;  // seconds
        bool held, swept;
    } cases[] = {
        {".tmp-Ab3xYz", 3600, false, true},  {".tmp-Ab3xY0", 5, false, false},  // a writer before its lock
        {".tmp-Ab3xY1", 3600, true, false},  {".tmp-ab.job", 3600, false, false},
        {".tmp-other", 3600, false, false},  // no name a save makes
    };
    std::vector<int> held;
    for (const auto& c : cases) {
        const int fd = open((folder_ + "/" + c.name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_TRUE(fd >= 0 && (!c.held || flock(fd, LOCK_EX) == 0));
        c.held ? held.push_back(fd) : (void)close(fd);
        Age(c.name, c.age);
    }
    MakeTask(u"writer");
    for (int fd : held) close(fd);
    for (const auto& c : cases) EXPECT_EQ(FolderEntries().count(c.name), c.swept ? 0u : 1u) << c.name;
}

}  // namespace
}  // namespace vrn::tasks::testing
