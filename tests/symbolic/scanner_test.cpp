#include "symbolic/scanner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vrn {
namespace {

// One token as the parser sees it, with where PercStrSymbMarkError puts it.
struct Token {
    int code;
    std::string value;  // for VALUE
    uint64_t position;
    uint64_t length;
    bool operator==(const Token&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Token& t) {
    return out << "{" << t.code << " '" << t.value << "' " << t.position << "," << t.length << "}";
}

// Tokens up to and including the end (code 0 or below), at most 20.
std::vector<Token> Scan(const std::string& text) {
    ScanBuffer* buffer = PercStrSymbScanner.yy_scan_text(text.c_str());
    EXPECT_NE(buffer, nullptr);
    std::vector<Token> tokens;
    for (int i = 0; i < 20; ++i) {
        const int code = PercStrSymbNextToken();
        PercStrSymbMarkError();
        tokens.push_back({code, code == kSymbValue ? PercStrSymbScanner.tokenValue.text : "", PercStrSymbErrorPos,
                          PercStrSymbErrorLen});
        if (code <= 0) break;
    }
    PercStrSymbScanner.yy_release_buffer(buffer);
    PercStrSymbScanner.unset = PercStrSymbUnsetName::kNone;
    return tokens;
}

constexpr int V = kSymbValue;

TEST(SymbolicScanner, NumbersKeepTheirTextAndSplitAtTheirLimits) {
    const std::pair<std::string, std::vector<Token>> cases[] = {
        {"1000", {{V, "100", 0, 3}, {V, "0", 3, 1}, {0, "", 3, 1}}},
        {"1.1234567", {{V, "1.123456", 0, 8}, {V, "7", 8, 1}, {0, "", 8, 1}}},
        {"1.5.5", {{V, "1.5", 0, 3}, {V, "0.5", 3, 2}, {0, "", 4, 1}}},
        {"007.100", {{V, "007.100", 0, 7}, {0, "", 6, 1}}},
        {"12.", {{V, "12", 0, 2}, {'.', "", 2, 1}, {0, "", 2, 1}}},
        {"10abc", {{V, "10", 0, 2}, {kSymbUnset, "", 2, 3}, {0, "", 4, 1}}},
    };
    for (const auto& [text, tokens] : cases) EXPECT_EQ(Scan(text), tokens) << text;
}

TEST(SymbolicScanner, OperatorsKeywordsAndBytes) {
    const std::pair<std::string, std::vector<int>> cases[] = {
        {"<>!=<=>=", {kSymbNe, kSymbNe, kSymbLe, kSymbGe, 0}}, {"< >! =", {'<', '>', kSymbNot, '=', 0}},
        {"not Not NOT", {kSymbNot, kSymbNot, kSymbNot, 0}},
        {"min MAX Iif coalesce", {kSymbMin, kSymbMax, kSymbIif, kSymbCoalesce, 0}},
        {"ISEMPTY empty ISZERO zero", {kSymbIsEmpty, kSymbIsEmpty, kSymbIsZero, kSymbIsZero, 0}},
        {"MINI MIN_ _x NOTE", {kSymbUnset, kSymbUnset, kSymbUnset, kSymbUnset, 0}},
        {"+-|(),", {'+', '-', '|', '(', ')', ',', 0}}, {"\t\r\n 1", {V, 0}}, {"\v\f", {'\v', '\f', 0}},
        {"5\xE8" "5", {V, static_cast<signed char>(0xE8)}},
    };
    PercStrSymbInitVars(0);
    for (const auto& [text, codes] : cases) {
        std::vector<int> got;
        for (const Token& t : Scan(text)) got.push_back(t.code);
        EXPECT_EQ(got, codes) << text;
    }
}

// Offsets are those of the text, whatever the value a name stands for.
TEST(SymbolicScanner, NamesBecomeTheirValuesAtScanTime) {
    PercStrSymbInitVars(1);
    ASSERT_EQ(PercStrSymbSetVarValue("Cliente", "MIN(1,2)"), 0);
    ASSERT_EQ(PercStrSymbSetVarValue("Articolo", ""), 0);
    ASSERT_EQ(PercStrSymbSetVarValue("Listino", "Cliente"), 0);
    const std::vector<Token> expected = {
        {V, "MIN(1,2)", 0, 7}, {V, "", 8, 8}, {V, "Cliente", 17, 7}, {kSymbUnset, "", 25, 6}, {kSymbUnset, "", 32, 37},
        {0, "", 68, 1},
    };
    EXPECT_EQ(Scan("cliente ARTICOLO Listino Agente Articolo_ClienteSottogruppo_Eccedente"), expected);
}

}  // namespace
}  // namespace vrn
