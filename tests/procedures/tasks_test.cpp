// The task procedures against the in-memory scheduler: call orders, injected
// failures and what the golden scripts can't reach. The outcomes a client
// sees from a real store are the task scripts' (tests/sql/tasks_*.sql).
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <set>
#include <tuple>

#include "tasks/params.h"
#include "tasks/task_names.h"
#include "tests/procedures/calls.h"
#include "tests/procedures/scheduler_double.h"

namespace vrn::tasks::testing {
namespace {

using host::Int;
using host::NVarChar;
using host::Null;
using host::Output;
using host::Param;
using Calls = std::vector<std::string>;

class TasksTest : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_EQ(scheduler.Balance(), ""); }
    static host::CallResult Call(const std::string& procedure, std::vector<Param> params) {
        return ::vrn::test::Lib().Call(procedure, std::move(params));
    }
    SchedulerDouble scheduler;
};

// The calls of the log between opening and closing the connection, or those of the operations named.
Calls Work(const SchedulerDouble& d, const std::set<std::string>& only = {}) {
    Calls work;
    for (const std::string& call : d.log) {
        const std::string operation = call.substr(0, call.find(' '));
        const bool opening = operation == "Initialize" || operation == "CreateScheduler" || operation == "Uninitialize";
        if (only.empty() ? !opening : only.count(operation) > 0) work.push_back(call);
    }
    return work;
}

// Where a step's refusal shows as a task left out, the task scripts show it.
TEST(TaskFileName, EachStepDecides) {
    const std::u16string d1 = TaskFile(u"DITTA1");
    const std::optional<std::u16string> none;
    const struct {
        std::optional<std::u16string> name, company, instance;
        int result;
    } cases[] = {
        {d1, u"dittA1", none, 0},
        {none, none, none, -1},
        {u"{6f9619ff-8b86-d011-b42d-00c04fc964zz}-X.job", none, none, 0},
        {u"{6F9619FF_8B86-D011-B42D-00C04FC964FF}-X.job", none, none, -2},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964F_}-X.job", none, none, -2},
        {u"[6F9619FF-8B86-D011-B42D-00C04FC964FF}-X.job", none, none, -2},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}_X.job", none, none, -3},
        {d1, u"DITTA2", none, -4},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-X.jbo", none, none, -5},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-X.JOB", none, none, 0},
        {d1, none, u"SQL2", -6},
    };
    for (const auto& c : cases) {
        auto p = [](const std::optional<std::u16string>& t) { return t ? t->c_str() : nullptr; };
        EXPECT_EQ(MatchTaskFileName(p(c.name), p(c.company), p(c.instance)), c.result) << &c - cases;
    }
}

// Empty and NULL texts show in the task scripts; a client can't send an odd byte count there.
TEST(ReadParamText, TheOddByteIsLost) {
    std::u16string text;
    host::Invoke(
        [&](SRV_PROC* srvproc) {
            ParamInfo table[1]{};
            (void)ReadParam(srvproc, table, 0);
            text = ReadParamText(srvproc, table, 0, false).get();
            return 0;
        },
        {Param{231, 10, {'a', 0, 'b', 0, 'c'}}});
    EXPECT_EQ(text, u"ab");
}

// The eleven parameters of vrn_Wts_TaskCreate, with some changed.
std::vector<Param> Create(const std::u16string& name, int32_t mode, std::vector<std::pair<int, Param>> changes = {}) {
    std::vector<Param> p = {NVarChar(name),  NVarChar(u"c"), NVarChar(u"app"),          NVarChar(u"acc"),
                            NVarChar(u"pw"), NVarChar(u"w"), NVarChar(u"p"),            host::VarBinary({1, 2}),
                            Int(5),          Int(4),         Int(mode)};
    for (auto& [index, value] : changes) p[index] = std::move(value);
    return p;
}

std::vector<Param> Weekly(const std::u16string& name, Param index, int32_t hour, int32_t minute, int32_t mask) {
    return {NVarChar(name), std::move(index), Int(hour), Int(minute), Int(mask)};
}

TEST_F(TasksTest, CallsInTheirOrder) {
    scheduler.Add(u"D").triggers.resize(1);  // of type 0: an update writes every field
    const struct {
        const char* procedure;
        std::vector<Param> params;
        std::string trace;
        Calls work;
    } cases[] = {
        // Replace: a Delete that fails counts for nothing, and a task that can't be opened is made.
        {"vrn_Wts_TaskCreate", Create(u"N", 1, {{8, Int(-1)}}), "0 D",
         {"Delete N", "Activate N", "NewWorkItem N", "SetApplicationName app", "SetAccountInformation acc,pw",
          "SetCreator TolvTaskEngine", "SetComment c", "SetWorkingDirectory w", "SetParameters p", "SetWorkItemData 2",
          "SetMaxRunTime 4294907296", "SetFlags 4", "QueryPersistFile", "Save null,true"}},
        {"vrn_Wts_TriggerUpdate", Weekly(u"D", Int(0), 6, 5, 42), "0 D",
         {"Activate D", "QueryPersistFile", "GetTrigger 0",
          "SetTrigger 2007-1-1 to 0-0-0 at 6:05 type 2 every 1 days 42 flags 0", "Save null,true"}},
        // A row's sixteen reads, in the scheduler's order rather than the columns'.
        {"vrn_Wts_TaskInfo", {NVarChar(u"D")}, "0 C20 R D1",
         {"Activate D", "GetAccountInformation", "GetComment", "GetCreator", "GetTriggerCount", "GetApplicationName",
          "GetParameters", "GetWorkingDirectory", "GetWorkItemData", "GetExitCode", "GetFlags", "GetMostRecentRunTime",
          "GetNextRunTime", "GetStatus", "GetMaxRunTime", "GetPriority", "GetIdleWait"}},
        {"vrn_Wts_TriggerCreate", Weekly(u"D", Output(Int(7)), 23, 59, 128), "0 O2=1 D",
         {"Activate D", "QueryPersistFile", "CreateTrigger",
          "SetTrigger 2007-1-1 to 2007-1-1 at 23:59 type 2 every 1 days 127 flags 1", "Save null,true"}},
        {"vrn_Wts_TriggerEnum", {NVarChar(u"D")}, "0 C16 R R D2 D",
         {"Activate D", "GetTriggerCount", "GetTrigger 0", "Trigger.GetTrigger", "GetTriggerString 0", "GetTrigger 1",
          "Trigger.GetTrigger", "GetTriggerString 1"}},
        {"vrn_Wts_TaskDelete", {NVarChar(u"D")}, "0 D", {"Delete D"}},
    };
    for (const auto& c : cases) {
        scheduler.log.clear();
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), c.trace) << c.procedure;
        EXPECT_EQ(Work(scheduler), c.work) << c.procedure;
    }
}

// Out of range is refused before the scheduler is asked, whatever it would take.
TEST_F(TasksTest, TriggerTimesOutOfRange) {
    for (const auto& [hour, minute, mask] : {std::tuple{24, 0, 1}, {0, 60, 1}, {0, 0, 129}, {-1, 0, 1}, {0, -1, 1}, {0, 0, -1}}) {
        EXPECT_EQ(Trace(Call("vrn_Wts_TriggerUpdate", Weekly(u"D", Int(0), hour, minute, mask))), "0x80070057 D M");
    }
    EXPECT_EQ(scheduler.log, Calls{});
}

// An empty application and data shorter than 2 bytes are no call.
TEST_F(TasksTest, CreateLeavesAbsentPropertiesAlone) {
    scheduler.Add(u"D");
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskCreate", Create(u"D", 2, {{2, NVarChar(u"")}, {7, host::VarBinary({9})}}))), "0 D");
    EXPECT_EQ(Work(scheduler, {"SetApplicationName", "SetAccountInformation", "SetWorkItemData"}),
              Calls{"SetAccountInformation acc,pw"});
}

// Five tasks of companies D1 to D5 with two triggers each, and what became of them:
// "D3 gone", "D4 4/2" for flags 4 and two triggers; "" when none changed.
void Seed(SchedulerDouble& d) {
    for (char16_t c = u'1'; c <= u'5'; ++c) d.Add(TaskFile(std::u16string(u"D") + c)).triggers.resize(2);
}
std::string Changes(SchedulerDouble& d) {
    std::string out;
    for (char16_t c = u'1'; c <= u'5'; ++c) {
        const StoredTask* t = d.Find(TaskFile(std::u16string(u"D") + c));
        const std::string state = t == nullptr ? "gone" : std::to_string(t->numbers.at("Flags")) + "/" +
                                                              std::to_string(t->triggers.size());
        if (state != "0/2") out += (out.empty() ? "D" : " D") + std::string(1, static_cast<char>(c)) + " " + state;
    }
    return out;
}

TEST_F(TasksTest, InjectedFailures) {
    const std::u16string d1 = TaskFile(u"D1");
    const Param all = NVarChar(u"");
    const struct {
        const char* procedure;
        std::vector<Param> params;
        const char* operation;
        int nth, answer;
        std::string trace, changes;
    } cases[] = {
        {"vrn_Wts_TaskCreate", Create(d1, 2), "Initialize", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TaskCreate", Create(d1, 2), "CreateScheduler", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TaskCreate", Create(d1, 2), "SetComment", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TaskCreate", Create(d1, 2), "QueryPersistFile", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TaskCreate", Create(d1, 2), "Save", 1, kFail, "0x80004005 D", "D1 gone"},
        {"vrn_Wts_TaskCreate", Create(d1, 2), "SetFlags", 1, kThrow, "0x8007000E D", ""},
        {"vrn_Wts_TaskGetFlags", {NVarChar(d1), Output(Int(3))}, "GetFlags", 1, kFalse, "1 O2=0 D", ""},
        {"vrn_Wts_TaskGetStatus", {NVarChar(d1), Output(Int(3))}, "GetStatus", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TaskSetFlags", {NVarChar(d1), Int(4)}, "Save", 1, kFail, "0x80004005 D", ""},
        // A walk ends at a task that fails, from the last name to the first, and answers 0.
        {"vrn_Wts_TaskDisableAll", {all}, "Save", 3, kFail, "0 D", "D4 4/2 D5 4/2"},
        {"vrn_Wts_TaskDisableAll", {all}, "Save", 2, kThrow, "0x8007000E D", "D5 4/2"},
        {"vrn_Wts_TaskEnableAll", {all}, "Enum", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TaskEnableAll", {all}, "Next", 1, kFail, "0 D", ""},
        // A task the listing can't read is passed over.
        {"vrn_Wts_TaskEnum", {}, "GetIdleWait", 2, kFail, "0 C20 R R R R D4", ""},
        {"vrn_Wts_TaskEnum", {}, "Enum", 1, kFail, "0x80004005 C20", ""},
        {"vrn_Wts_TaskEnum", {}, "GetParameters", 2, kThrow, "0x8007000E C20 R", ""},
        {"vrn_Wts_TaskInfo", {NVarChar(d1)}, "CreateScheduler", 1, kFail, "0x80004005", ""},
        {"vrn_Wts_TaskInfo", {NVarChar(d1)}, "GetPriority", 1, kFail, "0x80004005 C20", ""},
        {"vrn_Wts_TriggerCreate", Weekly(d1, Output(Int(0)), 1, 0, 1), "SetTrigger", 1, kFail, "0x80004005 D", ""},
        {"vrn_Wts_TriggerCreate", Weekly(d1, Output(Int(0)), 1, 0, 1), "Save", 1, kFail, "0x80004005 D", ""},
        // Rows sent before a failure stand; the counted completion doesn't come.
        {"vrn_Wts_TriggerEnum", {NVarChar(d1)}, "GetTriggerString", 2, kFail, "0x80004005 C16 R D", ""},
        // A count that can't be read ends deleting them all, and what was deleted is saved.
        {"vrn_Wts_TriggerDelete", {NVarChar(d1), Int(-1)}, "GetTriggerCount", 2, kFail, "0 D", "D1 0/1"},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        Seed(d);
        d.FailAt(c.operation, c.nth, c.answer);
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), c.trace) << c.procedure << " " << c.operation;
        EXPECT_EQ(Changes(d), c.changes) << c.procedure << " " << c.operation;
        EXPECT_EQ(d.Balance(), "") << c.procedure << " " << c.operation;
    }
}

// Listing and enabling share the walk.
TEST_F(TasksTest, WalksTakeBatchesOfTwentyEachFromItsLastName) {
    auto name = [](int i) { return TaskFile(u"C" + std::u16string{char16_t(u'0' + i / 10), char16_t(u'0' + i % 10)}); };
    Calls expected;
    for (int i = 0; i < 45; ++i) scheduler.Add(name(i));
    for (int first : {0, 20, 40}) {
        for (int i = std::min(first + 19, 44); i >= first; --i) expected.push_back(Utf8(name(i).c_str()));
    }
    const host::CallResult r = Call("vrn_Wts_TaskEnum", {});
    Calls listed;
    for (const host::Row& row : r.rows) listed.emplace_back(row[0]->begin(), row[0]->end());
    EXPECT_EQ(listed, expected);
    EXPECT_EQ(r.dones.back().count, 45);
}

// Integer columns from to to (from 1) of a row, each as wide as its source type.
std::string Integers(const host::CallResult& r, size_t row, size_t from, size_t to) {
    std::string out;
    for (size_t c = from; c <= to; ++c) {
        int32_t value = 0;
        std::memcpy(&value, r.rows[row][c - 1]->data(), r.columns[c - 1].srcType == 52 ? 2 : 4);
        out += (c > from ? " " : "") + std::to_string(value);
    }
    return out;
}

TEST_F(TasksTest, TriggerEnumFillsTheColumnsOfEachType) {
    std::vector<TASK_TRIGGER>& t = scheduler.Add(u"T").triggers;
    t.resize(5);
    t[0].wStartHour = 23, t[0].wStartMinute = 59, t[0].MinutesDuration = 60, t[0].MinutesInterval = 10;
    t[0].rgFlags = 1, t[0].TriggerType = kTriggerDaily, t[0].Type.Daily = {3};
    t[1].TriggerType = kTriggerWeekly, t[1].Type.Weekly = {2, 0x2A};
    t[2].TriggerType = kTriggerMonthlyDate, t[2].Type.MonthlyDate = {0x80000001u, 0xFFF};
    t[3].TriggerType = kTriggerMonthlyDow, t[3].Type.MonthlyDOW = {5, 0x41, 0x801};
    t[4].TriggerType = kTriggerOnce, t[4].Type.MonthlyDOW = {5, 0x41, 0x801};  // a once trigger shows none of it
    const host::CallResult r = Call("vrn_Wts_TriggerEnum", {NVarChar(u"T")});
    EXPECT_EQ(Trace(r), "0 C16 R R R R R D5 D");
    EXPECT_EQ(Integers(r, 0, 5, 10), "23 59 60 10 1 1");
    const char* byType[] = {"3 0 0 0 0 0", "0 2 42 0 0 0", "0 0 0 -2147483647 4095 0", "0 0 65 0 2049 5",
                            "0 0 0 0 0 0"};
    for (size_t row = 0; row < 5; ++row) {
        EXPECT_EQ(Integers(r, row, 3, 3), std::to_string(row));
        EXPECT_EQ(Integers(r, row, 11, 16), byType[row]) << row;
    }
}

}  // namespace
}  // namespace vrn::tasks::testing
