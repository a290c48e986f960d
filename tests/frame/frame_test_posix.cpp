// Where the portable frame differs from the system's: no best fit in the code
// page, the C locale's point whatever the locale, locks that outlive a close.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <utility>

#include <unistd.h>

#include "frame/convert.h"
#include "frame/platform.h"

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

// A locale with a decimal comma, made in a private folder when the system has none.
bool SetCommaLocale(const std::filesystem::path& folder) {
    if (std::setlocale(LC_ALL, "it_IT.UTF-8") != nullptr) return true;
    std::error_code failed;
    const std::string command = "localedef -i it_IT -f UTF-8 " + (folder / "it_IT.UTF-8").string() + " >/dev/null 2>&1";
    if (!std::filesystem::create_directories(folder, failed) || std::system(command.c_str()) != 0) return false;
    setenv("LOCPATH", folder.c_str(), 1);
    return std::setlocale(LC_ALL, "it_IT.UTF-8") != nullptr;
}

TEST(FormatBounded, UsesThePointWhateverTheLocale) {
    const auto folder = std::filesystem::temp_directory_path() / ("vrn-locale-" + std::to_string(getpid()));
    const bool made = SetCommaLocale(folder);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);  // the locale stays loaded once set
    char comma[8], point[8] = "";
    std::snprintf(comma, sizeof comma, "%.2f", 1.5);
    (void)FormatBounded(point, sizeof point, "%.2f", 1.5);
    std::setlocale(LC_ALL, "C");
    if (!made || std::string(comma) != "1,50") GTEST_SKIP() << "no locale with a decimal comma";
    EXPECT_STREQ(point, "1.50");
}

TEST(Lock, ClosedWhileHeldLivesUntilTheOwnerLetsGo) {
    platform::LockHandle handle = platform::CreateLock();
    std::promise<void> taken, closed;
    std::thread owner([&] {
        (void)platform::WaitLock(handle, 0);
        taken.set_value();
        closed.get_future().wait();
        EXPECT_TRUE(platform::ReleaseLock(handle));
    });
    taken.get_future().wait();
    platform::CloseLock(handle);
    closed.set_value();
    owner.join();
}

}  // namespace
}  // namespace vrn
