#include "formula/round.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>

namespace vrn {
namespace {

constexpr PFormulaOp kC = PFormulaOp::kRoundCommercial, kD = PFormulaOp::kRoundDown, kE = PFormulaOp::kRoundUp;
constexpr PFormulaOp kKinds[] = {kC, kD, kE};

// The rounding steps with their 32-bit truncation, for values whose x (and
// x + 1) lie inside that range. The engine must match it bit for bit there.
double RoundBy32BitSteps(double value, int32_t digits, PFormulaOp kind) {
    // The correctly rounded power, as strtod reads it: some runtimes' pow is an ulp off.
    const double p = std::strtod(("1e" + std::to_string(digits)).c_str(), nullptr);
    const double x = value * p;
    const int32_t t = static_cast<int32_t>(x);
    if (std::fabs(x - t) < 1e-8) return x / p;
    if (kind == kC) return static_cast<int32_t>(x + 0.5) / p;
    if (kind == kE) return static_cast<int32_t>(x + 1.0) / p;
    return t / p;
}

uint64_t Bits(double x) { return std::bit_cast<uint64_t>(x); }

struct RoundRow {
    double value;
    int32_t digits;
    double commercial, down, up;
};

const RoundRow kRows[] = {
    {2.5, 0, 3, 2, 3},
    {1.15, 2, 1.15, 1.14, 1.15},
    {1.005, 2, 1, 1, 1.01},
    {99.999, 2, 100, 99.99, 100},
    {0.0005, 3, 0.001, 0, 0.001},
    {1234.5678, 2, 1234.57, 1234.56, 1234.57},
    {1234.5678, -1, 1230, 1230, 1240},
    {1500, -3, 2000, 1000, 2000},
    {-1.2, 1, -1.2, -1.2, -1.2},
    {-1.24, 1, -1.1, -1.2, -1.1},
    {-1.25, 1, -1.2, -1.2, -1.1},
    {-0.4, 0, 0, 0, 0},
    {0, -3, 0, 0, 0},
    {0.25, 2, 0.25, 0.25, 0.25},
    {0.1 + 0.2, 1, 0.1 + 0.2, 0.1 + 0.2, 0.1 + 0.2},  // noise kept: counts as rounded
    {2147483.647, 3, 2147483.647, 2147483.647, 2147483.647},
};

TEST(PFormulaRound, WorkedValuesMatchThe32BitStepsBitForBit) {
    for (const RoundRow& row : kRows) {
        const double expected[] = {row.commercial, row.down, row.up};
        for (int k = 0; k < 3; ++k) {
            SCOPED_TRACE(testing::Message() << row.value << " digits " << row.digits << " kind "
                                            << static_cast<int>(kKinds[k]));
            const double got = PFormulaRound(row.value, row.digits, kKinds[k]);
            EXPECT_EQ(Bits(got), Bits(RoundBy32BitSteps(row.value, row.digits, kKinds[k])));
            EXPECT_NEAR(got, expected[k], 1e-12 * std::fmax(1.0, std::fabs(expected[k])));
            EXPECT_FALSE(std::signbit(got) && got == 0) << "negative zero";
        }
    }
}

TEST(PFormulaRound, RandomValuesInsideThe32BitRangeMatchTheSteps) {
    std::mt19937_64 rng(42);
    for (int i = 0; i < 200000; ++i) {
        const int32_t digits = static_cast<int32_t>(rng() % 11) - 5;  // the function itself takes any digits
        const double limit = 2147483000.0 / std::pow(10.0, digits);
        std::uniform_real_distribution<double> any(-limit, limit);
        // Short decimals hit the near-multiple test far more often than random bits.
        const double value = (i % 2) ? any(rng) : std::round(any(rng) * 1e4) / 1e4;
        const PFormulaOp kind = kKinds[i % 3];
        ASSERT_EQ(Bits(PFormulaRound(value, digits, kind)), Bits(RoundBy32BitSteps(value, digits, kind)))
            << value << " digits " << digits << " kind " << static_cast<int>(kind);
    }
}

TEST(PFormulaRound, ValuesBeyondThe32BitRangeStillRound) {
    struct Row {
        double value;
        int32_t digits;
        PFormulaOp kind;
        double expected;
    };
    const Row rows[] = {
        {2147483.648, 3, kC, 2147483.648},  // x is 2^31: the first value past the range
        {-2147483.649, 3, kD, -2147483.649},
        {12345678.1234, 3, kE, 12345678.124},
        {12345678.1235, 3, kC, 12345678.124},
        {99999999.9999, 2, kC, 100000000},
        {1e300, 3, kC, 1e300},
    };
    for (const Row& row : rows) {
        EXPECT_NEAR(PFormulaRound(row.value, row.digits, row.kind), row.expected, 1e-6 * std::fabs(row.expected))
            << row.value << " digits " << row.digits;
    }
    EXPECT_TRUE(std::isinf(PFormulaRound(INFINITY, 2, kC)));
    EXPECT_TRUE(std::isnan(PFormulaRound(NAN, 2, kE)));
}

}  // namespace
}  // namespace vrn
