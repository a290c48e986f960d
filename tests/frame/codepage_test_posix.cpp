// The portable code page keeps no best fit; on Windows the system decides.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "frame/convert.h"

namespace vrn {
namespace {

using NarrowPtr = platform::HeapPtr<char>;

TEST(TextConversion, UnmappableCharactersBecomeTheDefault) {
    // No best fit: U+0100 doesn't become 'A'; a surrogate pair is one character.
    const std::pair<std::u16string, std::string> cases[] = {
        {u"\u0100", "?"}, {u"\u0080x", "?x"}, {u"\u4E2D\u6587", "??"}, {u"a\U0001F600b", "a?b"},
        {u"\xD800z", "?z"}, {u"\u20AC\u00E8", "\x80\xE8"}};
    for (const auto& [wide, narrow] : cases) {
        NarrowPtr result(WideToAnsi(wide.c_str()));
        EXPECT_EQ(std::string(result.get()), narrow);
    }
}

}  // namespace
}  // namespace vrn
