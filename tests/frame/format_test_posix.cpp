// FormatBounded keeps the point of the C locale under a locale with a decimal comma.
#include "frame/convert.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace vrn {
namespace {

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

}  // namespace
}  // namespace vrn
