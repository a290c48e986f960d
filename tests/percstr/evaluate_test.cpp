#include "percstr/evaluate.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cstdlib>
#include <string>
#include <vector>

#include "percstr/engine/parser.h"
#include "percstr/percstr_scanner.h"

namespace vrn {
namespace {

// The shortest text that reads back as the same double: equal texts mean
// equal bits (and -0 differs from 0).
std::string Exact(double value) {
    char text[32];
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

struct Evaluated {
    int32_t result;
    std::string value;
};

Evaluated Evaluate(const char* text, int32_t mode) {
    double value = 12345.0;
    const int32_t result = PercStrEvaluate(text, &value, mode);
    return {result, Exact(value)};
}

TEST(LalrBuilder, ReportsConflictsThatNothingSettles) {
    EXPECT_TRUE(PercStrGrammarProblems().empty());
    constexpr lalr::TokenName tokens[] = {{"NUM", 300}};
    const auto problems = [&](std::vector<const char*> productions) {
        return lalr::BuildParseTables({tokens, {}, std::move(productions)}).problems;
    };
    EXPECT_NE(problems({"e: e '+' e", "e: NUM"}).at(0).find("shift/reduce"), std::string::npos);
    EXPECT_NE(problems({"s: a", "s: b", "a: NUM", "b: NUM"}).at(0).find("reduce/reduce"), std::string::npos);
    EXPECT_FALSE(problems({"e: e PLUS e"}).empty());
}

// Every mode word but 0 and 1 acts as mode 2.
constexpr int32_t kModeWords[] = {0, 1, 2, 7, -1};

TEST(PercStrEvaluate, ValuesInTheThreeModes) {
    struct Case {
        const char* text;
        const char* modes[3];
    };
    const Case cases[] = {
        {"-10+5", {"-0.05", "1.045", "0.945"}},
        {"10-5-2", {"0.030000000000000002", "0.9639000000000001", "1.0241"}},
        {"10-(5+2)", {"0.03", "0.9621", "1.0218999999999998"}},
        {"-(10+5)", {"-0.15000000000000002", "1.145", "0.8449999999999998"}},
        {"--5", {"0.05", "0.95", "1.05"}},
        {"5+-3", {"0.020000000000000004", "0.9784999999999999", "1.0185"}},
        {"-0", {"-0", "1", "1"}},
        {"999.999999", {"9.99999999", "-8.99999999", "10.99999999"}},
        {"10\xE8+5", {"0.1", "0.9", "1.1"}},  // a byte from 0x80 up ends the input
        {"", {"0", "1", "1"}},
    };
    for (const Case& c : cases) {
        for (int32_t mode : kModeWords) {
            const Evaluated got = Evaluate(c.text, mode);
            EXPECT_EQ(got.result, kPercStrEvaluated) << c.text << " mode " << mode;
            EXPECT_EQ(got.value, c.modes[mode == 0 || mode == 1 ? mode : 2]) << c.text << " mode " << mode;
        }
    }
    for (int32_t mode : kModeWords) EXPECT_EQ(Evaluate(nullptr, mode).value, mode == 0 ? "0" : "1");
}

// Each refusal gives the starting value, and leaves nothing for the next text.
TEST(PercStrEvaluate, NotAPercentageStringGivesTheStartingValue) {
    for (const char* text : {"+5", "1 2", "1.", "1234", "10%", "()", "10+(5", "10+5)7", "5+-", "-"}) {
        for (int32_t mode : {0, 1, 2}) {
            const Evaluated got = Evaluate(text, mode);
            EXPECT_EQ(got.result, kPercStrNotValid) << text;
            EXPECT_EQ(got.value, mode == 0 ? "0" : "1") << text;
            EXPECT_EQ(Evaluate("7", 0).value, "0.07") << "after " << text;
        }
    }
}

TEST(PercStrEvaluateAt, TellsTheTokenAtTheError) {
    const struct {
        const char* text;
        int32_t position, length;
    } cases[] = {{"10+", 2, 1}, {"10+  ", 4, 1}, {"1 234", 2, 3}, {"10", 0, 0}};
    for (const auto& c : cases) {
        double value = 0;
        int32_t position = -1, length = -1;
        (void)PercStrEvaluateAt(c.text, &value, 0, &position, &length);
        EXPECT_EQ(std::make_pair(position, length), std::make_pair(c.position, c.length)) << c.text;
    }
}

int blocksLeft = 0;
void* FailingAllocate(size_t bytes) { return blocksLeft-- > 0 ? std::malloc(bytes) : nullptr; }

TEST(PercStrEvaluate, NoScanBuffer) {
    PercStrScanner.SetAllocator(FailingAllocate, std::free);
    blocksLeft = 0;
    testing::internal::CaptureStderr();
    const Evaluated got = Evaluate("10", 1);
    (void)testing::internal::GetCapturedStderr();
    PercStrScanner.SetAllocator(nullptr, nullptr);
    EXPECT_EQ(got.result, kPercStrNoBuffer);
    EXPECT_EQ(got.value, "1");
}

// Stack entries: state 0, one per '(', the number and the first ')'. Index
// 199 is the first past the frame, and 9999 the one never written.
TEST(PercStrParse, StacksGrowInOneBlockToTenThousandEntries) {
    const struct {
        int depth, blocks;
        int32_t result;
    } cases[] = {{196, 0, kPercStrEvaluated}, {197, 0, kPercStrNotValid}, {1000, 2, kPercStrNotValid},
                 {9996, 6, kPercStrEvaluated}, {9997, 100, kPercStrNotValid}};
    for (const auto& c : cases) {
        const std::string text = std::string(c.depth, '(') + "1" + std::string(c.depth, ')');
        blocksLeft = c.blocks;
        ParserMemory::allocate = FailingAllocate;
        const Evaluated got = Evaluate(text.c_str(), 0);
        ParserMemory::allocate = std::malloc;
        EXPECT_EQ(got.result, c.result) << c.depth;
        EXPECT_EQ(got.value, c.result == kPercStrEvaluated ? "0.01" : "0") << c.depth;
    }
}

}  // namespace
}  // namespace vrn
