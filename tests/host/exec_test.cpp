// vrn-exec as a user runs it: scripts in, text or JSON out, driven against the
// echo procedures of fixture/ so that every byte handed over can be seen.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#ifndef _WIN32
#include <sys/wait.h>
#endif

namespace {

// The program's exit code, or -1. cmd.exe takes the whole line as one quoted
// argument when it starts with a quote.
int RunCommand(const std::string& commandLine) {
#ifdef _WIN32
    return std::system(("\"" + commandLine + "\"").c_str());
#else
    const int status = std::system(commandLine.c_str());
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
#endif
}

struct Outcome {
    int exitCode = -1;
    std::string out, err;
};

// A Windows console program ends its lines with CR LF: compare them as plain line ends.
std::string ReadOutput(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(in), {});
    for (size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at)) text.erase(at, 1);
    return text;
}

std::string Quoted(const std::string& path) { return "\"" + path + "\""; }

class ExecTest : public testing::Test {
protected:
    void SetUp() override {
        const char *exec = std::getenv("VRN_EXEC"), *fixture = std::getenv("VRN_FIXTURE");
        if (!exec || !*exec || !fixture) GTEST_SKIP() << "VRN_EXEC and VRN_FIXTURE name the tool and its fixture";
        exec_ = exec;
        fixture_ = fixture;
    }

    Outcome Exec(const std::string& script, const std::string& options = "") const {
        const std::string folder = testing::TempDir();
        const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
        const std::string scriptPath = folder + "vrn_exec_" + name + ".sql";
        std::ofstream(scriptPath, std::ios::binary) << script;
        const std::string command = Quoted(exec_) + " --lib " + Quoted(fixture_) + " " + options + " " +
                                    Quoted(scriptPath) + " >" + Quoted(scriptPath + ".out") + " 2>" +
                                    Quoted(scriptPath + ".err");
        Outcome run;
        run.exitCode = RunCommand(command);
        run.out = ReadOutput(scriptPath + ".out");
        run.err = ReadOutput(scriptPath + ".err");
        return run;
    }

    std::string exec_, fixture_;
};

testing::AssertionResult Has(const std::string& text, const std::string& piece) {
    if (text.find(piece) != std::string::npos) return testing::AssertionSuccess();
    return testing::AssertionFailure() << "no " << piece << " in\n" << text;
}

// What the procedure sees of one argument: type maxLength actualLength isNull isOutput hex.
TEST_F(ExecTest, ArgumentsReachTheProcedureAsTheServerTypesThem) {
    struct Case {
        const char* argument;
        const char* seen;
    };
    const Case cases[] = {
        {"@v", "167 30 2 0 0 6162"}, {"@c", "175 4 4 0 0 61202020"}, {"@t", "35 5 5 0 0 68656C6C6F"},
        {"@o OUTPUT", "167 30 0 1 1 "}, {"'it''s'", "167 4 4 0 0 69742773"}, {"'caff\xC3\xA8 \xE2\x82\xAC'", "167 7 7 0 0 63616666E82080"},
        {"N'\xC3\xA8'", "231 2 2 0 0 E800"}, {"N''", "231 2 0 0 0 "}, {"-2147483648", "38 4 4 0 0 00000080"},
        {"2147483648", "108 17 17 0 0 0100000080000000000000000000000000"},
        {"-1.5", "108 17 17 0 0 000F000000000000000000000000000000"}, {"0x123", "165 2 2 0 0 0123"},
        {"NULL", "31 0 0 1 0 "}, {"CAST(0x3130E8 AS varchar(3))", "167 3 3 0 0 3130E8"},
        {"CAST(0x310032 AS char(5))", "175 5 5 0 0 3100322020"},
        {"CAST(N'\xE2\x82\xAC\xC5\xA0\xC5\xBE' AS varchar(3))", "167 3 3 0 0 808A9E"},
        {"CAST('ab' AS nchar(3))", "239 6 6 0 0 610062002000"}, {"CAST('abc' AS text)", "35 3 3 0 0 616263"},
        {"CAST(-2 AS smallint)", "52 2 2 0 0 FEFF"}, {"CAST(2.7 AS int)", "38 4 4 0 0 02000000"},
        {"CAST(1 AS bit)", "104 1 1 0 0 01"}, {"CAST(1.5 AS real)", "109 4 4 0 0 0000C03F"},
        {"CAST(0.1 AS float)", "109 8 8 0 0 9A9999999999B93F"},
        {"CAST(1.25 AS decimal(5,1))", "106 17 17 0 0 010D000000000000000000000000000000"},
        {"CAST(-0.5 AS numeric)", "108 17 17 0 0 0001000000000000000000000000000000"},
        {"CAST(NULL AS int)", "38 4 0 1 0 "}, {"CAST(1 AS binary(4))", "173 4 4 0 0 00000001"},
    };
    std::string script = "DECLARE @v varchar(30) = 'ab', @c char(4) = 'a', @t text = 'hello', @o varchar(30)\n";
    for (const Case& c : cases) script += std::string("EXEC fx_Echo ") + c.argument + "\n";
    const Outcome run = Exec(script);
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::vector<std::string> seen;  // the first parameter's line of each call
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("1: ", 0) == 0) seen.push_back(line.substr(3));
    }
    ASSERT_EQ(seen.size(), std::size(cases)) << run.out;
    for (size_t i = 0; i < seen.size(); ++i) EXPECT_EQ(seen[i], cases[i].seen) << cases[i].argument;
}

// An OUTPUT variable takes the next argument's value, unpadded and cut to its length.
TEST_F(ExecTest, OutputsComeBackAsDelivered) {
    const Outcome run = Exec(
        "DECLARE @s char(10), @short varchar(2), @n nvarchar(3), @i smallint, @rc int\n"
        "EXEC @rc = fx_Echo @s OUTPUT, CAST(0x41E80042 AS varchar(4)), @short OUT, 'abcd', @n OUTPUT, N'\xC3\xA8', "
        "@i OUTPUT, -1\nSELECT @rc AS rc\n");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_TRUE(Has(run.out, "@s = 'A\xC3\xA8\\x00" "B'\n@short = 'ab'\n@n = N'\xC3\xA8'\n@i = -1\n"
                             "(return status = 8)\n\nrc\n--\n 8\n"));
}

TEST_F(ExecTest, JsonGivesEveryDeliveryExactly) {
    const Outcome run = Exec(
        "DECLARE @o varchar(2), @f float, @g float, @z float, @inf float, @e varchar(5)\n"
        "EXEC fx_Echo @o OUTPUT, CAST(0x41E80042 AS varchar(4))\n"
        "EXEC fx_Echo @f OUTPUT, CAST(0.15000000000000002 AS float), @g OUTPUT, 1e0, @z OUTPUT, -0e0, "
        "@inf OUTPUT, 0x000000000000F07F, @e OUTPUT, NULL\n",
        "--json");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    std::istringstream lines(run.out);
    std::string first, second;
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(first,
              "{\"proc\":\"fx_Echo\",\"return\":2,\"messages\":["
              "{\"type\":1,\"number\":1,\"class\":1,\"state\":3,\"text\":\"1: 167 2 0 1 1 \",\"hex\":"
              "\"313A20313637203220302031203120\"},"
              "{\"type\":1,\"number\":1,\"class\":1,\"state\":3,\"text\":\"2: 167 4 4 0 0 41E80042\",\"hex\":"
              "\"323A203136372034203420302030203431453830303432\"}],"
              "\"outputs\":{\"1\":{\"type\":167,\"null\":false,\"length\":4,\"hex\":\"41E80042\",\"value\":"
              "\"A\xC3\xA8\\u0000B\"}},\"done\":[{\"status\":0,\"info\":0,\"count\":0}],\"resultsets\":[],"
              "\"events\":[{\"message\":0},{\"message\":1},{\"output\":1},{\"done\":0}]}")
        << first;
    for (const char* expected : {"\"1\":{\"type\":109,\"null\":false,\"length\":8,\"hex\":\"343333333333C33F\","
                                 "\"value\":\"0.15000000000000002\"}",
                                 "\"value\":\"1\"", "\"value\":\"-0\"", "\"value\":\"inf\"",
                                 "\"9\":{\"type\":167,\"null\":true,\"length\":0,\"hex\":\"\",\"value\":null}"}) {
        EXPECT_TRUE(Has(second, expected));
    }
}

TEST_F(ExecTest, RowSetsMessagesAndReturnStatus) {
    const Outcome human = Exec("EXEC fx_Rows");
    ASSERT_EQ(human.exitCode, 0) << human.err;
    EXPECT_EQ(human.out,
              "fx_Rows\nbefore the rows\n"
              "Name  Count Status      When                    Data\n"
              "----- ----- ----------- ----------------------- ------\n"
              "caff\xC3\xA8    -2 -2147024809 2000-01-01 12:00:00.000 0xCAFE\n"
              "NULL      7           0 NULL                    NULL\n"
              "\n(2 rows affected)\nMsg 50000, Level 16, State 3\nfx_Rows\nafter the rows\n(return status = -1)\n\n");
    const Outcome json = Exec("EXEC fx_Rows", "--json");
    for (const char* expected :
         {"\"done\":[{\"status\":17,\"info\":0,\"count\":2},{\"status\":0,\"info\":0,\"count\":0}]",
          "\"resultsets\":[{\"columns\":[{\"name\":\"Name\",\"type\":167,\"width\":20},"
          "{\"name\":\"Count\",\"type\":56,\"width\":0}",
          "\"rows\":[[\"caff\xC3\xA8\",\"-2\",\"-2147024809\",\"2000-01-01 12:00:00.000\",\"0xCAFE\"],"
          "[null,\"7\",\"0\",null,null]]",
          "\"events\":[{\"message\":0},{\"describe\":\"Name\"},{\"describe\":\"Count\"},{\"describe\":\"Status\"},"
          "{\"describe\":\"When\"},{\"describe\":\"Data\"},{\"row\":0},{\"row\":1},{\"done\":0},{\"message\":1},"
          "{\"done\":1}]}"}) {
        EXPECT_TRUE(Has(json.out, expected));
    }
}

// SELECT shows each type as a client would see it.
TEST_F(ExecTest, SelectShowsEachType) {
    const Outcome run = Exec(
        "DECLARE @c char(4) = 'ab', @v varchar(3) = 'abcdef', @n nchar(2) = N'\xC3\xA8', @i smallint = -1, @t tinyint = 255\n"
        "DECLARE @b bit = 2, @r real = 0.1, @d decimal(6,2) = 1.005, @x varbinary(4) = CAST(258 AS binary(4))\n"
        "SELECT @c, @v, @n AS n, @i, @t, @b, @r, @d, @x, 1.50 AS d2, 0.15000000000000002 AS f, 0x AS e, NULL, 'x'\n");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "@c   @v  n  @i @t  @b @r  @d   @x         d2   f                   e  (No column name) (No column name)\n"
              "---- --- -- -- --- -- --- ---- ---------- ---- ------------------- -- ---------------- ----------------\n"
              "ab   abc \xC3\xA8  -1 255  1 0.1 1.01 0x00000102 1.50 0.15000000000000002 0x NULL             x\n"
              "\n(1 row affected)\n\n");
}

TEST_F(ExecTest, BatchSyntax) {
    const Outcome run = Exec(
        "/* a block /* nested */ comment */\n"
        "declare @a INT = 1; Declare @b As varchar(5) = N'x' ; -- trailing comment\n"
        "set @a = -7; SET @b = @a\n"
        "print @b\n"
        "PRINT NULL\n"
        "PRINT 'two\nlines' WAITFOR DELAY '00:00:00.05'\n"
        "execute master..fx_Echo @a OUT, 3\n"
        "exec dbo.[fx_Echo]\n"
        "  GO  \n"
        "DECLARE @a bit = 'TRUE'\n"
        "SELECT @a, 1e2 [hundred], 'x' AS 'quoted' PRINT 'end'\n");
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out,
              "-7\n\ntwo\nlines\n1: 38 4 4 0 1 F9FFFFFF\n2: 38 4 4 0 0 03000000\n@a = 3\n(return status = 2)\n\n"
              "(return status = 0)\n\n"
              "@a hundred quoted\n-- ------- ------\n 1     100 x\n\n(1 row affected)\n\nend\n");
}

// A bad script runs nothing, a failing statement stops the rest; both give the
// line and exit non-zero.
TEST_F(ExecTest, ErrorsGiveTheirLine) {
    const std::string noLib = "--lib /nonexistent/libvrn.so";
    const struct {
        const char* script;
        const char* error;
        std::string out = "", options = "";
    } cases[] = {
        {"PRINT 'a'\nSELECT @x", "line 2: Must declare the scalar variable \"@x\"."},
        {"DECLARE @a int\nDECLARE @A int", "line 2: The variable name '@A' has already been declared."},
        {"SELECT 'x", "line 1: unclosed quotation mark"},
        {"DECLARE @v foo", "line 1: unknown or unsupported type 'foo'"},
        {"DECLARE @a int = 'abc'", "line 1: Conversion failed when converting the varchar value 'abc' to data type int."},
        {"\nDECLARE @a tinyint = 256", "line 2: Arithmetic overflow error converting expression to data type tinyint."},
        {"EXEC fx_Echo @a = 1", "line 1: named parameters (@a = value) are not supported"},
        {"EXEC fx_Echo 1 OUTPUT", "line 1: OUTPUT needs a variable"},
        {"SELECT '\xE5\xAD\x97'", "line 1: the character U+5B57 has no Windows-1252 byte"},
        {"PRINT 1\nPRINT '\xE8'", "line 2: the script isn't valid UTF-8"},
        {"PRINT 1 2", "line 1: expected a statement (DECLARE, SET, EXEC, SELECT, PRINT, WAITFOR or GO), found '2'"},
        {"WAITFOR DELAY '00:60:00'", "line 1: expected a time as 'hh:mm:ss', found '00:60:00'"},
        {"PRINT 'before'\nEXEC fx_Nope 1\nPRINT 'after'", "line 2: Could not find stored procedure 'fx_Nope'.\n",
         "before\n"},
        {"DECLARE @s smallint, @i int = 40000\nSET @s = @i",
         "line 2: Arithmetic overflow error converting expression to data type smallint.\n"},
        {"PRINT 'before'\nEXEC fx_Echo", "line 2: cannot load the library: ", "before\n", noLib},
    };
    for (const auto& c : cases) {
        const Outcome run = Exec(c.script, c.options);
        EXPECT_EQ(run.exitCode, 1) << c.script;
        EXPECT_EQ(run.out, c.out) << c.script;
        EXPECT_EQ(run.err.rfind(std::string("vrn-exec: ") + c.error, 0), 0u) << c.script << "\n" << run.err;
    }
    const Outcome printed = Exec("PRINT N'ok'", noLib);  // no EXEC, no library needed
    EXPECT_EQ(std::make_pair(printed.exitCode, printed.out), std::make_pair(0, std::string("ok\n")));
}

}  // namespace
