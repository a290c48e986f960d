#include "formula/formula_parser.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "formula/entry_points.h"
#include "formula/normal_form.h"

namespace vrn {
namespace {

struct Outcome {
    PFormulaCode code;
    double value;
    std::string normalForm;
};

// Scanner and parser over a copy of the text, with room for every normal form.
Outcome Normalize(const std::string& text, double start) {
    std::vector<char> block(PFormulaNormalFormRoom(static_cast<uint32_t>(text.size())), 'Z');
    double value = start;
    const PFormulaCode code = PFormulaNormalizeCounted(&value, text.data(), static_cast<uint32_t>(text.size()),
                                                       block.data(), static_cast<uint32_t>(block.size()));
    return {code, value, std::string(block.data(), strnlen(block.data(), block.size()))};
}

TEST(PFormulaParse, GrammarHasNoConflicts) { EXPECT_EQ(PFormulaGrammarProblemCount(), 0); }

// The fuzz target checks the same on generated formulas.
TEST(PFormulaParse, AcceptedFormulasGiveRegisterAndNormalFormThatTheReaderRepeats) {
    struct Row {
        std::string text;
        double start, value;
        std::string normalForm;
    };
    const Row rows[] = {
        {"100", 0, 100, "+100 "},
        {"1+2*3", 0, 9, "+1 +2 *3 "},
        {"=100 +22% -5& *2 /4 AD(-1)", 0, 50, "=100 +22% -5& *2 /4 AD(-1) "},
        {"AE(-1)", 1234.5, 1240, "AE(-1) "},
        {"1.2.3", 100, 101.5, "+1.2 +0.3 "},
        {"5 %", 100, 105, "+5% "},
        {"*1.50 00012", 2, 15, "*1.5 +12 "},
        {"12345678.1234 -.0001%", 0, 12345665.777721876, "+12345678.1234 -0.0001% "},
        // Limits are inclusive.
        {"*0.1 *300 /0.1 /100", 1, 3, "*0.1 *300 /0.1 /100 "},
        {"2900% -99%", 1, 0.3, "+2900% -99% "},
        {"99& -2900&", 3, 10, "+99& -2900& "},
        {"+2900% +99&", 1, 3000, "+2900% +99& "},
        // Operations of 0 that change nothing go; an assignment of 0 stays.
        {"-0% +0& =5 -0", 1, 5, "=5 "},
        {"=0 +5", 100, 5, "=0 +5 "},
        {"AC(003) ac(+3) AE(-0)", 1.5, 2, "AC(3) AC(3) AE(0) "},
        {"\t5\r\n", 0, 5, "+5 "},
        {"5\xE8*9999", 0, 5, "+5 "},  // a byte from 0x80 up ends the text
        {std::string("5\0*9999", 7), 0, 5, "+5 "},
    };
    for (const Row& row : rows) {
        const Outcome got = Normalize(row.text, row.start);
        EXPECT_EQ(got.code, 0u) << row.text;
        EXPECT_NEAR(got.value, row.value, 1e-12 * row.value) << row.text;
        EXPECT_EQ(got.normalForm, row.normalForm) << row.text;
        double read = row.start;  // the reader gives exactly what the parser gave
        EXPECT_EQ(PFormulaRunText(&read, got.normalForm.c_str()), 0u) << row.text;
        EXPECT_EQ(read, got.value) << row.text;
    }
}

// A caller's value stays on any error; the empty text reaches the parser only as a block.
TEST(PFormulaParse, ErrorsCarryNumberPositionAndLength) {
    struct Row {
        std::string text;
        int32_t number;
        uint32_t position, length;
    };
    const Row rows[] = {
        {"   ", -1, 0, 3}, {"5+", -1, 1, 1}, {"5 + ", -1, 3, 1}, {"=", -1, 0, 1}, {"=5.", -1, 2, 1}, {"(5)", -1, 0, 1},
        {"5AC(2)", -1, 0, 3}, {"AC", -1, 0, 2}, {"AC(2", -1, 3, 1}, {"AC(1.5)", -1, 3, 3}, {"AC(123456789)", -1, 3, 9},
        {"AC(4)", -6, 3, 1}, {"AC(-4)", -6, 3, 2}, {"AC(12345678)", -6, 3, 8}, {"-99.0001%", -7, 1, 7},
        {"2900.0001%", -7, 0, 9}, {"100&", -8, 0, 3}, {"-2900.0001&", -8, 1, 9}, {"*0", -9, 1, 1},
        {"*300.0001", -9, 1, 8}, {"/0", -10, 1, 1}, {"/100.0001", -10, 1, 8}, {"1.23456", -11, 0, 7},
        {"123456789", -12, 0, 9}, {"=-5", -1, 1, 1}, {"/+2", -1, 1, 1}, {"=5%", -1, 2, 1}, {"+5% 2%%", -1, 6, 1},
        {"*500,", -9, 1, 3},  // reported behind the number, before the comma is looked at
        {"5 XYZ", -1, 2, 3},
    };
    for (const Row& row : rows) {
        const Outcome got = Normalize(row.text, 100);
        EXPECT_EQ(got.code, PFormulaMakeCode(row.number, row.position, row.length)) << row.text;
        EXPECT_EQ(got.value, 100) << row.text;
    }
    char block[2] = {0, 0};
    double value = 100;
    EXPECT_EQ(PFormulaEvalBuffer(&value, block, 2), PFormulaMakeCode(-1, 0, 0));
    EXPECT_EQ(PFormulaEvalCounted(&value, "", 0), 0u);
    EXPECT_EQ(value, 100);
}

}  // namespace
}  // namespace vrn
