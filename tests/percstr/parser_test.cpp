// The table builder and the driver on small calculator grammars whose tokens
// come from a list instead of a scanner.
#include "percstr/parser.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace vrn {
namespace {

constexpr int32_t kNum = 300;

struct Calc {
    explicit Calc(std::vector<int32_t> tokenCodes) : codes(std::move(tokenCodes)) {}
    std::vector<int32_t> codes;  // token codes; a number stands for itself behind kNum
    size_t next = 0;
    std::string trace;           // what the actions did, in order
    int errors = 0;
    TokenLocation errorAt{};
};

using CalcGrammar = Grammar<int, TokenLocation, Calc>;
using R = CalcGrammar::Reduce;

// One token per column; a number is kNum followed by its value in codes.
int32_t NextCalcToken(int* value, TokenLocation* location, Calc* calc) {
    if (calc->next >= calc->codes.size()) {
        calc->trace += "[0]";
        return 0;
    }
    const int32_t code = calc->codes[calc->next++];
    StepLocation(location, 1);
    if (code == kNum) *value = calc->codes[calc->next++];
    calc->trace += "[" + std::to_string(code == kNum ? *value : code) + "]";
    return code;
}

void RecordCalcError(Calc* calc, const TokenLocation& location) {
    ++calc->errors;
    calc->errorAt = location;
}

constexpr lalr::TokenName kCalcTokens[] = {{"NUM", kNum}};

constexpr lalr::PrecedenceLevel kCalcPrecedence[] = {
    {lalr::Assoc::NonAssoc, "'<'"},
    {lalr::Assoc::Left, "'+' '-'"},
    {lalr::Assoc::Left, "'*'"},
    {lalr::Assoc::Right, "'^'"},
    {lalr::Assoc::Right, "NEG"},
};

int Power(int base, int exponent) {
    int result = 1;
    while (exponent-- > 0) result *= base;
    return result;
}

constexpr CalcGrammar::Rule kCalcRules[] = {
    {"top: e", [](R& r) { r.context->trace += "=" + std::to_string(r[1]); }},
    {"top:", [](R& r) { r.context->trace += "empty@" + std::to_string(r.location.firstColumn); }},
    {"e: e '+' e", [](R& r) { r.value = r[1] + r[3]; r.context->trace += "+"; }},
    {"e: e '-' e", [](R& r) { r.value = r[1] - r[3]; r.context->trace += "-"; }},
    {"e: e '*' e", [](R& r) { r.value = r[1] * r[3]; r.context->trace += "*"; }},
    {"e: e '^' e", [](R& r) { r.value = Power(r[1], r[3]); }},
    {"e: e '<' e", [](R& r) { r.value = r[1] < r[3]; }},
    {"e: '-' e %prec NEG", [](R& r) { r.value = -r[2]; }},
    {"e: '(' e ')'", [](R& r) { r.value = r[2]; }},
    {"e: NUM", [](R& r) { r.context->trace += "n"; }},
    {"e: '!' e %prec NEG", [](R& r) {
         if (r[2] == 0) r.Abort();
         r.value = r[2];
     }},
};

constexpr CalcGrammar kCalc{kCalcTokens, kCalcPrecedence, kCalcRules, NextCalcToken, RecordCalcError};

const Parser<kCalc>& CalcParser() { return *Parser<kCalc>::Get(); }

// Writes a calculation as codes: digits are numbers, other characters themselves.
std::vector<int32_t> Codes(const std::string& text) {
    std::vector<int32_t> codes;
    for (char c : text) {
        if (c >= '0' && c <= '9') {
            codes.push_back(kNum);
            codes.push_back(c - '0');
        } else {
            codes.push_back(static_cast<unsigned char>(c));
        }
    }
    return codes;
}

TEST(LalrBuilder, PrecedenceSettlesEveryConflictOfTheCalculator) {
    EXPECT_TRUE(CalcParser().Tables().problems.empty());
}

TEST(LalrBuilder, ReportsConflictsThatNothingSettles) {
    constexpr lalr::TokenName tokens[] = {{"NUM", kNum}};
    lalr::GrammarText text{tokens, {}, {"e: e '+' e", "e: NUM"}};
    const lalr::ParseTables tables = lalr::BuildParseTables(text);
    ASSERT_EQ(tables.problems.size(), 1u);
    EXPECT_NE(tables.problems[0].find("shift/reduce"), std::string::npos);

    lalr::GrammarText twice{tokens, {}, {"s: a", "s: b", "a: NUM", "b: NUM"}};
    EXPECT_NE(lalr::BuildParseTables(twice).problems.at(0).find("reduce/reduce"), std::string::npos);

    lalr::GrammarText unknown{tokens, {}, {"e: e PLUS e"}};
    EXPECT_FALSE(lalr::BuildParseTables(unknown).problems.empty());
}

TEST(ParserDriver, ResultsAndOrderOfActions) {
    struct Case {
        const char* text;
        int32_t result;
        const char* trace;
    };
    const Case cases[] = {
        {"1+2*3", kParseAccepted, "[1]n[43][2]n[42][3]n[0]*+=7"},
        {"8-2-1", kParseAccepted, "[8]n[45][2]n[45]-[1]n[0]-=5"},  // left
        {"2^3^2", kParseAccepted, "[2]n[94][3]n[94][2]n[0]=512"},  // right
        {"-2^2", kParseAccepted, "[45][2]n[94][2]n[0]=4"},         // NEG is the tighter
        {"", kParseAccepted, "[0]empty@0"},
        {"1<2<3", kParseSyntaxError, "[1]n[60][2]n[60]"},          // non-associative
        // The default reductions run before the bad token is reported.
        {"1+2 3", kParseSyntaxError, "[1]n[43][2]n[32]+=3"},
        {"(1", kParseSyntaxError, "[40][1]n[0]"},
        {"!0+1", kParseSyntaxError, "[33][0]n"},                   // the action aborts
    };
    for (const Case& c : cases) {
        Calc calc{Codes(c.text)};
        EXPECT_EQ(CalcParser().Parse(&calc), c.result) << c.text;
        EXPECT_EQ(calc.trace, c.trace) << c.text;
        EXPECT_EQ(calc.errors, c.result == kParseSyntaxError && c.text[0] != '!' ? 1 : 0) << c.text;
    }
}

TEST(ParserDriver, ErrorIsRecordedAtTheLookahead) {
    Calc wrongToken{Codes("1+2 3")};
    (void)CalcParser().Parse(&wrongToken);
    EXPECT_EQ(wrongToken.errorAt.firstColumn, 3);
    EXPECT_EQ(wrongToken.errorAt.lastColumn, 4);

    Calc unknownCode{std::vector<int32_t>{kNum, 1, 999}};  // a code the grammar doesn't know matches nothing
    EXPECT_EQ(CalcParser().Parse(&unknownCode), kParseSyntaxError);
    EXPECT_EQ(unknownCode.errorAt.firstColumn, 1);

    Calc atEnd{Codes("1+")};
    EXPECT_EQ(CalcParser().Parse(&atEnd), kParseSyntaxError);
    EXPECT_EQ(atEnd.errorAt.firstColumn, 1) << "the end leaves the location of the last token";
}

std::string Nested(int depth) { return std::string(depth, '(') + "1" + std::string(depth, ')'); }

TEST(ParserDriver, StacksGrowToTenThousandEntries) {
    // Stack entries: state 0, one per '(', the number and the first ')': the
    // entry at index 9999 is the one that can't be written.
    Calc deep{Codes(Nested(9996))};
    EXPECT_EQ(CalcParser().Parse(&deep), kParseAccepted);
    EXPECT_TRUE(deep.trace.ends_with("=1"));

    Calc tooDeep{Codes(Nested(9997))};
    EXPECT_EQ(CalcParser().Parse(&tooDeep), kParseExhausted);
    EXPECT_EQ(tooDeep.errors, 1);
}

int blocksLeft = 0;
void* FailingAllocate(size_t bytes) { return blocksLeft-- > 0 ? std::malloc(bytes) : nullptr; }

TEST(ParserDriver, FailedGrowthExhaustsTheParse) {
    for (int blocks : {0, 2}) {  // at 200 entries; at 800
        blocksLeft = blocks;
        ParserMemory::allocate = FailingAllocate;
        Calc calc{Codes(Nested(1000))};
        const int32_t result = CalcParser().Parse(&calc);
        ParserMemory::allocate = std::malloc;
        EXPECT_EQ(result, kParseExhausted) << blocks;
    }
    Calc shallow{Codes(Nested(196))};
    blocksLeft = 0;
    ParserMemory::allocate = FailingAllocate;
    EXPECT_EQ(CalcParser().Parse(&shallow), kParseAccepted) << "indices up to 198 fit in the frame";
    ParserMemory::allocate = std::malloc;
}

}  // namespace
}  // namespace vrn
