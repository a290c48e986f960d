#include "frame/convert.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <tuple>

namespace vrn {
namespace {

TEST(SqlDateTime, ConvertsTheTable) {
    struct Case {
        platform::SystemTime time;  // year, month, dayOfWeek, day, hour, minute, second, ms
        int32_t days;               // -1: no meaningful count before 1900
        uint32_t ticks;
        int32_t isNull;
    };
    const Case cases[] = {
        {{0, 0, 0, 0, 12, 30, 0, 0}, 0, 0, 1},  // the time of a NULL date isn't looked at
        {{0, 3, 0, 0, 0, 0, 1, 0}, -1, 300, 0},  // only all three zero is NULL
        {{7, 0, 0, 0, 0, 0, 1, 0}, -1, 300, 0},
        {{0, 0, 0, 5, 0, 0, 1, 0}, -1, 300, 0},
        {{1900, 1, 0, 1, 0, 0, 0, 3}, 0, 0, 0},
        {{1900, 1, 0, 1, 0, 0, 0, 4}, 0, 1, 0},
        {{1900, 1, 0, 2, 0, 0, 0, 0}, 1, 0, 0},
        {{1900, 3, 0, 1, 0, 0, 0, 0}, 59, 0, 0},  // 1900 isn't a leap year
        {{2000, 3, 0, 1, 0, 0, 0, 0}, 36584, 0, 0},  // 2000 is one
        {{2026, 11, 3, 18, 23, 59, 59, 999}, 46342, 25919999, 0},
    };
    for (const Case& c : cases) {
        SqlDateTime result{-7, 7};
        int32_t isNull = -1;
        SystemTimeToSqlDateTime(c.time, &result, &isNull);
        EXPECT_EQ(std::make_tuple(c.days >= 0 ? result.days : -1, result.ticks, isNull),
                  std::make_tuple(c.days, c.ticks, c.isNull))
            << c.time.year << "-" << c.time.month << "-" << c.time.day;
    }
    SqlDateTime date{};
    int32_t dateNull = -1;
    DateToSqlDateTime(2026, 11, 18, &date, &dateNull);
    EXPECT_EQ(std::make_tuple(date.days, date.ticks, dateNull), std::make_tuple(46342, 0u, 0));
}

TEST(FormatBounded, FitsOrGivesTheEmptyText) {
    const struct {
        size_t size;
        const char* format;
        int expected;
        const char* text;
    } cases[] = {
        {4, "%d", 3, "123"}, {3, "%d", -1, ""}, {0, "%d", -1, "xxxxxxx"},  // size 0: no byte is ours to write
        {4, nullptr, -1, ""},
    };
    for (const auto& c : cases) {
        char buffer[8] = "xxxxxxx";
        EXPECT_EQ(FormatBounded(buffer, c.size, c.format, 123), c.expected) << c.size;
        EXPECT_STREQ(buffer, c.text) << c.size;
    }
    EXPECT_EQ(FormatBounded(nullptr, 4, "%d", 1), -1);
}

using WidePtr = platform::HeapPtr<char16_t>;
using NarrowPtr = platform::HeapPtr<char>;

// Windows-1252: Latin-1 but for 0x80-0x9F, whose five unassigned bytes pass through.
TEST(TextConversion, NullEmptyAndEveryByteThereAndBack) {
    const std::map<int, char16_t> cp1252 = {{0x80, u'\u20AC'}, {0x81, u'\u0081'}, {0x92, u'\u2019'}, {0x9D, u'\u009D'},
                                            {0x9F, u'\u0178'}};
    EXPECT_EQ(AnsiToWide(nullptr), nullptr);
    EXPECT_EQ(WideToAnsi(nullptr), nullptr);
    EXPECT_EQ(WidePtr(AnsiToWide("")).get()[0], u'\0');
    EXPECT_EQ(NarrowPtr(WideToAnsi(u"")).get()[0], '\0');
    for (int byte = 1; byte < 256; ++byte) {
        const char text[] = {'a', static_cast<char>(byte), 'z', '\0'};
        WidePtr wide(AnsiToWide(text));
        ASSERT_NE(wide, nullptr);
        EXPECT_EQ(wide.get()[3], u'\0');
        if (cp1252.count(byte) || byte < 0x80 || byte >= 0xA0) {
            EXPECT_EQ(wide.get()[1], cp1252.count(byte) ? cp1252.at(byte) : static_cast<char16_t>(byte)) << byte;
        }
        NarrowPtr back(WideToAnsi(wide.get()));
        ASSERT_NE(back, nullptr);
        EXPECT_STREQ(back.get(), text) << "byte " << byte;
    }
}

}  // namespace
}  // namespace vrn
