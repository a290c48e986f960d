#include "percstr/evaluate.h"

#include <gtest/gtest.h>

#include <charconv>
#include <cstdlib>
#include <string>

#include "percstr/parser.h"
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

TEST(PercStrEvaluate, GrammarBuildsWithoutConflicts) { EXPECT_TRUE(PercStrGrammarProblems().empty()); }

TEST(PercStrEvaluate, ValuesInTheThreeModes) {
    struct Case {
        const char* text;
        const char* modes[3];
    };
    const Case cases[] = {
        {"10", {"0.1", "0.9", "1.1"}}, {"10+5", {"0.15000000000000002", "0.855", "1.1550000000000002"}},
        {"10-5", {"0.05", "0.9450000000000001", "1.045"}}, {"-10", {"-0.1", "1.1", "0.8999999999999999"}},
        {"10+5-2", {"0.13000000000000003", "0.8721", "1.1319000000000001"}},
        {"10-(5+2)", {"0.03", "0.9621", "1.0218999999999998"}},
        {"-(10+5)", {"-0.15000000000000002", "1.145", "0.8449999999999998"}}, {"--5", {"0.05", "0.95", "1.05"}},
        {"5--3", {"0.08", "0.9215", "1.0815000000000001"}},
        {"5+-3", {"0.020000000000000004", "0.9784999999999999", "1.0185"}}, {"(((5)))", {"0.05", "0.95", "1.05"}},
        {"-0", {"-0", "1", "1"}}, {"100", {"1", "0", "2"}},
        {"999.999999", {"9.99999999", "-8.99999999", "10.99999999"}}, {"200", {"2", "-1", "3"}},
        {" 10 +\t5\r\n", {"0.15000000000000002", "0.855", "1.1550000000000002"}},
        {"10\xE8+5", {"0.1", "0.9", "1.1"}},  // a byte from 0x80 up ends the input
        {"", {"0", "1", "1"}},
    };
    for (const Case& c : cases) {
        for (int32_t mode = 0; mode < 3; ++mode) {
            const Evaluated got = Evaluate(c.text, mode);
            EXPECT_EQ(got.result, kPercStrEvaluated) << c.text << " mode " << mode;
            EXPECT_EQ(got.value, c.modes[mode]) << c.text << " mode " << mode;
        }
    }
}

TEST(PercStrEvaluate, NotAPercentageStringGivesTheStartingValue) {
    for (const char* text : {"+5", "1 2", "1,5", "1.", "1234", "1.1234567", "10%", "()", "(", "10+(5", "10+5)",
                             "5+-", "++5", "10+", "-", "5 x"}) {
        for (int32_t mode = 0; mode < 3; ++mode) {
            const Evaluated got = Evaluate(text, mode);
            EXPECT_EQ(got.result, kPercStrNotValid) << text;
            EXPECT_EQ(got.value, mode == 0 ? "0" : "1") << text;
        }
    }
}

TEST(PercStrEvaluate, ModeWords) {
    struct Case {
        int32_t mode;
        const char* value;
    };
    for (const Case& c : {Case{0, "0.1"}, Case{1, "0.9"}, Case{2, "1.1"}, Case{7, "1.1"}, Case{-1, "1.1"}}) {
        EXPECT_EQ(Evaluate("10", c.mode).value, c.value) << c.mode;
        EXPECT_EQ(Evaluate(nullptr, c.mode).value, c.mode == 0 ? "0" : "1") << c.mode;
    }
    EXPECT_EQ(Evaluate(nullptr, 0).result, kPercStrEvaluated);
}

TEST(PercStrParse, RecordsTheTokenAtTheError) {
    struct Case {
        const char* text;
        int32_t position;
        int32_t length;
    };
    for (const Case& c : {Case{"10+", 2, 1}, Case{"10+  ", 4, 1}, Case{"5 x", 2, 1}, Case{"1 234", 2, 3}}) {
        PercStrContext context{0, 0.0, 0, 0, 0};
        ScanBuffer* buffer = PercStrScanner.yy_scan_text(c.text);
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(PercStrParse(&context), kParseSyntaxError) << c.text;
        PercStrScanner.yy_release_buffer(buffer);
        EXPECT_EQ(context.errorCode, -1) << c.text;
        EXPECT_EQ(context.errorPosition, c.position) << c.text;
        EXPECT_EQ(context.errorLength, c.length) << c.text;
    }
}

TEST(PercStrEvaluate, NextTextAfterASyntaxErrorStartsCleanly) {
    EXPECT_EQ(Evaluate("10+5)7", 0).result, kPercStrNotValid);
    EXPECT_EQ(Evaluate("7", 0).value, "0.07");
    EXPECT_EQ(Evaluate("(((", 1).result, kPercStrNotValid);
    EXPECT_EQ(Evaluate("10-5", 1).value, "0.9450000000000001");
}

std::string Nested(int depth, const char* inner) {
    return std::string(static_cast<size_t>(depth), '(') + inner + std::string(static_cast<size_t>(depth), ')');
}

void* NoMemory(size_t) { return nullptr; }

TEST(PercStrEvaluate, NoMemory) {
    PercStrScanner.SetAllocator(NoMemory, std::free);
    testing::internal::CaptureStderr();
    const Evaluated noBuffer = Evaluate("10", 1);
    (void)testing::internal::GetCapturedStderr();
    PercStrScanner.SetAllocator(nullptr, nullptr);
    EXPECT_EQ(noBuffer.result, kPercStrNoBuffer);
    EXPECT_EQ(noBuffer.value, "1");

    ParserMemory::allocate = NoMemory;
    const Evaluated noStack = Evaluate(Nested(250, "5").c_str(), 0);
    ParserMemory::allocate = std::malloc;
    EXPECT_EQ(noStack.result, kPercStrNotValid);
    EXPECT_EQ(noStack.value, "0");
}

double PercStrEvaluateCheck(const char* text) {
    double value = 0;
    EXPECT_EQ(PercStrEvaluate(text, &value, 0), kPercStrEvaluated);
    return value;
}

// The fuzz target checks it against PercStrEvaluate of the normal form.
TEST(PercStrNormalizeEvaluate, NormalisesIntoTwentyBytesFirst) {
    double value = 0;
    EXPECT_EQ(PercStrNormalizeEvaluate("1234+222+333+444+555+666", &value, 0), kPercStrEvaluated);
    EXPECT_EQ(Exact(value), Exact(PercStrEvaluateCheck("123+222+333+444+555")));
}

}  // namespace
}  // namespace vrn
