#include <cstring>
#include <optional>

#include "tests/procedures/tasks_support.h"

namespace vrn::tasks::testing {
namespace {

using host::NVarChar;
using host::Null;
using host::Param;

// A cell as text by its source type: text, hex, an integer, days/ticks; NULL for NULL.
std::string Cell(const host::Column& column, const std::optional<host::Bytes>& bytes) {
    if (!bytes) return "NULL";
    const host::Bytes& b = *bytes;
    auto integer = [&b](size_t width) {
        int64_t value = 0;
        std::memcpy(&value, b.data(), std::min(width, b.size()));
        return value;
    };
    switch (column.srcType) {
    case 47: return std::string(b.begin(), b.end());
    case 56: return std::to_string(static_cast<int32_t>(integer(4)));
    case 52: return std::to_string(static_cast<uint16_t>(integer(2)));
    case 111: return std::to_string(integer(4)) + "/" + std::to_string(static_cast<uint32_t>(integer(8) >> 32));
    default: {
        std::string hex = "0x";
        for (uint8_t byte : b) hex += "0123456789ABCDEF"[byte >> 4], hex += "0123456789ABCDEF"[byte & 15];
        return hex;
    }
    }
}

// Column n (from 1) of each row of the call.
std::vector<std::string> ColumnOf(const host::CallResult& r, size_t n) {
    std::vector<std::string> cells;
    for (const host::Row& row : r.rows) cells.push_back(Cell(r.columns.at(n - 1), row.at(n - 1)));
    return cells;
}

std::vector<std::string> RowOf(const host::CallResult& r, size_t row) {
    std::vector<std::string> cells;
    for (size_t c = 0; c < r.columns.size(); ++c) cells.push_back(Cell(r.columns[c], r.rows.at(row).at(c)));
    return cells;
}

std::string Shapes(const host::CallResult& r) {
    std::string out;
    for (const host::Column& c : r.columns) {
        out += c.name + ":" + std::to_string(c.destType) + "/" + std::to_string(c.destLength) + "/" +
               std::to_string(c.srcType) + "/" + std::to_string(c.srcLength) + " ";
    }
    return out;
}

StoredTask& AddWithAccount(SchedulerDouble& d, const std::u16string& name) {
    StoredTask& t = d.Add(name);
    t.account = u"";
    return t;
}

// ---- vrn_Wts_TaskEnum and vrn_Wts_TaskInfo

TEST_F(TasksTest, TaskRowHasItsTwentyColumns) {
    StoredTask& t = AddWithAccount(scheduler, u"{6f9619ff-8b86-d011-b42d-00c04fc964ff}-DITTA1");
    t.account = u"svc";
    t.comment = u"c\u00E8";
    t.creator = u"TolvTaskEngine";
    t.applicationName = u"app.exe";
    t.parameters = u"/Task=6F9619FF-8B86-D011-B42D-00C04FC964FF /Ditta=DITTA1 /X=1";
    t.workingDirectory = u"C:\\w";
    t.data = {1, 2, 3};
    t.status = kTaskReady;
    t.exitCode = 3;
    t.flags = 4;
    t.lastRun = {2026, 11, 3, 18, 23, 59, 59, 999};
    t.triggers.resize(2);
    t.maxRunTime = 3600000;
    const host::CallResult r = Call("vrn_Wts_TaskEnum", {});
    EXPECT_EQ(Trace(r), "0 C20 R D1");
    EXPECT_EQ(Shapes(r),
              "TaskName:167/260/47/0 Ud_Task:167/36/47/0 Ditta:167/260/47/0 AccountInformation:167/128/47/0 "
              "Comment:35/0/47/0 Creator:167/128/47/0 ApplicationName:167/128/47/0 Parameters:35/0/47/0 "
              "WorkingDirectory:167/260/47/0 WorkItemData:165/512/165/0 Status:56/0/56/0 ExitCode:56/0/56/0 "
              "Flags:56/0/56/0 LastRun:111/8/111/8 NextRun:111/8/111/8 TriggerCount:56/0/52/0 "
              "MaxRunTime:56/0/56/0 Priority:56/0/56/0 IdleWait_IdleMin:56/0/52/0 IdleWait_DeadlineMin:56/0/52/0 ");
    EXPECT_EQ(RowOf(r, 0), (std::vector<std::string>{
                               "{6f9619ff-8b86-d011-b42d-00c04fc964ff}-DITTA1.job",
                               "6F9619FF-8B86-D011-B42D-00C04FC964FF", "DITTA1", "svc", "c\xE8", "TolvTaskEngine",
                               "app.exe", "/Task=6F9619FF-8B86-D011-B42D-00C04FC964FF /Ditta=DITTA1 /X=1",
                               "C:\\w", "0x010203", "267008", "3", "4", "46342/25919999", "NULL", "2", "3600000",
                               "32", "10", "60"}));
}

TEST_F(TasksTest, WalksTakeBatchesOfTwentyEachFromItsLastName) {
    auto company = [](int i) { return std::u16string{u'C', char16_t(u'0' + i / 10), char16_t(u'0' + i % 10)}; };
    for (int i = 0; i < 45; ++i) AddWithAccount(scheduler, TaskFile(company(i)));
    std::vector<std::string> expected;
    for (int first : {0, 20, 40}) {
        for (int i = std::min(first + 19, 44); i >= first; --i) expected.push_back(Utf8(TaskFile(company(i)).c_str()));
    }
    const host::CallResult r = Call("vrn_Wts_TaskEnum", {});
    EXPECT_EQ(ColumnOf(r, 1), expected);
    EXPECT_EQ(r.dones.back().count, 45);
    EXPECT_EQ(scheduler.Calls({"Next"}), std::vector<std::string>(4, "Next 20"));

    scheduler.log.clear();
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskDisableAll", {NVarChar(u"")})), "0 D");
    std::vector<std::string> activated;
    for (const std::string& call : scheduler.Calls({"Activate"})) activated.push_back(call.substr(9));
    EXPECT_EQ(activated, expected);
}

TEST_F(TasksTest, EnumPassesOverWhatItCantReadAndWhatIsNotOfThisEngine) {
    for (const auto& company : {u"A1", u"A2", u"A3", u"A12"}) AddWithAccount(scheduler, TaskFile(company));
    AddWithAccount(scheduler, TaskFile(u"A1", u"SQL2"));
    scheduler.Add(TaskFile(u"NOACCOUNT"));  // its account can't be read
    AddWithAccount(scheduler, u"Backup");
    scheduler.FailAt("GetIdleWait", 2, kFailure);  // the last read, of the second task read
    const host::CallResult all = Call("vrn_Wts_TaskEnum", {});
    EXPECT_EQ(Trace(all), "0 C20 R R R D3");
    EXPECT_EQ(ColumnOf(all, 1), (std::vector<std::string>{Utf8(TaskFile(u"A3").c_str()),
                                                            Utf8(TaskFile(u"A12").c_str()),
                                                            Utf8(TaskFile(u"A1").c_str())}));
}

TEST_F(TasksTest, ListingRefusalsAndFailures) {
    AddWithAccount(scheduler, TaskFile(u"A"));
    const struct {
        const char* procedure;
        std::vector<Param> params;
        const char* operation;  // fails at its first call
        std::string trace;
    } cases[] = {
        {"vrn_Wts_TaskEnum", {host::NChar(u"A", 1)}, nullptr, "0x80070057 M D"},
        {"vrn_Wts_TaskEnum", {Null(231, 10)}, nullptr, "0x80070057 M D"},
        {"vrn_Wts_TaskEnum", {NVarChar(u"A"), NVarChar(u"A")}, nullptr, "0x80070057 M D"},
        {"vrn_Wts_TaskEnum", {}, "Initialize", "0x80004005 C20"},
        {"vrn_Wts_TaskEnum", {}, "Enum", "0x80004005 C20"},
        {"vrn_Wts_TaskEnum", {}, "Next", "0 C20 D0"},
        {"vrn_Wts_TaskInfo", {}, nullptr, "0x80070057 M D"},
        {"vrn_Wts_TaskInfo", {Null(239, 10)}, nullptr, "0x80070057 M D"},
        {"vrn_Wts_TaskInfo", {NVarChar(TaskFile(u"A"))}, "CreateScheduler", "0x80004005"},
        {"vrn_Wts_TaskInfo", {NVarChar(TaskFile(u"A"))}, "GetPriority", "0x80004005 C20"},
        {"vrn_Wts_TaskInfo", {NVarChar(u"")}, nullptr, "0x80070057 C20"},  // a null name reaches Activate
        {"vrn_Wts_TaskInfo", {NVarChar(TaskFile(u"A"))}, nullptr, "0 C20 R D1"},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        AddWithAccount(d, TaskFile(u"A"));
        if (c.operation) d.FailAt(c.operation, 1, kFailure);
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), c.trace) << c.procedure << " " << (c.operation ? c.operation : "");
        EXPECT_EQ(d.Balance(), "") << c.procedure;
    }
}

// ---- Triggers

std::vector<Param> TriggerParams(const std::u16string& name, Param index, int32_t hour, int32_t minute,
                                 int32_t mask) {
    return {NVarChar(name), std::move(index), host::Int(hour), host::Int(minute), host::Int(mask)};
}

TEST_F(TasksTest, CreateAndUpdateWriteAWeeklyTrigger) {
    const std::u16string name = TaskFile(u"T");
    const struct {
        const char* procedure;
        Param index;
        int32_t hour, minute, mask;
        std::string trace;
        uint16_t at, days, endYear;
        uint32_t flags;
    } cases[] = {
        {"vrn_Wts_TriggerCreate", Output(host::Int(77)), 23, 59, 128, "0 O2=2 D", 2, 127, 2007, 1},
        {"vrn_Wts_TriggerUpdate", host::Int(0), 6, 5, 42, "0 D", 0, 42, 0, 0},  // a daily one turns weekly
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        StoredTask& t = d.Add(name);
        t.triggers.resize(2);
        t.triggers[0].TriggerType = kTriggerDaily;
        t.triggers[0].Type.Daily.DaysInterval = 3;
        t.triggers[0].wBeginYear = 2020;
        EXPECT_EQ(Trace(Call(c.procedure, TriggerParams(name, c.index, c.hour, c.minute, c.mask))), c.trace);
        const TASK_TRIGGER& w = d.Find(name)->triggers.at(c.at);
        EXPECT_EQ(w.cbTriggerSize, 48);
        EXPECT_EQ(w.TriggerType, kTriggerWeekly) << c.procedure;
        EXPECT_EQ(w.wBeginYear * 10000 + w.wBeginMonth * 100 + w.wBeginDay, 20070101) << c.procedure;
        EXPECT_EQ(w.wStartHour * 100 + w.wStartMinute, c.hour * 100 + c.minute) << c.procedure;
        EXPECT_EQ(w.Type.Weekly.WeeksInterval, 1);
        EXPECT_EQ(w.Type.Weekly.rgfDaysOfTheWeek, c.days) << c.mask;
        EXPECT_EQ(w.wEndYear, c.endYear) << c.mask;
        EXPECT_EQ(w.rgFlags, c.flags) << c.mask;
        EXPECT_EQ(d.Calls({"QueryPersistFile", "Save"}).size(), 2u);
        EXPECT_EQ(d.Balance(), "");
    }
}

TEST_F(TasksTest, TriggerRefusalsAndFailures) {
    const std::u16string name = TaskFile(u"T");
    const Param in0 = host::Int(0), out0 = Output(host::Int(0));
    const struct {
        const char* procedure;
        std::vector<Param> params;
        const char* operation;  // fails at its first call
        std::string trace;
    } cases[] = {
        {"vrn_Wts_TriggerCreate", {NVarChar(name), out0}, nullptr, "0x80070057 M"},
        {"vrn_Wts_TriggerCreate", TriggerParams(name, in0, 1, 1, 1), nullptr, "0x80070057 D M"},
        {"vrn_Wts_TriggerCreate", TriggerParams(name, out0, -1, 0, 1), nullptr, "0x80070057 D M"},
        {"vrn_Wts_TriggerDelete", {Output(NVarChar(name)), in0}, nullptr, "0x80070057 D M"},
        {"vrn_Wts_TriggerUpdate", TriggerParams(name, host::Int(5), 0, 0, 1), nullptr, "0x80041309 D"},
        {"vrn_Wts_TriggerDelete", {NVarChar(u"missing"), in0}, nullptr, "0x80070002 D"},
        {"vrn_Wts_TriggerDelete", {NVarChar(u""), in0}, nullptr, "0x80070057 D M"},  // the scheduler's own answer
        {"vrn_Wts_TriggerCreate", TriggerParams(name, out0, 0, 0, 1), "SetTrigger", "0x80004005 D"},
        {"vrn_Wts_TriggerCreate", TriggerParams(name, out0, 0, 0, 1), "Save", "0x80004005 D"},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        d.Add(name).triggers.resize(1);
        if (c.operation) d.FailAt(c.operation, 1, kFailure);
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), c.trace) << c.procedure << " " << c.params.size();
        EXPECT_EQ(d.Find(name)->triggers.size(), 1u) << c.procedure;  // nothing saved
        EXPECT_EQ(d.Balance(), "") << c.procedure;
    }
}

TEST_F(TasksTest, DeleteAllTakesIndexZeroUntilNoneIsLeft) {
    const std::u16string name = TaskFile(u"T");
    const struct {
        size_t triggers;
        const char* failing;  // at its second call
        std::vector<std::string> work;
    } cases[] = {
        {2, nullptr, {"GetTriggerCount", "DeleteTrigger 0", "GetTriggerCount", "DeleteTrigger 0", "GetTriggerCount"}},
        {0, nullptr, {"GetTriggerCount"}},
        {2, "GetTriggerCount", {"GetTriggerCount", "DeleteTrigger 0", "GetTriggerCount -> 0x80004005"}},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        d.Add(name).triggers.resize(c.triggers);
        if (c.failing) d.FailAt(c.failing, 2, kFailure);
        EXPECT_EQ(Trace(Call("vrn_Wts_TriggerDelete", {NVarChar(name), host::Int(-1)})), "0 D");
        std::vector<std::string> expected = {"Activate " + Utf8(name.c_str()), "QueryPersistFile"};
        expected.insert(expected.end(), c.work.begin(), c.work.end());
        expected.push_back("Save null,true");
        EXPECT_EQ(Work(d), expected);
        EXPECT_EQ(d.Find(name)->triggers.size(), c.failing ? 1u : 0u);
    }
}

TEST_F(TasksTest, TriggerEnumFillsTheColumnsOfEachType) {
    const std::u16string name = TaskFile(u"T");
    StoredTask& t = scheduler.Add(name);
    t.triggers.resize(5);
    TASK_TRIGGER& daily = t.triggers[0];
    daily = {.cbTriggerSize = 48, .Reserved1 = 0, .wBeginYear = 2024, .wBeginMonth = 2, .wBeginDay = 29,
             .wEndYear = 2025, .wEndMonth = 1, .wEndDay = 1, .wStartHour = 23, .wStartMinute = 59,
             .MinutesDuration = 60, .MinutesInterval = 10, .rgFlags = 1, .TriggerType = kTriggerDaily,
             .Type = {.Daily = {3}}, .Reserved2 = 0, .wRandomMinutesInterval = 0};
    t.triggers[1].TriggerType = kTriggerWeekly;
    t.triggers[1].Type.Weekly = {2, 0x2A};
    t.triggers[2].TriggerType = kTriggerMonthlyDate;
    t.triggers[2].Type.MonthlyDate = {0x80000001u, 0xFFF};
    t.triggers[3].TriggerType = kTriggerMonthlyDow;
    t.triggers[3].Type.MonthlyDOW = {5, 0x41, 0x801};
    t.triggers[4].TriggerType = kTriggerOnce;
    t.triggers[4].Type.MonthlyDOW = {5, 0x41, 0x801};  // whatever the union holds, a once trigger shows none
    const host::CallResult r = Call("vrn_Wts_TriggerEnum", {NVarChar(name)});
    EXPECT_EQ(Trace(r), "0 C16 R R R R R D5 D");
    EXPECT_EQ(RowOf(r, 0), (std::vector<std::string>{"45349/0", "45656/0", "0", "type 1 at 23:59", "23", "59", "60",
                                                      "10", "1", "1", "3", "0", "0", "0", "0", "0"}));
    const std::vector<std::vector<std::string>> byType = {
        {"0", "2", "42", "0", "0", "0"},
        {"0", "0", "0", "-2147483647", "4095", "0"},
        {"0", "0", "65", "0", "2049", "5"},
        {"0", "0", "0", "0", "0", "0"},
    };
    for (size_t row = 1; row < 5; ++row) {
        const std::vector<std::string> cells = RowOf(r, row);
        EXPECT_EQ(cells[0], "NULL");
        EXPECT_EQ(cells[2], std::to_string(row));
        EXPECT_EQ(std::vector<std::string>(cells.begin() + 10, cells.end()), byType[row - 1]) << row;
    }
    EXPECT_EQ(Shapes(r),
              "StartDate:111/8/111/8 EndDate:111/8/111/8 TriggerIndex:56/0/52/0 TriggerString:167/256/47/0 "
              "wStartHour:56/0/52/0 wStartMinute:56/0/52/0 MinutesDuration:56/0/56/0 MinutesInterval:56/0/56/0 "
              "rgFlags:56/0/56/0 TriggerType:56/0/56/0 DaysInterval:56/0/52/0 WeeksInterval:56/0/52/0 "
              "rgfDaysOfTheWeek:56/0/52/0 rgfDays:56/0/56/0 rgfMonths:56/0/52/0 wWhichWeek:56/0/52/0 ");

    // Rows sent before a failure stand; the counted completion doesn't come.
    scheduler.FailAt("GetTriggerString", 5 + 3, kFailure);  // the third of the second call
    EXPECT_EQ(Trace(Call("vrn_Wts_TriggerEnum", {NVarChar(name)})), "0x80004005 C16 R R D");
    scheduler.Add(TaskFile(u"NONE"));
    EXPECT_EQ(Trace(Call("vrn_Wts_TriggerEnum", {NVarChar(TaskFile(u"NONE"))})), "0 C16 D0 D");
}

TEST_F(TasksTest, AFailedAllocationEndsTheCallWithOutOfMemoryAndGivesAllBack) {
    AddWithAccount(scheduler, TaskFile(u"A")).triggers.resize(2);
    const struct {
        const char* procedure;
        std::vector<Param> params;
        const char* operation;
        std::string trace;
    } cases[] = {
        {"vrn_Wts_TaskEnum", {}, "GetParameters", "0x8007000E C20"},
        {"vrn_Wts_TriggerEnum", {NVarChar(TaskFile(u"A"))}, "GetTriggerString", "0x8007000E C16 D"},
        {"vrn_Wts_TaskDisableAll", {NVarChar(u"")}, "Save", "0x8007000E D"},
    };
    for (const auto& c : cases) {
        scheduler.ThrowAt(c.operation, 1);
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), c.trace) << c.procedure;
        EXPECT_EQ(scheduler.Balance(), "") << c.procedure;
    }
}

}  // namespace
}  // namespace vrn::tasks::testing
