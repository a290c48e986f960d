#include "formula/formula_scanner.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vrn {
namespace {

constexpr int32_t I = kTokenInteger, W = kTokenBadWord, LI = kTokenLongInteger, LD = kTokenLongDecimal,
                  RC = kTokenRoundCommercial, RD = kTokenRoundDown, RU = kTokenRoundUp;
constexpr double kUntouched = -7.5;  // what a token without value leaves in the value variable

struct Token {
    int32_t code;
    int32_t first, last;
    double value = kUntouched;
    bool operator==(const Token&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Token& t) {
    return out << "{" << t.code << " (" << t.first << "," << t.last << ") " << t.value << "}";
}

// Every token up to and including the end (code 0), with its location.
std::vector<Token> Tokens(ScanBuffer* buffer) {
    std::vector<Token> tokens;
    TokenLocation location{1, 0, 1, 0};
    for (int guard = 0; guard < 100; ++guard) {
        double value = kUntouched;
        const int32_t code = PFormulaNextToken(&value, &location, nullptr);
        tokens.push_back({code, location.firstColumn, location.lastColumn, value});
        if (code == 0) break;
    }
    PFormulaScanner.yy_release_buffer(buffer);
    return tokens;
}

// How the parser reports what these tokens lead to is in its tests.
TEST(PFormulaScanner, CutsFormulasIntoTokensWithTheirColumns) {
    const std::pair<std::string, std::vector<Token>> rows[] = {
        {"10 +5%", {{I, 0, 2, 10}, {'+', 3, 4}, {I, 4, 5, 5}, {'%', 5, 6}, {0, 5, 6}}},
        {"00000001", {{I, 0, 8, 1}, {0, 0, 8}}},
        {"000000001", {{LI, 0, 9}, {0, 0, 9}}},
        {"123456789.1", {{LD, 0, 11}, {0, 0, 11}}},
        {"aC(-2)", {{RC, 0, 2}, {'(', 2, 3}, {'-', 3, 4}, {I, 4, 5, 2}, {')', 5, 6}, {0, 5, 6}}},
        {"ac aE Ad", {{RC, 0, 2}, {RU, 3, 5}, {RD, 6, 8}, {0, 6, 8}}},
        {"ACE", {{RC, 0, 2}, {'E', 2, 3}, {0, 2, 3}}},
        {"1,5", {{I, 0, 1, 1}, {',', 1, 2}, {I, 2, 3, 5}, {0, 2, 3}}},
        // A bad word: a lead byte, a letter, then letters or digits.
        {"XY", {{'X', 0, 1}, {'Y', 1, 2}, {0, 1, 2}}},
        {"AB1", {{'A', 0, 1}, {'B', 1, 2}, {I, 2, 3, 1}, {0, 2, 3}}},
        {"55AC(2)", {{I, 0, 2, 55}, {RC, 2, 4}, {'(', 4, 5}, {I, 5, 6, 2}, {')', 6, 7}, {0, 6, 7}}},
        {"5\nAC", {{I, 0, 1, 5}, {W, 1, 4}, {0, 1, 4}}},
        {"5\r\nAC", {{I, 0, 1, 5}, {RC, 3, 5}, {0, 3, 5}}},
        {"-AC", {{W, 0, 3}, {0, 0, 3}}},
        {"1e5", {{W, 0, 3}, {0, 0, 3}}},
        {"15e5", {{I, 0, 2, 15}, {'e', 2, 3}, {I, 3, 4, 5}, {0, 3, 4}}},
        // Lead bytes: none of blank, TAB, ! to +, / or A; every other byte, even a NUL.
        {"!ab", {{'!', 0, 1}, {'a', 1, 2}, {'b', 2, 3}, {0, 2, 3}}},
        {"+ab /ab", {{'+', 0, 1}, {'a', 1, 2}, {'b', 2, 3}, {'/', 4, 5}, {'a', 5, 6}, {'b', 6, 7}, {0, 6, 7}}},
        {",ab", {{W, 0, 3}, {0, 0, 3}}},
        {"\xE8xy", {{W, 0, 3}, {0, 0, 3}}},
        {std::string("\0ab", 3), {{W, 0, 3}, {0, 0, 3}}},
    };
    for (const auto& [text, tokens] : rows) {
        EXPECT_EQ(Tokens(PFormulaScanner.yy_scan_bytes(text.data(), static_cast<uint32_t>(text.size()))), tokens) << text;
    }
}

}  // namespace
}  // namespace vrn
