#include "symbolic/symbols.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace vrn {
namespace {

TEST(SymbolTable, NamesAreDistinctWithoutCaseAndFitTheNameLimit) {
    for (const auto& var : PercStrSymbVars) {
        EXPECT_LE(strlen(var.name), 40u);
        PercStrSymbInitVars(0);
        ASSERT_EQ(PercStrSymbSetVarValue(var.name, "1"), 0);
        EXPECT_EQ(PercStrSymbFindVar(var.name), &var) << var.name;
    }
}

TEST(SymbolTable, LookupFoldsOnlyAsciiCapitalsAndMatchesWholeNames) {
    const struct {
        const char* stored;
        const char* looked;
        int32_t setResult;
        bool found;
    } cases[] = {
        {"CLIENTE", "cliente", 0, true}, {"Client", "Client", 1, false}, {"Cliente ", "Cliente ", 1, false},
        {"", "", 1, false}, {"Cliente\xC8", "Cliente\xE8", 1, false}, {"Cliente_ArticoloFamiglia", "Cliente", 0, false},
    };
    for (const auto& c : cases) {
        PercStrSymbInitVars(0);
        EXPECT_EQ(PercStrSymbSetVarValue(c.stored, "7"), c.setResult) << c.stored;
        EXPECT_EQ(PercStrSymbFindVar(c.looked) != nullptr, c.found) << c.looked;
    }
}

TEST(SymbolTable, StoresSetAndInitUnsets) {
    PercStrSymbInitVars(1);
    EXPECT_EQ(PercStrSymbFindVar("Listino"), nullptr);
    ASSERT_EQ(PercStrSymbSetVarValue("Listino", ""), 0);  // the empty value sets the variable
    ASSERT_NE(PercStrSymbFindVar("Listino"), nullptr);
    ASSERT_EQ(PercStrSymbSetVarValue("Sconto", "123456789012345678901234"), 0);
    EXPECT_STREQ(PercStrSymbFindVar("Sconto")->value.text, "123456789012345678901");

    PercStrSymbErrorPos = 0x100000004ull;
    PercStrSymbErrorLen = 7;
    for (const auto& var : PercStrSymbVars) ASSERT_EQ(PercStrSymbSetVarValue(var.name, "1"), 0);
    for (const auto& [given, stored] : {std::pair{0, 0}, {1, 1}, {3, 2}, {-1, 2}}) {
        PercStrSymbInitVars(given);
        EXPECT_EQ(PercStrSymbMode, stored) << given;
    }
    for (const auto& var : PercStrSymbVars) {
        EXPECT_EQ(PercStrSymbFindVar(var.name), nullptr) << var.name;
        EXPECT_EQ(var.value.text[0], '\0') << var.name;
    }
    int32_t position = -1, length = -1;
    PercStrSymbGetErrorInfo(&position, &length);
    EXPECT_EQ(std::make_pair(position, length), std::make_pair(4, 7));  // the low 32 bits
}

}  // namespace
}  // namespace vrn
