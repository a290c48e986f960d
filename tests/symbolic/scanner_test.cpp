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
        tokens.push_back({code, code == kSymbValue ? PercStrSymbTokenValue.text : "", PercStrSymbErrorPos,
                          PercStrSymbErrorLen});
        if (code <= 0) break;
    }
    PercStrSymbScanner.yy_release_buffer(buffer);
    return tokens;
}

constexpr int V = kSymbValue;

TEST(SymbolicScanner, NumbersKeepTheirTextAndSplitAtTheirLimits) {
    struct Case {
        std::string text;
        std::vector<Token> tokens;
    };
    const Case cases[] = {
        {"1000", {{V, "100", 0, 3}, {V, "0", 3, 1}, {0, "", 3, 1}}},
        {"1.1234567", {{V, "1.123456", 0, 8}, {V, "7", 8, 1}, {0, "", 8, 1}}},
        {".5", {{V, "0.5", 0, 2}, {0, "", 1, 1}}}, {"1.5.5", {{V, "1.5", 0, 3}, {V, "0.5", 3, 2}, {0, "", 4, 1}}},
        {"007.100", {{V, "007.100", 0, 7}, {0, "", 6, 1}}},
        {"1234.5", {{V, "123", 0, 3}, {V, "4.5", 3, 3}, {0, "", 5, 1}}},
        {"10abc", {{V, "10", 0, 2}, {kSymbUnset, "", 2, 3}, {0, "", 4, 1}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Scan(c.text), c.tokens) << c.text;
    }
}

TEST(SymbolicScanner, OperatorsKeywordsAndBytes) {
    struct Case {
        std::string text;
        std::vector<int> codes;
    };
    const Case cases[] = {
        {"<>!=<=>=", {kSymbNe, kSymbNe, kSymbLe, kSymbGe, 0}}, {"< >! =", {'<', '>', kSymbNot, '=', 0}},
        {"not Not NOT", {kSymbNot, kSymbNot, kSymbNot, 0}},
        {"min MAX Iif coalesce", {kSymbMin, kSymbMax, kSymbIif, kSymbCoalesce, 0}},
        {"ISEMPTY empty ISZERO zero", {kSymbIsEmpty, kSymbIsEmpty, kSymbIsZero, kSymbIsZero, 0}},
        {"MINI MIN_ _x NOTE", {kSymbUnset, kSymbUnset, kSymbUnset, kSymbUnset, 0}},
        {"+-|(),", {'+', '-', '|', '(', ')', ',', 0}}, {"\t\r\n 1", {V, 0}}, {"\v\f", {'\v', '\f', 0}},
        {"5\xE8" "5", {V, static_cast<signed char>(0xE8)}}, {"\x80\xFF", {-128}},
    };
    PercStrSymbInitVars(0);
    for (const auto& c : cases) {
        std::vector<int> codes;
        for (const Token& t : Scan(c.text)) codes.push_back(t.code);
        EXPECT_EQ(codes, c.codes) << c.text;
    }
}

TEST(SymbolicScanner, NamesBecomeTheirValuesAtScanTime) {
    PercStrSymbInitVars(1);
    ASSERT_EQ(PercStrSymbSetVarValue("Cliente", "MIN(1,2)"), 0);
    ASSERT_EQ(PercStrSymbSetVarValue("Articolo", ""), 0);
    ASSERT_EQ(PercStrSymbSetVarValue("Listino", "Cliente"), 0);
    const std::vector<Token> expected = {
        {V, "MIN(1,2)", 0, 7},    {V, "", 8, 8},       {V, "Cliente", 17, 7},
        {kSymbUnset, "", 25, 6},  {kSymbUnset, "", 32, 37}, {0, "", 68, 1},
    };
    EXPECT_EQ(Scan("cliente ARTICOLO Listino Agente "
                   "Articolo_ClienteSottogruppo_Eccedente"),
              expected);
}

}  // namespace
}  // namespace vrn
