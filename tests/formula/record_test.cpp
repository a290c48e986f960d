#include "formula/record.h"

#include <gtest/gtest.h>

#include <string>

namespace vrn {
namespace {

// Every error number has its text and its English reason, which the
// PostgreSQL extension shows; a number outside the table has neither.
TEST(PFormulaRecord, EveryErrorHasATextAndAReason) {
    for (int32_t number = kPFormulaLongInteger; number <= kPFormulaOk; ++number) {
        EXPECT_NE(std::string(PFormulaErrorText(number)), "Unknown") << number;
        EXPECT_NE(std::string(PFormulaErrorReason(number)), "error") << number;
    }
    for (int32_t number : {kPFormulaLongInteger - 1, 1}) {
        EXPECT_STREQ(PFormulaErrorText(number), "Unknown");
        EXPECT_STREQ(PFormulaErrorReason(number), "error");
    }
    EXPECT_STREQ(PFormulaErrorReason(kPFormulaDivision),
                 "division out of range: the divisor must lie between 0.1 and 100");
}

}  // namespace
}  // namespace vrn
