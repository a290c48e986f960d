// The frame's Windows seams where the system's answer matters: allocation
// failure, the conversions' size contract, dates the system refuses.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "frame/platform.h"

namespace vrn::platform {
namespace {

TEST(HeapWin32, AFailedRequestGivesNullAndBlocksComeCleared) {
    EXPECT_EQ(HeapAllocCleared(SIZE_MAX / 2), nullptr);  // null, not a structured exception
    HeapPtr<void> empty(HeapAllocCleared(0));
    EXPECT_NE(empty, nullptr);
    // A block given back dirty comes out again cleared.
    constexpr size_t kSize = 4096;
    for (int round = 0; round < 3; ++round) {
        HeapPtr<unsigned char> block(static_cast<unsigned char*>(HeapAllocCleared(kSize)));
        ASSERT_NE(block, nullptr);
        size_t dirty = 0;
        for (size_t i = 0; i < kSize; ++i) dirty += block.get()[i] != 0;
        EXPECT_EQ(dirty, 0u) << "round " << round;
        std::memset(block.get(), 0xA5, kSize);
    }
}

TEST(CodePageWin32, SizesAsTheSystemCountsThem) {
    struct Case {
        const char* text;
        int room;    // units or bytes offered; 0 asks for the size
        int result;  // written (or needed) including the terminator; 0 when it doesn't fit
    };
    const Case cases[] = {
        {"abc", 0, 4}, {"abc", 4, 4}, {"abc", 3, 0}, {"", 1, 1}, {"", 0, 1}, {"\x80\xE8", 3, 3}, {nullptr, 4, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text ? c.text : "(null)");
        char16_t wide[8] = {};
        EXPECT_EQ(NarrowToWide(c.text, c.room ? wide : nullptr, c.room), c.result);
        if (c.text == nullptr) continue;
        ASSERT_GT(NarrowToWide(c.text, wide, 8), 0);
        char narrow[8] = {};
        EXPECT_EQ(WideToNarrow(wide, c.room ? narrow : nullptr, c.room), c.result);
        if (c.room > 0 && c.result > 0) {
            EXPECT_STREQ(narrow, c.text);
        }
    }
    char16_t euro[2] = {};
    ASSERT_EQ(NarrowToWide("\x80", euro, 2), 2);
    EXPECT_EQ(euro[0], u'\u20AC');
}

TEST(TimeWin32, RefusedDatesGiveZero) {
    struct Case {
        SystemTime time;  // year, month, dayOfWeek, day, hour, minute, second, ms
        uint64_t units;
    };
    const Case cases[] = {
        {{1601, 1, 0, 1, 0, 0, 0, 0}, 0},
        {{1900, 1, 0, 1, 0, 0, 0, 0}, 94354848000000000ull},
        {{1900, 1, 0, 1, 0, 0, 0, 1}, 94354848000010000ull},
        {{2000, 2, 0, 29, 0, 0, 0, 0}, 125962560000000000ull},
        {{2001, 13, 0, 1, 0, 0, 0, 0}, 0},
        {{2001, 1, 0, 1, 24, 0, 0, 0}, 0},
        {{1600, 12, 0, 31, 0, 0, 0, 0}, 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(SystemTimeToFileTime(c.time), c.units)
            << c.time.year << "-" << c.time.month << "-" << c.time.day << " " << c.time.hour;
    }
}

}  // namespace
}  // namespace vrn::platform
