#include <optional>

#include "tasks/params.h"
#include "tests/procedures/tasks_support.h"

namespace vrn::tasks::testing {
namespace {

using host::NVarChar;
using host::Null;
using host::Param;

// ---- The file-name rule and the text reader

TEST(TaskFileName, EachStepDecides) {
    const std::u16string d1 = TaskFile(u"DITTA1");
    const struct {
        std::optional<std::u16string> name, company, instance;
        int result;
    } cases[] = {
        {d1, u"dittA1", std::nullopt, 0},
        {d1, std::nullopt, std::nullopt, 0},
        {std::nullopt, std::nullopt, std::nullopt, -1},
        {d1, u"DITTA", std::nullopt, -1},  // the length test keeps DITTA1 from matching DITTA
        {TaskFile(u"DITTA12"), u"DITTA1", std::nullopt, -1},
        {u"{6f9619ff-8b86-d011-b42d-00c04fc964zz}-X.job", std::nullopt, std::nullopt, 0},
        {u"{6F9619FF_8B86-D011-B42D-00C04FC964FF}-X.job", std::nullopt, std::nullopt, -2},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964F_}-X.job", std::nullopt, std::nullopt, -2},
        {u"[6F9619FF-8B86-D011-B42D-00C04FC964FF]-X.job", std::nullopt, std::nullopt, -2},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}", std::nullopt, std::nullopt, -3},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}_X.job", std::nullopt, std::nullopt, -3},
        {d1, u"DITTA2", std::nullopt, -4},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-DITTA1.jbo", std::nullopt, std::nullopt, -5},
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-DITTA1.JOB", std::nullopt, std::nullopt, 0},
        {d1, std::nullopt, u"SQL2", -6},
        {TaskFile(u"DITTA1", u"SQL3"), std::nullopt, u"SQL2", -7},
        {TaskFile(u"DITTA1", u"SQL2"), std::nullopt, u"sql2", 0},
        {TaskFile(u"DITTA1", u"SQL2"), u"DITTA1", u"SQL2", 0},
        {TaskFile(u"DITTA1", u"SQL2"), std::nullopt, std::nullopt, -8},
        {TaskFile(u""), std::nullopt, std::nullopt, 0},  // the company may be empty
        {u"{6F9619FF-8B86-D011-B42D-00C04FC964FF}-.job", std::nullopt, u"LONGINSTANCE", -6},
    };
    for (const auto& c : cases) {
        auto p = [](const std::optional<std::u16string>& t) { return t ? t->c_str() : nullptr; };
        EXPECT_EQ(MatchTaskFileName(p(c.name), p(c.company), p(c.instance)), c.result)
            << Utf8(p(c.name)) << " / " << Utf8(p(c.company)) << " / " << Utf8(p(c.instance));
    }
}

TEST(ReadParamText, EmptyNullAndOddLengths) {
    const struct {
        Param param;
        bool keepEmpty;
        std::optional<std::u16string> text;
    } cases[] = {
        {NVarChar(u"ab"), false, u"ab"},
        {NVarChar(u""), false, std::nullopt},
        {NVarChar(u""), true, u""},
        {Null(231, 20), true, std::nullopt},
        {Param{231, 10, {'a', 0, 'b', 0, 'c'}}, false, u"ab"},  // the odd byte is lost
        {Param{231, 10, {'a'}}, false, u""},
    };
    for (const auto& c : cases) {
        std::optional<std::u16string> text;
        host::Invoke(
            [&](SRV_PROC* srvproc) {
                ParamInfo table[1]{};
                (void)ReadParam(srvproc, table, 0);
                const WideText read = ReadParamText(srvproc, table, 0, c.keepEmpty);
                if (read) text = read.get();
                return 0;
            },
            {c.param});
        EXPECT_EQ(text, c.text) << c.param.value.size() << " bytes";
    }
}

// ---- vrn_Wts_TaskCreate

// The eleven parameters; a test changes the ones it is about.
std::vector<Param> CreateParams(int32_t mode, const std::u16string& name = TaskFile(u"DITTA1")) {
    return {NVarChar(name),       NVarChar(u"comment"), NVarChar(u"app.exe"),
            NVarChar(u"account"), NVarChar(u"secret"),  NVarChar(u"C:\\work"),
            NVarChar(u"/X=1"),    host::VarBinary({1, 2}), host::Int(5),
            host::Int(4),         host::Int(mode)};
}

TEST_F(TasksTest, CreateSetsThePropertiesInTheirOrder) {
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskCreate", CreateParams(2))), "0 D");
    const std::string name = Utf8(TaskFile(u"DITTA1").c_str());
    EXPECT_EQ(scheduler.log,
              (std::vector<std::string>{"Initialize", "CreateScheduler", "Activate " + name, "NewWorkItem " + name,
                                        "SetApplicationName app.exe", "SetAccountInformation account,secret",
                                        "SetCreator TolvTaskEngine", "SetComment comment",
                                        "SetWorkingDirectory C:\\work", "SetParameters /X=1", "SetWorkItemData 2",
                                        "SetMaxRunTime 300000", "SetFlags 4", "QueryPersistFile", "Save null,true",
                                        "Uninitialize"}));
}

TEST_F(TasksTest, CreateModesAndAbsentProperties) {
    const std::u16string name = TaskFile(u"DITTA1");
    const std::string n = Utf8(name.c_str());
    const std::vector<std::string> full = {"SetApplicationName app.exe", "SetAccountInformation account,secret",
                                           "SetWorkItemData 2"};
    auto plus = [&](std::vector<std::string> head, std::vector<std::string> tail) {
        head.insert(head.end(), tail.begin(), tail.end());
        return head;
    };
    const struct {
        const char* why;
        bool exists;
        int32_t mode;
        std::vector<std::pair<int, Param>> changes;  // parameter index (0-based), value
        std::string trace;
        std::vector<std::string> calls;  // opening, application, account and data
        uint32_t maxRunTime;             // stored afterwards
    } cases[] = {
        {"new", false, 0, {}, "0 D", plus({"NewWorkItem " + n}, full), 300000},
        {"new over an existing one", true, 0, {}, "0x80070050 D", {"NewWorkItem " + n}, 1},
        {"replace", true, 1, {}, "0 D", plus({"Delete " + n, "Activate " + n, "NewWorkItem " + n}, full), 300000},
        {"update", true, 2, {{1, Null(231, 20)}, {6, NVarChar(u"")}}, "0 D", plus({"Activate " + n}, full), 300000},
        {"no account", false, 0, {{3, Null(231, 20)}}, "0 D",
         {"NewWorkItem " + n, "SetApplicationName app.exe", "SetWorkItemData 2"}, 300000},
        {"empty account, no password", false, 0, {{3, NVarChar(u"")}, {4, Null(231, 20)}}, "0 D",
         {"NewWorkItem " + n, "SetApplicationName app.exe", "SetAccountInformation ,(null)", "SetWorkItemData 2"},
         300000},
        {"empty application, one byte of data", false, 0, {{2, NVarChar(u"")}, {7, host::VarBinary({9})}}, "0 D",
         {"NewWorkItem " + n, "SetAccountInformation account,secret"}, 300000},
        {"minutes wrap", false, 0, {{8, host::Int(71583)}}, "0 D", plus({"NewWorkItem " + n}, full), 12704},
        {"negative minutes", false, 0, {{8, host::Int(-1)}}, "0 D", plus({"NewWorkItem " + n}, full), 4294907296},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        if (c.exists) {
            StoredTask& t = d.Add(name);
            t.comment = u"old";
            t.parameters = u"/old";
            t.maxRunTime = 1;
            t.triggers.resize(1);
        }
        std::vector<Param> params = CreateParams(c.mode, name);
        for (const auto& [index, value] : c.changes) params[index] = value;
        EXPECT_EQ(Trace(Call("vrn_Wts_TaskCreate", params)), c.trace) << c.why;
        EXPECT_EQ(d.Calls({"Delete", "Activate", "NewWorkItem", "SetApplicationName", "SetAccountInformation",
                           "SetWorkItemData"}),
                  c.calls)
            << c.why;
        EXPECT_EQ(d.Find(name)->maxRunTime, c.maxRunTime) << c.why;
        // An update keeps what is absent, and the triggers; a replace starts anew.
        const bool old = c.mode == 2 || (c.exists && c.mode == 0);
        EXPECT_EQ(d.Find(name)->comment, old ? u"old" : u"comment") << c.why;
        EXPECT_EQ(d.Find(name)->triggers.size(), old ? 1u : 0u) << c.why;
        EXPECT_EQ(d.Balance(), "") << c.why;
    }
}

TEST_F(TasksTest, CreateRefusesWrongCalls) {
    auto with = [](int index, Param p) {
        std::vector<Param> params = CreateParams(0);
        params[index] = std::move(p);
        return params;
    };
    std::vector<Param> ten = CreateParams(0), twelve = CreateParams(0);
    ten.pop_back();
    twelve.push_back(host::Int(0));
    const struct {
        std::vector<Param> params;
        std::string trace;
    } cases[] = {
        {ten, "0x80070057 M"},
        {twelve, "0x80070057 M"},
        {with(2, Null(31, 0)), "0x80070057 M"},
        {with(7, host::Int(1)), "0x80070057 M"},
        {with(10, host::SmallInt(1)), "0x80070057 M"},
        {with(10, host::Int(-1)), "0x80070057 D M"},
        {with(1, Null(31, 0)), "0 D"},  // type 31 passes where NULL may stand
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        EXPECT_EQ(Trace(Call("vrn_Wts_TaskCreate", c.params)), c.trace);
        EXPECT_EQ(d.log.empty(), c.trace != "0 D");
    }
}

TEST_F(TasksTest, CreateFailuresEndTheCallAndCloseWhatWasOpened) {
    const std::u16string name = TaskFile(u"DITTA1");
    const struct {
        const char* operation;
        bool throws;
        std::string trace;
        bool kept;  // the task that stood before, unchanged
    } cases[] = {
        {"Initialize", false, "0x80004005 D", true},
        {"CreateScheduler", false, "0x80004005 D", true},
        {"SetComment", false, "0x80004005 D", true},
        {"QueryPersistFile", false, "0x80004005 D", true},
        {"Save", false, "0x80004005 D", false},  // a failed save deletes what stood before
        {"SetFlags", true, "0x8007000E D", true},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        d.Add(name).comment = u"old";
        if (c.throws) {
            d.ThrowAt(c.operation, 1);
        } else {
            d.FailAt(c.operation, 1, kFailure);
        }
        EXPECT_EQ(Trace(Call("vrn_Wts_TaskCreate", CreateParams(2, name))), c.trace) << c.operation;
        EXPECT_EQ(d.Find(name) != nullptr && d.Find(name)->comment == u"old", c.kept) << c.operation;
        EXPECT_EQ(d.Find(name) != nullptr, c.kept) << c.operation;
        EXPECT_EQ(d.Balance(), "") << c.operation;
    }
}

TEST_F(TasksTest, InitializeThatFailsOwesNothingAndOneThatWasAlreadySoIsGivenBack) {
    scheduler.FailAt("Initialize", 1, kFailure);
    scheduler.initializeAnswer = kFalse;
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskRun", {NVarChar(u"x")})), "0x80004005 D");
    EXPECT_EQ(scheduler.log, (std::vector<std::string>{"Initialize -> 0x80004005"}));
    scheduler.log.clear();
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskRun", {NVarChar(u"x")})), "0x80070002 D");
    EXPECT_EQ(scheduler.log.back(), "Uninitialize");
}

// ---- The seven on one task

TEST_F(TasksTest, OneTaskProceduresCallTheirMethods) {
    const std::u16string name = TaskFile(u"D");
    const std::string n = Utf8(name.c_str());
    const struct {
        const char* procedure;
        std::vector<Param> params;
        std::string trace;
        std::vector<std::string> work;
    } cases[] = {
        {"vrn_Wts_TaskDelete", {NVarChar(name)}, "0 D", {"Delete " + n}},
        {"vrn_Wts_TaskDelete", {Null(231, 20)}, "0x80070057 D", {"Delete (null)"}},
        {"vrn_Wts_TaskRun", {NVarChar(name)}, "0 D", {"Activate " + n, "Run"}},
        {"vrn_Wts_TaskRun", {NVarChar(u"missing")}, "0x80070002 D", {"Activate missing"}},
        {"vrn_Wts_TaskTerminate", {NVarChar(name)}, "0x8004130B D", {"Activate " + n, "Terminate"}},
        {"vrn_Wts_TaskGetFlags", {NVarChar(name), Output(Null(38, 4))}, "0 O2=5 D", {"Activate " + n, "GetFlags"}},
        {"vrn_Wts_TaskGetStatus", {NVarChar(name), Output(host::Int(7))}, "0 O2=267011 D",
         {"Activate " + n, "GetStatus"}},
        {"vrn_Wts_TaskGetStatus", {NVarChar(u"missing"), Output(host::Int(7))}, "0x80070002 D",
         {"Activate missing"}},
        {"vrn_Wts_TaskSetFlags", {NVarChar(name), host::Int(9)}, "0 D",
         {"Activate " + n, "SetFlags 9", "QueryPersistFile", "Save null,true"}},
        {"vrn_Wts_TaskSetMaxRunTime", {NVarChar(name), Output(host::Int(60))}, "0 D",
         {"Activate " + n, "SetMaxRunTime 3600000", "QueryPersistFile", "Save null,true"}},
    };
    for (const auto& c : cases) {
        SchedulerDouble d;
        StoredTask& t = d.Add(name);
        t.flags = 5;
        t.status = kTaskHasNotRun;
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), c.trace) << c.procedure;
        EXPECT_EQ(Work(d), c.work) << c.procedure;
        EXPECT_EQ(d.Balance(), "") << c.procedure;
    }
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskSetFlags", {NVarChar(name), host::Int(9)})), "0x80070002 D");
    // A success of the read that says more than S_OK is passed on.
    scheduler.Add(name);
    scheduler.FailAt("GetFlags", 1, kFalse);
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskGetFlags", {NVarChar(name), Output(host::Int(3))})), "1 O2=0 D");
}

TEST_F(TasksTest, OneTaskProceduresRefuseWithTheMessageAlone) {
    const Param name = NVarChar(TaskFile(u"D"));
    const struct {
        const char* procedure;
        std::vector<Param> params;
    } cases[] = {
        {"vrn_Wts_TaskRun", {name, name}},
        {"vrn_Wts_TaskDelete", {host::VarChar("x")}},
        {"vrn_Wts_TaskGetStatus", {name, Output(host::SmallInt(0))}},
        {"vrn_Wts_TaskSetMaxRunTime", {name, Null(38, 4)}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Trace(Call(c.procedure, c.params)), "0x80070057 M") << c.procedure;
    }
    EXPECT_TRUE(scheduler.log.empty());
}

// ---- Enable and disable all

TEST_F(TasksTest, AWalkThatFailsOnATaskKeepsWhatItDidAndAnswersZero) {
    std::vector<std::u16string> names;
    for (char16_t c = u'1'; c <= u'5'; ++c) names.push_back(TaskFile(std::u16string(u"D") + c));
    for (const auto& name : names) scheduler.Add(name);
    scheduler.FailAt("Save", 3, kFailure);
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskDisableAll", {NVarChar(u"")})), "0 D");
    // From the last to the first: D5 and D4 saved, D3 failed, D2 and D1 untouched.
    const uint32_t expected[] = {0, 0, 0, 4, 4};
    for (size_t i = 0; i < names.size(); ++i) EXPECT_EQ(scheduler.Find(names[i])->flags, expected[i]) << i;
    EXPECT_EQ(scheduler.Calls({"Next"}).size(), 1u);  // the walk ends with the batch
}

TEST_F(TasksTest, WalkRefusalsAndOpeningFailures) {
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskEnableAll", {Null(231, 20)})), "0x80070057 M D");
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskDisableAll", {host::VarChar("D")})), "0x80070057 M D");
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskDisableAll", {})), "0x80070057 M D");
    EXPECT_TRUE(scheduler.log.empty());
    scheduler.FailAt("Enum", 1, kFailure);
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskEnableAll", {NVarChar(u"")})), "0x80004005 D");
    scheduler.Add(TaskFile(u"D"));
    scheduler.FailAt("Next", 1, kFailure);
    EXPECT_EQ(Trace(Call("vrn_Wts_TaskEnableAll", {NVarChar(u"")})), "0 D");
    EXPECT_TRUE(scheduler.Calls({"Activate"}).empty());
}

}  // namespace
}  // namespace vrn::tasks::testing
