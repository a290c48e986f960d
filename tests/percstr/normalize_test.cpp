#include "percstr/normalize.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace vrn {
namespace {

struct Normalised {
    std::string text;
    uint32_t length;
    int32_t errors;
};

constexpr size_t kGuard = 8;
constexpr char kGuardByte = '\x5A';

// Runs the normaliser over a buffer of `capacity` bytes followed by guard
// bytes, which must come back untouched; unwritten bytes show as guard letters.
Normalised Normalise(const char* input, uint32_t capacity) {
    std::vector<char> buffer(capacity + kGuard, kGuardByte);
    uint32_t length = capacity;
    const int32_t errors = PercStrNormalizeText(input, buffer.data(), &length);
    for (size_t i = capacity; i < buffer.size(); ++i) EXPECT_EQ(buffer[i], kGuardByte) << "write past " << capacity;
    return {std::string(buffer.data(), strnlen(buffer.data(), capacity)), length, errors};
}

struct Case {
    const char* input;
    const char* output;
    int32_t errors;
    uint32_t capacity = 22;
};

void ExpectCases(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
        const Normalised got = Normalise(c.input, c.capacity);
        EXPECT_EQ(got.text, c.output) << "input \"" << c.input << "\" capacity " << c.capacity;
        EXPECT_EQ(got.length, std::strlen(c.output)) << "input \"" << c.input << "\"";
        EXPECT_EQ(got.errors, c.errors) << "input \"" << c.input << "\"";
    }
}

TEST(PercStrNormalizeText, WellFormedTextsBecomeCanonical) {
    ExpectCases({
        {"10", "10", 0}, {"10,5", "10.5", 0}, {"10 5", "10+5", 0}, {"+10", "10", 0}, {"-10", "-10", 0}, {"007", "7", 0},
        {"\t10\n-5 ", "10-5", 0}, {"000", "0", 0}, {"0+5", "5", 0}, {"5+0.5", "5+0.5", 0}, {"-.5", "-0.5", 0},
        {"1.50", "1.50", 0}, {"1.+2", "1+2", 0}, {"5+", "5", 0}, {"-", "", 0}, {"-0", "", 0}, {"+0", "", 0},
        {"5+.-3", "5+0-3", 0},
    });
}

TEST(PercStrNormalizeText, DefectsAreCountedAndDropped) {
    ExpectCases({
        {"12345678901234567890", "123", 17}, {"12.3456789", "12.345678", 1}, {"1..5", "1.5", 1}, {"1.2.3", "1.2", 2},
        {"abc", "", 3}, {"1a2+3", "1+3", 2}, {"(10+5)", "10+5", 2}, {"10\r5", "10", 2}, {"5\xA0" "5", "5", 2},
        // A sign after a sign is one error, and the later sign wins.
        {"-+5", "+5", 1}, {"+-5", "5", 1}, {"-0+5", "+5", 1}, {"10+0-5", "10-5", 1}, {"1+-+-2", "1-2", 3},
    });
}

TEST(PercStrNormalizeText, CapacityCutsTheTextWithoutCounting) {
    ExpectCases({
        {"111+222+333+444+555+666", "111+222+333+444+555+6", 0}, {"1+2+3", "1+2", 0, 5}, {"123+4", "123", 0, 5},
        {"123.4", "123", 0, 5}, {"1+.5", "1+0", 0, 5}, {"-.5", "-0.5", 0, 5}, {".12345", "0.12", 0, 5},
        // Below 5 bytes, and for the empty text, the output is empty and nothing is counted.
        {"abc", "", 0, 4}, {"1a", "", 0, 1}, {"", "", 0}, {"", "", 0, 5},
    });
    uint32_t length = 22;
    EXPECT_EQ(PercStrNormalizeText("1a", nullptr, &length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(Normalise("1a", 0).errors, 0);  // the guard bytes check that nothing is written
    EXPECT_EQ(Normalise(nullptr, 22).length, 0u);
}

}  // namespace
}  // namespace vrn
