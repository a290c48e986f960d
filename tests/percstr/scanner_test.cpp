#include "percstr/engine/scanner.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "percstr/percstr_scanner.h"

namespace vrn {
namespace {

// ---- The engine, over a small rule table of its own.

constexpr ScanRule kTestRules[] = {
    {"[0-9]+"},              // 1
    {"[0-9]+\\.[0-9]{1,2}"},  // 2
    {"if", true},            // 3
    {"[a-z]+"},              // 4
    {"[^ a-z0-9]x?"},        // 5
    {"."},                   // 6
};

const ScanAutomaton& TestAutomaton() {
    static const ScanAutomaton automaton(kTestRules);
    return automaton;
}

ScannerEngine testScanner(TestAutomaton);

struct Match {
    int rule;
    std::string text;
    bool operator==(const Match&) const = default;
};

// The matches of the current buffer, up to the end, which then repeats.
std::vector<Match> MatchAll() {
    std::vector<Match> matches;
    for (int rule; (rule = testScanner.NextMatch()) != kEndOfInput;) {
        matches.push_back({rule, std::string(testScanner.TokenText(), testScanner.TokenLength())});
        EXPECT_EQ(testScanner.TokenText()[testScanner.TokenLength()], '\0') << "the token text ends in a NUL";
    }
    EXPECT_EQ(testScanner.NextMatch(), kEndOfInput);
    return matches;
}

std::vector<Match> Scan(const std::string& text) {
    ScanBuffer* buffer = testScanner.yy_scan_bytes(text.data(), static_cast<uint32_t>(text.size()));
    EXPECT_NE(buffer, nullptr);
    std::vector<Match> matches = MatchAll();
    testScanner.yy_release_buffer(buffer);
    return matches;
}

TEST(ScanAutomaton, BadPatternsAreReported) {
    EXPECT_TRUE(TestAutomaton().Problems().empty());
    for (const char* pattern : {"", "[a-", "a{3,1}", "a{", "\\x4", "[z-a]"}) {
        const ScanRule rules[] = {{pattern}};
        EXPECT_FALSE(ScanAutomaton(rules).Problems().empty()) << pattern;
    }
}

TEST(ScannerEngine, BuffersOverBlocksAndSwitching) {
    char good[] = {'1', '2', ' ', 'a', 0, 0};
    ScanBuffer* inPlace = testScanner.yy_scan_buffer(good, sizeof good);
    ASSERT_NE(inPlace, nullptr);
    EXPECT_EQ(inPlace->characters, good);
    char one[] = {0}, noFinalNul[] = {'1', 0, 'x'}, oneFinalNul[] = {'1', 'x', 0};
    EXPECT_EQ(testScanner.yy_scan_buffer(one, 1), nullptr);
    EXPECT_EQ(testScanner.yy_scan_buffer(noFinalNul, sizeof noFinalNul), nullptr);
    EXPECT_EQ(testScanner.yy_scan_buffer(oneFinalNul, sizeof oneFinalNul), nullptr);
    testScanner.yy_release_buffer(nullptr);
    EXPECT_EQ(testScanner.CurrentBuffer(), inPlace) << "a refused block leaves the current buffer";

    // A new buffer saves where the old one stood, its held byte put back.
    EXPECT_EQ(testScanner.NextMatch(), 1);
    ScanBuffer* copy = testScanner.yy_scan_text("7");
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(good, "12 a");
    EXPECT_EQ(MatchAll(), (std::vector<Match>{{1, "7"}}));
    testScanner.yy_switch_to_buffer(inPlace);
    EXPECT_EQ(MatchAll(), (std::vector<Match>{{6, " "}, {4, "a"}}));
    testScanner.yy_release_buffer(copy);
    testScanner.yy_release_buffer(inPlace);
    EXPECT_EQ(testScanner.CurrentBuffer(), nullptr);
}

int allocationsLeft = 0;
long blocksTaken = 0;
void* CountingAllocate(size_t bytes) {
    ++blocksTaken;
    return allocationsLeft-- > 0 ? std::malloc(bytes) : nullptr;
}

TEST(ScannerEngine, AllocationFailuresGiveNoBufferAndAFatalText) {
    testScanner.yy_release_buffer(testScanner.yy_scan_text("kept"));  // blocks kept don't hide a failing heap
    testScanner.SetAllocator(CountingAllocate, std::free);
    for (int succeeding : {0, 1}) {  // the copy fails; the record fails
        allocationsLeft = succeeding;
        testing::internal::CaptureStderr();
        EXPECT_EQ(testScanner.yy_scan_text("12"), nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), succeeding == 0 ? "out of dynamic memory in yy_scan_bytes()\n"
                                                                          : "out of dynamic memory in yy_scan_buffer()\n");
    }
    testScanner.SetAllocator(nullptr, nullptr);
}

TEST(ScannerEngine, ReleasedBlocksServeTheNextTexts) {
    testScanner.SetAllocator(CountingAllocate, std::free);
    allocationsLeft = 1000;
    const std::pair<std::string, long> cases[] = {
        {"12 ab", 2},                // nothing kept yet: the copy and the record
        {"if 7", 0},                 // both kept blocks serve again
        {std::string(300, 'a'), 1},  // a longer copy needs a block of its own
        {"", 0},                     // the longer block serves a short text
    };
    for (const auto& [text, blocks] : cases) {
        blocksTaken = 0;
        std::string scanned;
        for (const Match& match : Scan(text)) scanned += match.text;
        EXPECT_EQ(scanned, text) << "nothing of an earlier text shows through";
        EXPECT_EQ(blocksTaken, blocks) << text.size();
    }
    testScanner.SetAllocator(nullptr, nullptr);
}

// ---- Scanner 1.

struct Token {
    int32_t code;
    double value;  // numbers only
    int32_t first, last;
    bool operator==(const Token&) const = default;
};

std::vector<Token> Tokens(const std::string& text) {
    ScanBuffer* buffer = PercStrScanner.yy_scan_bytes(text.data(), static_cast<uint32_t>(text.size()));
    EXPECT_NE(buffer, nullptr);
    std::vector<Token> tokens;
    TokenLocation location{1, 0, 1, 0};
    for (int32_t code = 1; code != 0 && tokens.size() < 20;) {
        double value = -1;
        code = PercStrNextToken(&value, &location, nullptr);
        tokens.push_back({code, code == kPercStrNumber ? value : 0.0, location.firstColumn, location.lastColumn});
    }
    PercStrScanner.yy_release_buffer(buffer);
    return tokens;
}

constexpr int32_t N = kPercStrNumber;

TEST(PercStrScanner, TokensAndColumns) {
    const std::pair<std::string, std::vector<Token>> cases[] = {
        {"10 +5", {{N, 10.0, 0, 2}, {'+', 0, 3, 4}, {N, 5.0, 4, 5}, {0, 0, 4, 5}}},
        {"123.456789", {{N, 123.456789, 0, 10}, {0, 0, 0, 10}}},
        {"1234567.1234567", {{N, 123, 0, 3}, {N, 456, 3, 6}, {N, 7.123456, 6, 14}, {N, 7, 14, 15}, {0, 0, 14, 15}}},
        {" \t\r\n", {{0, 0, 3, 4}}},
        {"10\xE8+5", {{N, 10.0, 0, 2}, {-24, 0, 2, 3}, {'+', 0, 3, 4}, {N, 5, 4, 5}, {0, 0, 4, 5}}},
        {"12.+3", {{N, 12, 0, 2}, {'.', 0, 2, 3}, {'+', 0, 3, 4}, {N, 3, 4, 5}, {0, 0, 4, 5}}},
        {"1.5.5", {{N, 1.5, 0, 3}, {N, 0.5, 3, 5}, {0, 0, 3, 5}}},
        {std::string("1\0+", 3), {{N, 1, 0, 1}, {0, 0, 1, 2}}},  // a NUL of the input: code 0
    };
    for (const auto& [text, tokens] : cases) EXPECT_EQ(Tokens(text), tokens) << text;
}

TEST(PercStrScanner, NumbersAreTheNearestDoubleLikeStrtod) {
    std::mt19937 random(20261123);
    for (int i = 0; i < 20000; ++i) {
        std::string text = random() % 8 == 0 ? "" : std::to_string(random() % 1000).substr(0, 1 + random() % 3);
        if (text.empty() || random() % 4 != 0) {
            text += '.';
            for (uint32_t d = 1 + random() % 6; d > 0; --d) text += static_cast<char>('0' + random() % 10);
        }
        const std::vector<Token> tokens = Tokens(text);
        ASSERT_EQ(tokens.size(), 2u) << text;
        ASSERT_EQ(tokens[0].value, std::strtod(text.c_str(), nullptr)) << text;
    }
}

}  // namespace
}  // namespace vrn
