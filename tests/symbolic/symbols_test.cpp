#include "symbolic/symbols.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace vrn {
namespace {

std::string Folded(const char* name) {
    std::string s(name);
    for (auto& c : s) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return s;
}

TEST(SymbolTable, NamesAreDistinctUnderFoldingAndFitTheParameterLimit) {
    size_t longest = 0;
    for (size_t i = 0; i < kPercStrSymbVarCount; ++i) {
        longest = std::max(longest, strlen(PercStrSymbVars[i].name));
        for (size_t j = i + 1; j < kPercStrSymbVarCount; ++j) {
            EXPECT_NE(Folded(PercStrSymbVars[i].name), Folded(PercStrSymbVars[j].name)) << i << " " << j;
        }
    }
    EXPECT_EQ(longest, 38u);
    EXPECT_STREQ(PercStrSymbVars[0].name, "Cliente");
    EXPECT_STREQ(PercStrSymbVars[kPercStrSymbVarCount - 1].name, "SottoCommessa");
}

TEST(SymbolTable, LookupFoldsOnlyAsciiCapitalsAndMatchesWholeNames) {
    struct Case {
        const char* stored;
        const char* looked;
        int32_t setResult;
        bool found;
    };
    const Case cases[] = {
        {"Cliente", "cliente", 0, true},
        {"CLIENTE", "Cliente", 0, true},
        {"cliente_articolofamiglia", "CLIENTE_ARTICOLOFAMIGLIA", 0, true},
        {"Client", "Client", 1, false},
        {"Cliente ", "Cliente ", 1, false},
        {"Cliente_Articolo", "Cliente_Articolo", 1, false},
        {"", "", 1, false},
        {"Cliente\xC8", "Cliente\xE8", 1, false},
        {"Agente1", "AGENTE1", 0, true},
        {"Cliente_ArticoloFamiglia", "Cliente", 0, false},
    };
    for (const auto& c : cases) {
        PercStrSymbInitVars(0);
        EXPECT_EQ(PercStrSymbSetVarValue(c.stored, "7"), c.setResult) << c.stored;
        const PercStrSymbVar* var = PercStrSymbFindVar(c.looked);
        EXPECT_EQ(var != nullptr, c.found) << c.looked;
        if (var != nullptr) {
            EXPECT_STREQ(var->value.text, "7");
        }
    }
}

TEST(SymbolTable, EmptyValueSetsTheVariableAndTheLastStoreWins) {
    PercStrSymbInitVars(1);
    EXPECT_EQ(PercStrSymbFindVar("Listino"), nullptr);
    ASSERT_EQ(PercStrSymbSetVarValue("Listino", ""), 0);
    const PercStrSymbVar* var = PercStrSymbFindVar("Listino");
    ASSERT_NE(var, nullptr);
    EXPECT_STREQ(var->value.text, "");
    ASSERT_EQ(PercStrSymbSetVarValue("Listino", "10+5"), 0);
    ASSERT_EQ(PercStrSymbSetVarValue("LISTINO", "20 "), 0);
    EXPECT_STREQ(PercStrSymbFindVar("Listino")->value.text, "20 ");
}

TEST(SymbolTable, ValueKeepsAtMostTwentyOneCharacters) {
    PercStrSymbInitVars(0);
    ASSERT_EQ(PercStrSymbSetVarValue("Sconto", "123456789012345678901234"), 0);
    EXPECT_STREQ(PercStrSymbFindVar("Sconto")->value.text, "123456789012345678901");
}

TEST(SymbolTable, InitUnsetsEverythingMapsTheModeAndKeepsTheErrorValues) {
    PercStrSymbErrorPos = 0x100000004ull;
    PercStrSymbErrorLen = 7;
    for (const auto& var : PercStrSymbVars) ASSERT_EQ(PercStrSymbSetVarValue(var.name, "1"), 0);

    const std::pair<int32_t, int32_t> modes[] = {{0, 0}, {1, 1}, {2, 2}, {3, 2}, {-1, 2}, {7, 2}};
    for (const auto& [given, stored] : modes) {
        PercStrSymbInitVars(given);
        EXPECT_EQ(PercStrSymbMode, stored) << given;
    }
    for (const auto& var : PercStrSymbVars) {
        EXPECT_EQ(var.isSet, 0) << var.name;
        EXPECT_EQ(var.value.text[0], '\0') << var.name;
        EXPECT_EQ(PercStrSymbFindVar(var.name), nullptr) << var.name;
    }
    int32_t position = -1, length = -1;
    PercStrSymbGetErrorInfo(&position, &length);
    EXPECT_EQ(position, 4);  // the low 32 bits
    EXPECT_EQ(length, 7);
}

}  // namespace
}  // namespace vrn
