#include "symbolic/symbols.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace vrn {
namespace {

TEST(SymbolTable, NamesAreDistinctWithoutCaseAndFitTheNameLimit) {
    for (size_t i = 0; i < kPercStrSymbVarCount; ++i) {
        EXPECT_LE(strlen(PercStrSymbVars[i].name), 40u);
        PercStrSymbInitVars(0);
        ASSERT_EQ(PercStrSymbSetVarValue(PercStrSymbVars[i].name, "1"), 0);
        EXPECT_EQ(PercStrSymbFindVar(PercStrSymbVars[i].name), &PercStrSymbVars[i]) << PercStrSymbVars[i].name;
    }
}

TEST(SymbolTable, LookupFoldsOnlyAsciiCapitalsAndMatchesWholeNames) {
    struct Case {
        const char* stored;
        const char* looked;
        int32_t setResult;
        bool found;
    };
    const Case cases[] = {
        {"CLIENTE", "cliente", 0, true}, {"cliente_articolofamiglia", "CLIENTE_ARTICOLOFAMIGLIA", 0, true},
        {"Client", "Client", 1, false}, {"Cliente ", "Cliente ", 1, false}, {"", "", 1, false},
        {"Cliente\xC8", "Cliente\xE8", 1, false}, {"Agente1", "AGENTE1", 0, true},
        {"Cliente_ArticoloFamiglia", "Cliente", 0, false},
    };
    for (const auto& c : cases) {
        PercStrSymbInitVars(0);
        EXPECT_EQ(PercStrSymbSetVarValue(c.stored, "7"), c.setResult) << c.stored;
        const PercStrSymbVar* var = PercStrSymbFindVar(c.looked);
        EXPECT_EQ(var != nullptr, c.found) << c.looked;
    }
}

TEST(SymbolTable, TheEmptyValueSetsTheLastStoreWinsAndLongValuesAreCut) {
    PercStrSymbInitVars(1);
    EXPECT_EQ(PercStrSymbFindVar("Listino"), nullptr);
    ASSERT_EQ(PercStrSymbSetVarValue("Listino", ""), 0);
    ASSERT_NE(PercStrSymbFindVar("Listino"), nullptr);
    EXPECT_STREQ(PercStrSymbFindVar("Listino")->value.text, "");
    ASSERT_EQ(PercStrSymbSetVarValue("LISTINO", "20 "), 0);
    EXPECT_STREQ(PercStrSymbFindVar("Listino")->value.text, "20 ");
    ASSERT_EQ(PercStrSymbSetVarValue("Sconto", "123456789012345678901234"), 0);
    EXPECT_STREQ(PercStrSymbFindVar("Sconto")->value.text, "123456789012345678901");
}

TEST(SymbolTable, InitUnsetsEverythingMapsTheModeAndKeepsTheErrorValues) {
    PercStrSymbErrorPos = 0x100000004ull;
    PercStrSymbErrorLen = 7;
    for (const auto& var : PercStrSymbVars) ASSERT_EQ(PercStrSymbSetVarValue(var.name, "1"), 0);
    const std::pair<int32_t, int32_t> modes[] = {{0, 0}, {1, 1}, {3, 2}, {-1, 2}, {2, 2}};
    for (const auto& [given, stored] : modes) {
        PercStrSymbInitVars(given);
        EXPECT_EQ(PercStrSymbMode, stored) << given;
    }
    for (const auto& var : PercStrSymbVars) {
        EXPECT_EQ(PercStrSymbFindVar(var.name), nullptr) << var.name;
        EXPECT_EQ(var.value.text[0], '\0') << var.name;
    }
    int32_t position = -1, length = -1;
    PercStrSymbGetErrorInfo(&position, &length);
    EXPECT_EQ(position, 4);  // the low 32 bits
    EXPECT_EQ(length, 7);
}

}  // namespace
}  // namespace vrn
