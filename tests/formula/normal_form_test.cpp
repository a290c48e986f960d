#include "formula/normal_form.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "formula/round.h"

namespace vrn {
namespace {

using Op = PFormulaOp;

struct Block {
    std::vector<char> bytes;
    PFormulaRecord record{};

    explicit Block(uint32_t size) : bytes(size, '\0') {
        record.writeNormalForm = 1;
        record.normalForm = bytes.data();
        record.normalFormSize = size;
    }
    std::string Text() const { return std::string(bytes.data()); }
};

// What the parser's own numbers give is in its tests; these are the rest.
TEST(PFormulaWriteOp, WritesEachOperationInItsOneForm) {
    struct Row {
        double operand;
        PFormulaOp kind;
        const char* text;
    };
    const Row rows[] = {
        {-0.0, Op::kAdd, ""},
        {0, Op::kMultiply, "*0 "},  // 0 changes the value here: kept
        {0, Op::kDivide, "/0 "},
        {-0.5, Op::kAdd, "-0.5 "},
        {-5.5, Op::kMargin, "-5.5& "},
        {99999999.9999, Op::kPercentage, "+99999999.9999% "},
        {100.00001, Op::kAdd, "+100 "},     // four decimals, then the zeros and the point go
        {1e10, Op::kAdd, "+10000000000 "},  // beyond 32 bits: still the plain integer
        {-2.5, Op::kMultiply, "*-2.5 "},
        {-3.9, Op::kRoundDown, "AD(-3) "},
    };
    for (const Row& row : rows) {
        Block block(64);
        EXPECT_TRUE(PFormulaWriteOp(&block.record, row.operand, row.kind));
        EXPECT_EQ(block.Text(), row.text) << row.operand << " kind " << static_cast<int>(row.kind);
        EXPECT_EQ(block.record.errorCode, 0);
    }
}

TEST(PFormulaWriteOp, AppendsBehindTheTextAndNeverPastTheBlock) {
    Block block(10);
    EXPECT_TRUE(PFormulaWriteOp(&block.record, 5, Op::kAdd));
    EXPECT_TRUE(PFormulaWriteOp(&block.record, 22, Op::kPercentage));  // 8 bytes and the NUL
    EXPECT_FALSE(PFormulaWriteOp(&block.record, 1, Op::kAdd));         // needs 4 more, 2 are left
    EXPECT_EQ(block.record.errorCode, kPFormulaOutputTooShort);
    EXPECT_EQ(block.Text(), "+5 +22% ");
    EXPECT_EQ(block.bytes[9], '\0');

    Block exact(4), tight(3), none(0);
    EXPECT_TRUE(PFormulaWriteOp(&exact.record, 5, Op::kAdd));
    EXPECT_EQ(exact.Text(), "+5 ");
    EXPECT_FALSE(PFormulaWriteOp(&tight.record, 5, Op::kAdd));
    EXPECT_EQ(tight.Text(), "");
    EXPECT_TRUE(PFormulaWriteOp(&none.record, 0, Op::kAdd));  // nothing to write needs no room
}

// The reader, on the start value 100: the value it gives, or the offset of its failure.
struct RunRow {
    std::string text;  // may hold NULs
    double value;
    int failAt = -1;
};

void CheckRun(const RunRow& row, PFormulaCode code, double value) {
    SCOPED_TRACE("text \"" + row.text + "\"");
    if (row.failAt >= 0) {
        EXPECT_EQ(code, PFormulaMakeCode(-1, static_cast<uint32_t>(row.failAt), 1));
        EXPECT_EQ(value, 100) << "a failure leaves the value alone";
    } else {
        EXPECT_EQ(code, 0u);
        EXPECT_TRUE(std::isnan(row.value) ? std::isnan(value) : value == row.value) << value;
    }
}

constexpr double F = 0;  // the value of a failing row, never read

TEST(PFormulaRun, ReadsTheNormalFormAndFailsAtTheToldOffset) {
    const RunRow rows[] = {
        {"+10 ", 110}, {"", 100}, {"   ", 100}, {"123456789", 123456889}, {"+23.456 AC ( 2 )", 123.46},
        {"+23.456 AC(- 2)", 100}, {"A C(2)", F, 2}, {"AX(2)", F, 2}, {"ac(2)", F, 0}, {"AC(+2)", F, 4}, {"AC(02)", F, 5},
        {"AC(4)", F, 4}, {"AC(-4)", F, 5}, {"5 %", F, 2}, {".5", F, 0}, {"+.5", F, 1}, {"=-5", F, 1}, {"2901%", F, 5},
        {"-100%", F, 5}, {"100&", F, 4}, {"-2901&", F, 6}, {"*2%", F, 2}, {"1e", F, 1}, {"5 x", F, 2}, {"5\xE8", F, 1},
        // Forms that strtod reads and the parser never writes.
        {"5.%", 105}, {"1e2", 200}, {"0x10", 116}, {"0x", F, 1}, {"5+3", 108}, {"AC(2)5", 105},
        {"*1000", 100000}, {"/0", INFINITY}, {"=0 /0", NAN}, {"\t\v\f\r\n+1", 101},
        // Where the text ends inside an operation.
        {"A", F, 1}, {"AC(", F, 3}, {"AC(2", F, 4}, {"AC(-", F, 4}, {"+", F, 1}, {"= ", F, 2},
    };
    for (const RunRow& row : rows) {
        double value = 100;
        const PFormulaCode code = PFormulaRunCounted(&value, row.text.data(), static_cast<uint32_t>(row.text.size()));
        CheckRun(row, code, value);
    }
    double value = 7;
    EXPECT_EQ(PFormulaRunText(&value, nullptr), 0u);
    EXPECT_EQ(value, 7);
}

TEST(PFormulaRun, ABlockWithTwoFinalNulsMovesFailuresUpToTwoBytesOn) {
    const RunRow rows[] = {
        {"AC(", F, 4},   // the first NUL is the wrong byte, read
        {"AC(-", F, 5},  // behind the minus, the second NUL
        {"+", F, 1},     // a NUL where a digit belongs isn't read
        {"+10 ", 110},
    };
    for (const RunRow& row : rows) {
        std::string block = row.text + std::string(2, '\0');
        double value = 100;
        const PFormulaCode code = PFormulaRunBuffer(&value, block.data(), static_cast<uint32_t>(block.size()));
        CheckRun(row, code, value);
    }
    const std::string text = "+10 +2345";  // a number never runs across the end given
    double value = 100;
    EXPECT_EQ(PFormulaRunCounted(&value, text.data(), 7), 0u);
    EXPECT_DOUBLE_EQ(value, 133);
    EXPECT_EQ(PFormulaRunCounted(&value, "1e5", 2), PFormulaMakeCode(-1, 1, 1));
}

TEST(PFormulaRun, ReadsEveryNumberAsStrtodDoes) {
    std::mt19937 rng(7);
    auto digits = [&](int count) {
        std::string text;
        for (int i = 0; i < count; ++i) text += static_cast<char>('0' + rng() % 10);
        return text;
    };
    for (int i = 0; i < 100000; ++i) {
        std::string text = digits(1 + static_cast<int>(rng() % 20));
        if (rng() % 4) text += "." + digits(static_cast<int>(rng() % 25));
        if (rng() % 8 == 0) text += "e" + std::to_string(static_cast<int>(rng() % 700) - 350);
        double value = 0;
        ASSERT_EQ(PFormulaRunText(&value, text.c_str()), 0u) << text;
        ASSERT_EQ(value, std::strtod(text.c_str(), nullptr)) << text;
    }
}

}  // namespace
}  // namespace vrn
