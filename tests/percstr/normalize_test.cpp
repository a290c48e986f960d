#include "percstr/normalize.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
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

// Runs the normaliser over a buffer of `capacity` bytes followed by guard bytes,
// which must come back untouched.
Normalised Normalise(const char* input, uint32_t capacity) {
    std::vector<char> buffer(capacity + kGuard, kGuardByte);
    uint32_t length = capacity;
    const int32_t errors = PercStrNormalizeText(input, buffer.data(), &length);
    for (size_t i = capacity; i < buffer.size(); ++i) {
        EXPECT_EQ(buffer[i], kGuardByte) << "write past capacity " << capacity << " for \""
                                         << (input ? input : "(null)") << "\"";
    }
    // Unwritten bytes show up as guard letters in the text.
    const std::string text(buffer.data(), strnlen(buffer.data(), capacity));
    return {text, length, errors};
}

struct Case {
    const char* input;
    uint32_t capacity;
    const char* output;
    int32_t errors;
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
        {"10", 22, "10", 0}, {"10+5", 22, "10+5", 0}, {"10,5", 22, "10.5", 0}, {"10 5", 22, "10+5", 0},
        {"+10", 22, "10", 0}, {"-10", 22, "-10", 0}, {"\t10\n-5 ", 22, "10-5", 0}, {"007", 22, "7", 0},
        {"000", 22, "0", 0}, {"0+5", 22, "5", 0}, {"5+0", 22, "5", 0}, {"5+0.5", 22, "5+0.5", 0}, {".5", 22, "0.5", 0},
        {"-.5", 22, "-0.5", 0}, {"5 .5", 22, "5+0.5", 0}, {"1.50", 22, "1.50", 0}, {"1.", 22, "1", 0},
        {"1.+2", 22, "1+2", 0}, {"5+", 22, "5", 0}, {"-", 22, "", 0}, {"-0", 22, "", 0}, {"+0", 22, "", 0},
        {"5+.-3", 22, "5+0-3", 0},
    });
}

TEST(PercStrNormalizeText, DefectsAreCountedAndDropped) {
    ExpectCases({
        {"1234", 22, "123", 1}, {"1234+5", 22, "123+5", 1}, {"12345678901234567890", 22, "123", 17},
        {"12.3456789", 22, "12.345678", 1}, {"1..5", 22, "1.5", 1}, {"1.2.3", 22, "1.2", 2}, {"1,5,5", 22, "1.5", 2},
        {"abc", 22, "", 3}, {"a1", 22, "1", 1}, {"1a2", 22, "1", 2}, {"(10+5)", 22, "10+5", 2}, {"1e2", 22, "1", 2},
        {"10\r5", 22, "10", 2}, {"10\xE8", 22, "10", 1}, {"5\xA0" "5", 22, "5", 2},
    });
}

TEST(PercStrNormalizeText, SignAfterSignIsOneErrorAndTheLaterSignWins) {
    ExpectCases({
        {"--5", 22, "-5", 1}, {"-+5", 22, "+5", 1}, {"+-5", 22, "5", 1}, {"-0+5", 22, "+5", 1},
        {"10+0-5", 22, "10-5", 1}, {"1+-+-2", 22, "1-2", 3},
    });
}

TEST(PercStrNormalizeText, CapacityCutsTheTextWithoutCounting) {
    ExpectCases({
        {"111+222+333+444+555+666", 22, "111+222+333+444+555+6", 0}, {"1+2+3", 5, "1+2", 0}, {"123+4", 5, "123", 0},
        {"123.4", 5, "123", 0}, {"1+.5", 5, "1+0", 0}, {"-.5", 5, "-0.5", 0}, {"1-.5", 5, "1-0", 0},
        {".12345", 5, "0.12", 0},
    });
}

TEST(PercStrNormalizeText, CasesDecidedBeforeTheMachine) {
    // No output buffer, or no room at all: nothing written, length 0.
    uint32_t length = 22;
    EXPECT_EQ(PercStrNormalizeText("1a", nullptr, &length), 0);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(Normalise("1a", 0).errors, 0);  // the guard bytes check that nothing is written

    // Capacities 1 to 4, and a null or empty input: the empty text, no count.
    ExpectCases({{"abc", 1, "", 0}, {"abc", 4, "", 0}, {"1a", 2, "", 0}, {"", 22, "", 0}, {"", 5, "", 0}});
    for (uint32_t capacity : {3u, 22u}) {
        const Normalised got = Normalise(nullptr, capacity);
        EXPECT_EQ(got.text, "");
        EXPECT_EQ(got.length, 0u);
    }
}

TEST(PercStrNormalizeText, ClearsTheWholeOutputBeforeWriting) {
    char out[22];
    std::memset(out, 'x', sizeof out);
    uint32_t length = sizeof out;
    EXPECT_EQ(PercStrNormalizeText("1.", out, &length), 0);
    EXPECT_EQ(length, 1u);
    for (size_t i = 1; i < sizeof out; ++i) EXPECT_EQ(out[i], '\0') << i;
}

// --- Property check over random inputs ------------------------------------

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Signed terms, the first one's sign optional: "0" or up to 3 digits without a
// leading zero, then maybe a point and 1 to 6 decimals.
bool IsCanonical(const std::string& s) {
    size_t i = 0;
    while (i < s.size()) {
        if (s[i] == '+' || s[i] == '-') {
            ++i;
        } else if (i > 0) {
            return false;
        }
        const size_t start = i;
        while (i < s.size() && IsDigit(s[i])) ++i;
        const size_t digits = i - start;
        if (digits == 0 || digits > 3 || (digits > 1 && s[start] == '0')) return false;
        if (i < s.size() && s[i] == '.') {
            const size_t point = ++i;
            while (i < s.size() && IsDigit(s[i])) ++i;
            if (i == point || i - point > 6) return false;
        }
    }
    return true;
}

// Whether a normal form reads back as itself is the fuzz target's to check.
TEST(PercStrNormalizeText, RandomInputsGiveCanonicalTextWithinCapacity) {
    static const char alphabet[] = "0123456789000.,.+-+- \t\n\r%a(\x80\xE8\xFF";
    std::mt19937 random(20240521);
    std::uniform_int_distribution<size_t> pick(0, sizeof alphabet - 2);
    std::uniform_int_distribution<int> size(0, 40);
    std::uniform_int_distribution<uint32_t> capacity(0, 30);
    for (int round = 0; round < 20000; ++round) {
        std::string input;
        for (int n = size(random); n > 0; --n) input += alphabet[pick(random)];
        const uint32_t cap = round % 2 ? 22 : capacity(random);
        const Normalised got = Normalise(input.c_str(), cap);
        SCOPED_TRACE("input \"" + input + "\" capacity " + std::to_string(cap));

        EXPECT_EQ(got.length, got.text.size());
        EXPECT_LE(got.length, cap == 0 ? 0 : cap - 1);
        EXPECT_GE(got.errors, 0);
        if (cap < 5) {
            EXPECT_TRUE(got.text.empty());
            EXPECT_EQ(got.errors, 0);
            continue;
        }
        ASSERT_TRUE(IsCanonical(got.text)) << "\"" << got.text << "\"";
    }
}

}  // namespace
}  // namespace vrn
