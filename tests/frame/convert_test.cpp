#include "frame/convert.h"

#include <gtest/gtest.h>

#include <string>

namespace vrn {
namespace {

struct DateCase {
    platform::SystemTime time;  // year, month, dayOfWeek, day, hour, minute, second, ms
    int32_t days;
    uint32_t ticks;
    int32_t isNull;
};

TEST(SqlDateTime, ConvertsTheTable) {
    const DateCase cases[] = {
        {{0, 0, 0, 0, 12, 30, 0, 0}, 0, 0, 1},  // the time of a NULL date isn't looked at
        {{1900, 1, 0, 1, 0, 0, 0, 0}, 0, 0, 0},
        {{1900, 1, 0, 1, 0, 0, 1, 0}, 0, 300, 0},
        {{1900, 1, 0, 1, 0, 0, 0, 3}, 0, 0, 0},
        {{1900, 1, 0, 1, 0, 0, 0, 4}, 0, 1, 0},
        {{1900, 1, 0, 2, 0, 0, 0, 0}, 1, 0, 0},
        {{1900, 3, 0, 1, 0, 0, 0, 0}, 59, 0, 0},  // 1900 isn't a leap year
        {{2000, 1, 0, 1, 0, 0, 0, 0}, 36524, 0, 0},
        {{2000, 3, 0, 1, 0, 0, 0, 0}, 36584, 0, 0},  // 2000 is one
        {{2000, 1, 0, 1, 12, 0, 0, 0}, 36524, 12960000, 0},
        {{2026, 11, 3, 18, 23, 59, 59, 999}, 46342, 25919999, 0},
    };
    for (const DateCase& c : cases) {
        SqlDateTime result{-7, 7};
        int32_t isNull = -1;
        SystemTimeToSqlDateTime(c.time, &result, &isNull);
        SCOPED_TRACE(std::to_string(c.time.year) + "-" + std::to_string(c.time.month) + "-" +
                     std::to_string(c.time.day));
        EXPECT_EQ(result.days, c.days);
        EXPECT_EQ(result.ticks, c.ticks);
        EXPECT_EQ(isNull, c.isNull);
    }
}

TEST(SqlDateTime, OnlyAllThreeZeroIsNull) {
    const platform::SystemTime partial[] = {{0, 0, 0, 5, 0, 0, 1, 0}, {0, 3, 0, 0, 0, 0, 1, 0}, {7, 0, 0, 0, 0, 0, 1, 0}};
    for (const platform::SystemTime& time : partial) {
        SqlDateTime result{};
        int32_t isNull = -1;
        SystemTimeToSqlDateTime(time, &result, &isNull);
        EXPECT_EQ(isNull, 0);
        EXPECT_EQ(result.ticks, 300u);
    }
}

TEST(SqlDateTime, DateAndDateTimeHelpersAgree) {
    SqlDateTime date{}, dateTime{};
    int32_t dateNull = -1, dateTimeNull = -1;
    DateToSqlDateTime(2026, 11, 18, &date, &dateNull);
    DateTimeToSqlDateTime(2026, 11, 18, 23, 59, 59, 999, &dateTime, &dateTimeNull);
    EXPECT_EQ(date.days, 46342);
    EXPECT_EQ(date.ticks, 0u);
    EXPECT_EQ(dateTime.days, 46342);
    EXPECT_EQ(dateTime.ticks, 25919999u);
    EXPECT_EQ(dateNull, 0);
    EXPECT_EQ(dateTimeNull, 0);
    DateToSqlDateTime(0, 0, 0, &date, &dateNull);
    EXPECT_EQ(dateNull, 1);
}

TEST(FormatBounded, FitsOrGivesTheEmptyText) {
    struct Case {
        size_t size;
        int value;
        int expected;
        const char* text;
    };
    const Case cases[] = {{4, 123, 3, "123"}, {4, 1234, -1, ""}, {5, 1234, 4, "1234"}, {1, 0, -1, ""}};
    for (const Case& c : cases) {
        char buffer[8] = "xxxxxxx";
        EXPECT_EQ(FormatBounded(buffer, c.size, "%d", c.value), c.expected) << c.value;
        EXPECT_STREQ(buffer, c.text) << c.value;
    }
}

TEST(FormatBounded, RefusesNullAndZeroArguments) {
    char buffer[4] = "abc";
    EXPECT_EQ(FormatBounded(nullptr, 4, "%d", 1), -1);
    EXPECT_EQ(FormatBounded(buffer, 0, "%d", 1), -1);
    EXPECT_STREQ(buffer, "abc");  // size 0: not one byte is ours to write
    EXPECT_EQ(FormatBounded(buffer, 4, nullptr), -1);
    EXPECT_STREQ(buffer, "");
}

// ---- Narrow and wide text.

using WidePtr = platform::HeapPtr<char16_t>;
using NarrowPtr = platform::HeapPtr<char>;

TEST(TextConversion, NullGivesNullAndEmptyGivesAnEmptyBlock) {
    EXPECT_EQ(AnsiToWide(nullptr), nullptr);
    EXPECT_EQ(WideToAnsi(nullptr), nullptr);
    WidePtr wide(AnsiToWide(""));
    NarrowPtr narrow(WideToAnsi(u""));
    ASSERT_NE(wide, nullptr);
    ASSERT_NE(narrow, nullptr);
    EXPECT_EQ(wide.get()[0], u'\0');
    EXPECT_EQ(narrow.get()[0], '\0');
}

TEST(TextConversion, EveryByteRoundTrips) {
    for (int byte = 1; byte < 256; ++byte) {
        const char text[] = {'a', static_cast<char>(byte), 'z', '\0'};
        WidePtr wide(AnsiToWide(text));
        ASSERT_NE(wide, nullptr);
        EXPECT_EQ(wide.get()[3], u'\0');
        NarrowPtr back(WideToAnsi(wide.get()));
        ASSERT_NE(back, nullptr);
        EXPECT_STREQ(back.get(), text) << "byte " << byte;
    }
}

TEST(TextConversion, FollowsWindows1252) {
    struct Case {
        unsigned char byte;
        char16_t wide;
    };
    const Case cases[] = {{0x41, u'A'},     {0x80, u'\u20AC'}, {0x81, u'\u0081'}, {0x8D, u'\u008D'},
                          {0x8F, u'\u008F'}, {0x90, u'\u0090'}, {0x92, u'\u2019'}, {0x9D, u'\u009D'},
                          {0x9F, u'\u0178'}, {0xA0, u'\u00A0'}, {0xE8, u'\u00E8'}, {0xFF, u'\u00FF'}};
    for (const Case& c : cases) {
        const char text[] = {static_cast<char>(c.byte), '\0'};
        WidePtr wide(AnsiToWide(text));
        EXPECT_EQ(wide.get()[0], c.wide) << int{c.byte};
    }
}

}  // namespace
}  // namespace vrn
