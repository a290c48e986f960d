#include "percstr/scanner.h"

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

std::vector<Match> MatchAll(ScannerEngine& scanner) {
    std::vector<Match> matches;
    for (int rule; (rule = scanner.NextMatch()) != kEndOfInput;) {
        EXPECT_EQ(std::strlen(scanner.TokenText()), scanner.TokenLength()) << "token text must end in a NUL";
        matches.push_back({rule, std::string(scanner.TokenText(), scanner.TokenLength())});
    }
    return matches;
}

TEST(ScanAutomaton, BuildsGoodTablesAndReportsBadPatterns) {
    EXPECT_TRUE(TestAutomaton().Problems().empty());
    for (const char* pattern : {"", "[a-", "a{3,1}", "a{", "\\x4", "[z-a]"}) {
        const ScanRule rules[] = {{pattern}};
        EXPECT_FALSE(ScanAutomaton(rules).Problems().empty()) << pattern;
    }
}

TEST(ScannerEngine, LongestMatchFirstRuleAndBackingUp) {
    struct Case {
        const char* text;
        std::vector<Match> matches;
    };
    const Case cases[] = {
        {"if", {{3, "if"}}},                    // same length: the earlier rule
        {"IF", {{3, "IF"}}},                    // case folded
        {"iffy", {{4, "iffy"}}},                // the longer match wins
        {"12.345", {{2, "12.34"}, {1, "5"}}},   // bounded repetition stops
        {"12.x", {{1, "12"}, {5, ".x"}}},       // backs up to the last accepting position
        {"+ -x", {{5, "+"}, {6, " "}, {5, "-x"}}},
        {"\xE8", {{5, "\xE8"}}},
    };
    for (const Case& c : cases) {
        ScanBuffer* buffer = testScanner.yy_scan_text(c.text);
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(MatchAll(testScanner), c.matches) << c.text;
        EXPECT_EQ(testScanner.NextMatch(), kEndOfInput) << "the end repeats";
        testScanner.yy_release_buffer(buffer);
    }
}

TEST(ScannerEngine, NulInsideTheInputIsAnOrdinaryByte) {
    ScanBuffer* buffer = testScanner.yy_scan_bytes("ab\0\0cd", 6);
    ASSERT_NE(buffer, nullptr);
    const std::vector<Match> expected = {{4, "ab"}, {5, std::string(1, '\0')}, {5, std::string(1, '\0')}, {4, "cd"}};
    std::vector<Match> matches;
    for (int rule; (rule = testScanner.NextMatch()) != kEndOfInput;) {
        matches.push_back({rule, std::string(testScanner.TokenText(), testScanner.TokenLength())});
    }
    EXPECT_EQ(matches, expected);
    // The end-of-input match covers the first of the two final NULs.
    EXPECT_EQ(testScanner.TokenText(), buffer->characters + 6);
    EXPECT_EQ(testScanner.TokenLength(), 1u);
    EXPECT_EQ(buffer->status, kBufferEndSeen);
    testScanner.yy_release_buffer(buffer);
}

TEST(ScannerEngine, ScanBufferRefusesBlocksWithoutTwoFinalNuls) {
    char good[] = {'1', '2', 0, 0};
    ScanBuffer* current = testScanner.yy_scan_buffer(good, sizeof good);
    ASSERT_NE(current, nullptr);
    char one[] = {0};
    char noFinalNul[] = {'1', 0, 'x'};
    char oneFinalNul[] = {'1', 'x', 0};
    EXPECT_EQ(testScanner.yy_scan_buffer(one, 1), nullptr);
    EXPECT_EQ(testScanner.yy_scan_buffer(noFinalNul, sizeof noFinalNul), nullptr);
    EXPECT_EQ(testScanner.yy_scan_buffer(oneFinalNul, sizeof oneFinalNul), nullptr);
    EXPECT_EQ(testScanner.CurrentBuffer(), current);
    testScanner.yy_release_buffer(nullptr);
    EXPECT_EQ(testScanner.CurrentBuffer(), current);

    // Scanned in place, and the block is whole again once the scan is done.
    EXPECT_EQ(current->characters, good);
    EXPECT_EQ(current->capacity, 2u);
    EXPECT_EQ(current->owned, 0);
    EXPECT_EQ(MatchAll(testScanner), (std::vector<Match>{{1, "12"}}));
    EXPECT_EQ(std::memcmp(good, "12\0\0", 4), 0);
    testScanner.yy_release_buffer(current);
    EXPECT_EQ(testScanner.CurrentBuffer(), nullptr);
}

TEST(ScannerEngine, SwitchingBuffersKeepsEachPosition) {
    ScanBuffer* first = testScanner.yy_scan_text("ab cd");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->owned, 1);
    EXPECT_EQ(first->atLineStart, 1);
    EXPECT_EQ(first->characterCount, 5u);
    EXPECT_EQ(testScanner.NextMatch(), 4);
    ScanBuffer* second = testScanner.yy_scan_text("7");
    ASSERT_NE(second, nullptr);
    EXPECT_STREQ(first->characters, "ab cd") << "the held byte goes back when the buffer is left";
    EXPECT_EQ(MatchAll(testScanner), (std::vector<Match>{{1, "7"}}));
    testScanner.yy_switch_to_buffer(first);
    EXPECT_EQ(MatchAll(testScanner), (std::vector<Match>{{6, " "}, {4, "cd"}}));
    testScanner.yy_release_buffer(second);
    testScanner.yy_release_buffer(first);
}

int allocationsLeft = 0;
void* FailingAllocate(size_t bytes) { return allocationsLeft-- > 0 ? std::malloc(bytes) : nullptr; }

TEST(ScannerEngine, AllocationFailuresGiveNoBufferAndLeakNothing) {
    testScanner.yy_release_buffer(testScanner.yy_scan_text("kept"));  // blocks kept don't hide a failing heap
    testScanner.SetAllocator(FailingAllocate, std::free);
    for (int succeeding : {0, 1}) {  // the copy fails; the record fails
        allocationsLeft = succeeding;
        testing::internal::CaptureStderr();
        EXPECT_EQ(testScanner.yy_scan_text("12"), nullptr);
        const char* expected = succeeding == 0 ? "out of dynamic memory in yy_scan_bytes()\n"
                                               : "out of dynamic memory in yy_scan_buffer()\n";
        EXPECT_EQ(testing::internal::GetCapturedStderr(), expected);
    }
    testScanner.SetAllocator(nullptr, nullptr);
}

long blocksTaken = 0;
void* CountingAllocate(size_t bytes) {
    ++blocksTaken;
    return std::malloc(bytes);
}

TEST(ScannerEngine, ReleasedBlocksServeTheNextTexts) {
    testScanner.SetAllocator(CountingAllocate, std::free);
    struct Case {
        std::string text;
        long blocks;  // taken from the heap for it
    };
    const Case cases[] = {
        {"12 ab", 2},                 // nothing kept yet: the copy and the record
        {"if 7", 0},                  // both kept blocks serve again
        {std::string(300, 'a'), 1},   // a longer copy needs a block of its own
        {"", 0},                      // the longer block serves a short text
        {std::string(200, '1'), 0},
    };
    for (const Case& c : cases) {
        blocksTaken = 0;
        ScanBuffer* buffer = testScanner.yy_scan_bytes(c.text.data(), static_cast<uint32_t>(c.text.size()));
        ASSERT_NE(buffer, nullptr);
        std::string scanned;
        for (const Match& match : MatchAll(testScanner)) scanned += match.text;
        testScanner.yy_release_buffer(buffer);
        EXPECT_EQ(scanned, c.text) << "nothing of an earlier text shows through";
        EXPECT_EQ(blocksTaken, c.blocks) << c.text.size();
    }
    testScanner.SetAllocator(nullptr, nullptr);
}

// ---- Scanner 1.

struct Token {
    int32_t code;
    double value;  // numbers only
    int32_t first;
    int32_t last;
    bool operator==(const Token&) const = default;
};

std::vector<Token> Tokens(const std::string& text) {
    ScanBuffer* buffer = PercStrScanner.yy_scan_bytes(text.data(), static_cast<uint32_t>(text.size()));
    EXPECT_NE(buffer, nullptr);
    std::vector<Token> tokens;
    TokenLocation location{1, 0, 1, 0};
    for (;;) {
        double value = -1;
        const int32_t code = PercStrNextToken(&value, &location, nullptr);
        tokens.push_back({code, code == kPercStrNumber ? value : 0.0, location.firstColumn, location.lastColumn});
        if (code == 0 || tokens.size() > 20) break;
    }
    PercStrScanner.yy_release_buffer(buffer);
    return tokens;
}

constexpr int32_t N = kPercStrNumber;

TEST(PercStrScanner, TokensAndColumns) {
    struct Case {
        std::string text;
        std::vector<Token> tokens;
    };
    const Case cases[] = {
        {"10+5", {{N, 10.0, 0, 2}, {'+', 0, 2, 3}, {N, 5.0, 3, 4}, {0, 0, 3, 4}}},
        {"10 +5", {{N, 10.0, 0, 2}, {'+', 0, 3, 4}, {N, 5.0, 4, 5}, {0, 0, 4, 5}}},
        {"123.456789", {{N, 123.456789, 0, 10}, {0, 0, 0, 10}}},
        {"1234567.1234567",
         {{N, 123, 0, 3}, {N, 456, 3, 6}, {N, 7.123456, 6, 14}, {N, 7, 14, 15}, {0, 0, 14, 15}}},
        {"", {{0, 0, 0, 0}}},
        {" \t\r\n", {{0, 0, 3, 4}}},
        {"10\xE8+5", {{N, 10.0, 0, 2}, {-24, 0, 2, 3}, {'+', 0, 3, 4}, {N, 5, 4, 5}, {0, 0, 4, 5}}},
        {"12.+3", {{N, 12, 0, 2}, {'.', 0, 2, 3}, {'+', 0, 3, 4}, {N, 3, 4, 5}, {0, 0, 4, 5}}},
        {"1.5.5", {{N, 1.5, 0, 3}, {N, 0.5, 3, 5}, {0, 0, 3, 5}}},
        {".", {{'.', 0, 0, 1}, {0, 0, 0, 1}}},
        {"1,5", {{N, 1, 0, 1}, {',', 0, 1, 2}, {N, 5, 2, 3}, {0, 0, 2, 3}}},
        {"0.1", {{N, 0.1, 0, 3}, {0, 0, 0, 3}}},
        {std::string("1\0+", 3), {{N, 1, 0, 1}, {0, 0, 1, 2}}},  // a NUL of the input: code 0
    };
    for (const Case& c : cases) EXPECT_EQ(Tokens(c.text), c.tokens) << c.text;
}

TEST(PercStrScanner, NumbersAreTheNearestDoubleLikeStrtod) {
    std::mt19937 random(20261123);
    for (int i = 0; i < 20000; ++i) {
        std::string text = std::to_string(random() % 1000).substr(0, 1 + random() % 3);
        if (random() % 4 != 0) {
            if (random() % 8 == 0) text.clear();
            text += '.';
            const uint32_t decimals = 1 + random() % 6;
            for (uint32_t d = 0; d < decimals; ++d) text += static_cast<char>('0' + random() % 10);
        }
        const std::vector<Token> tokens = Tokens(text);
        ASSERT_EQ(tokens.size(), 2u) << text;
        ASSERT_EQ(tokens[0].value, std::strtod(text.c_str(), nullptr)) << text;
    }
}

}  // namespace
}  // namespace vrn
