#include "symbolic/reduce.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "percstr/engine/parser.h"
#include "symbolic/scanner.h"
#include "symbolic/symbols.h"

namespace vrn {
namespace {

struct Outcome {
    int32_t code;
    std::string text;
    PercStrSymbStop stop;
};

Outcome Reduce(const std::string& text) {
    char result[kPercStrSymbTextSize];
    memset(result, 'x', sizeof result);
    uint32_t length = sizeof result;
    PercStrSymbStop stop = PercStrSymbStop::kNone;
    const int32_t code = PercStrSymbReduce(text.c_str(), result, &length, &stop);
    EXPECT_LT(length, sizeof result);
    EXPECT_EQ(result[length], '\0') << text;
    EXPECT_EQ(stop != PercStrSymbStop::kNone, code == kPercStrSymbFailed) << text;
    return {code, std::string(result, length), stop};
}

using Vars = std::vector<std::pair<const char*, const char*>>;

void Start(int32_t mode, const Vars& vars = {}) {
    PercStrSymbInitVars(mode);
    for (const auto& [name, value] : vars) ASSERT_EQ(PercStrSymbSetVarValue(name, value), 0) << name;
}

void ExpectReduces(const std::string& text, const char* expected) {
    const Outcome out = Reduce(text);
    EXPECT_EQ(out.code, kPercStrSymbReduced) << text << " in mode " << PercStrSymbMode;
    EXPECT_EQ(out.text, expected) << text << " in mode " << PercStrSymbMode;
}

void ExpectFailsAt(const std::string& text, int32_t position, int32_t length,
                   PercStrSymbStop stop = PercStrSymbStop::kSyntax) {
    PercStrSymbErrorPos = 999;
    PercStrSymbErrorLen = 999;
    const Outcome out = Reduce(text);
    EXPECT_EQ(out.code, kPercStrSymbFailed) << text;
    EXPECT_EQ(out.stop, stop) << text;
    EXPECT_EQ(out.text, "") << text;
    int32_t gotPosition = 0, gotLength = 0;
    PercStrSymbGetErrorInfo(&gotPosition, &gotLength);
    EXPECT_EQ(gotPosition, position) << text;
    EXPECT_EQ(gotLength, length) << text;
}

TEST(SymbolicReduce, GrammarBuildsWithoutConflicts) { EXPECT_TRUE(PercStrSymbGrammarProblems().empty()); }

// Comparisons go by the mode, where an empty or invalid text counts as the
// neutral value; the text operations are the same in every mode.
TEST(SymbolicReduce, ResultsByMode) {
    struct Case {
        const char* text;
        Vars vars;
        const char* mode0;
        const char* mode1 = nullptr;  // null: as in mode 0
        const char* mode2 = nullptr;
    };
    const Vars empty = {{"Cliente", ""}};
    const Case cases[] = {
        {"MIN(10,20)", {}, "10", "10", "20"}, {"MAX(10,20)", {}, "20", "20", "10"}, {"MIN(10,20,5)", {}, "5", "5", "20"},
        {"MIN(10.0,10)", {}, "10.0"}, {"MIN(10+5,14)", {}, "14", "14", "10+5"}, {"MIN(10+5,15)", {}, "15", "10+5", "10+5"},
        {"IIF(10>5,1,2)", {}, "1", "1", "2"}, {"IIF(10>=10,1,2)", {}, "1"}, {"IIF(10<5,1,2)", {}, "2", "2", "1"},
        {"IIF(10<=5,1,2)", {}, "2", "2", "1"}, {"IIF(10=10.0,1,2)", {}, "1"}, {"IIF(10<>10.0,1,2)", {}, "2"},
        {"IIF(ZERO(10-10),1,2)", {}, "1", "2", "2"}, {"IIF(ISEMPTY(0),1,2)", {}, "2"}, {"IIF(NOT NOT 1=1,1,2)", {}, "1"},
        {"IIF(1+2>3,1,2)", {}, "2"}, {"MIN(Cliente,5)", empty, "", "", "5"}, {"MAX(Cliente,5)", empty, "5", "5", ""},
        {"MIN(Cliente,5)", {{"Cliente", "abc"}}, "abc", "abc", "5"}, {"MAX(Cliente+5,7)", empty, "7", "7", "+5"},
        {"IIF(ISZERO(Cliente),1,2)", empty, "1"}, {"IIF(ISZERO(Cliente),1,2)", {{"Cliente", "+5"}}, "1"},
        {"IIF(ISZERO(Cliente),1,2)", {{"Cliente", "5"}}, "2"}, {"IIF(ISEMPTY(Cliente),1,2)", {{"Cliente", " "}}, "1"},
        {"10-(5+3)", {}, "10-5-3"}, {"10-(-5)", {}, "10+5"}, {"-(-10+5)", {}, "+10-5"}, {"+10", {}, "10"},
        {"Cliente+5", empty, "+5"}, {"5+Cliente", empty, "5"}, {"COALESCE(8)", {}, "8"},
        {"COALESCE(Cliente,ClienteGruppo,7)", {{"Cliente", ""}, {"ClienteGruppo", "   "}}, "7"},
        {"Cliente+Articolo", {{"Cliente", "a b"}, {"Articolo", " c+d "}}, "a b+c+d"},
        {"-Cliente", {{"Cliente", "a-b+c"}}, "-a+b-c"}, {"10+5\xE8+junk(", {}, "10+5"},
        // "|" binds tighter than "+" and "-", and looser than a prefix "-".
        {"1+Cliente|3", empty, "1+3"}, {"-Cliente|2", empty, "2"}, {"1|2+3", {}, "1+3"},
        {"100.123456+200.123456", {}, "100.123456+200.123456"},  // 21 characters: the limit
    };
    for (const auto& c : cases) {
        const char* expected[] = {c.mode0, c.mode1 ? c.mode1 : c.mode0, c.mode2 ? c.mode2 : c.mode0};
        for (int32_t mode = 0; mode < 3; ++mode) {
            Start(mode, c.vars);
            ExpectReduces(c.text, expected[mode]);
        }
    }
}

TEST(SymbolicReduce, FailuresRecordTheOffendingToken) {
    struct Case {
        std::string text;
        int32_t position;
        int32_t length;
        PercStrSymbStop stop = PercStrSymbStop::kSyntax;
    };
    const Case cases[] = {
        {"10%", 2, 1}, {"10+\xE8" "5", 3, 1}, {"10+", 2, 1}, {"(", 0, 1}, {"1\v", 1, 1}, {"IIF(1,2,3)", 5, 1},
        {"1=1", 1, 1}, {"IIF(1=1,2)", 9, 1}, {"MIN()", 4, 1}, {"IIF(1=1=1,1,2)", 7, 1},
        {"+", 0, 1}, {"1 2", 2, 1}, {"NOT 1", 0, 3}, {"MIN(Cliente", 10, 1},
        {"IIF(1=1,2,Listino)", 10, 7, PercStrSymbStop::kUnsetVariable},
        {"1+listino", 2, 7, PercStrSymbStop::kUnsetVariable},
        {"MINI(1)", 0, 4, PercStrSymbStop::kNoVariable},
        {"Cliente+Clienti", 8, 7, PercStrSymbStop::kNoVariable},
        {"-(100.123456+200.123456)", 999, 999, PercStrSymbStop::kOverflow},  // too long: nothing recorded
    };
    for (const auto& c : cases) {
        for (int32_t mode = 0; mode < 3; ++mode) {
            Start(mode, {{"Cliente", "1"}});
            ExpectFailsAt(c.text, c.position, c.length, c.stop);
        }
    }
}

TEST(SymbolicReduce, MemoryFailures) {
    Start(0);
    PercStrSymbErrorPos = 42;
    PercStrSymbScanner.SetAllocator([](size_t) -> void* { return nullptr; }, [](void*) {});
    const Outcome noBuffer = Reduce("1+2");
    PercStrSymbScanner.SetAllocator(nullptr, nullptr);
    EXPECT_EQ(noBuffer.code, kPercStrSymbNoBuffer);
    EXPECT_EQ(PercStrSymbErrorPos, 42u);

    // Stacks that can't grow past their first 200 entries: the last token read is recorded.
    ParserMemory::allocate = [](size_t) -> void* { return nullptr; };
    ExpectFailsAt(std::string(300, '(') + "5" + std::string(300, ')'), 198, 1,  // the 199th "(" fills the 200th entry
                  PercStrSymbStop::kNoMemory);
    ParserMemory::allocate = std::malloc;
}

TEST(SymbolicReduce, ResultBlockAndCapacity) {
    Start(1, {{"Cliente", "10+5"}, {"Articolo", "20"}});
    char result[8] = "keep";
    uint32_t length = 99;
    EXPECT_EQ(PercStrSymbReduce("1", nullptr, &length), kPercStrSymbNoResult);
    EXPECT_EQ(PercStrSymbReduce("1", result, &length), kPercStrSymbNoResult);  // length 0 now
    EXPECT_STREQ(result, "keep");
    for (uint32_t capacity : {3u, 5u}) {
        length = capacity;
        EXPECT_EQ(PercStrSymbReduce("MAX(Cliente,Articolo)+2", result, &length),
                  capacity == 3 ? kPercStrSymbCut : kPercStrSymbReduced);
        EXPECT_EQ(std::string(result, length), capacity == 3 ? "20" : "20+2");
    }
    PercStrSymbErrorPos = 42;  // a blank text reduces to nothing and records nothing
    length = sizeof result;
    EXPECT_EQ(PercStrSymbReduce("   ", result, &length), kPercStrSymbReduced);
    EXPECT_EQ(std::make_pair(length, PercStrSymbErrorPos), std::make_pair(0u, uint64_t{42}));
    Start(2, {{"Cliente", " 7 "}});  // the value is trimmed in the result, not in the table
    ExpectReduces("Cliente", "7");
    EXPECT_STREQ(PercStrSymbFindVar("Cliente")->value.text, " 7 ");
}

}  // namespace
}  // namespace vrn
