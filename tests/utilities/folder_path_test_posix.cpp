#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <string>

#include "utilities/folder_path.h"
#include "utilities/folder_path_posix.h"

namespace vrn {
namespace {

namespace fs = std::filesystem;
using posixfolders::FolderEnvironment;
using posixfolders::ResolveFolderPath;

constexpr int32_t kFileNotFound = static_cast<int32_t>(0x80070002u);
constexpr int32_t kNameTooLong = static_cast<int32_t>(0x800700CEu);

// The environment that the resolver sees, per test.
std::map<std::string, std::string> variables;

const char* Variable(const char* name) {
    auto found = variables.find(name);
    return found == variables.end() ? nullptr : found->second.c_str();
}

const FolderEnvironment kTestEnvironment{&Variable};

class FolderPathTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vrn-folders-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        root_ = pattern;
        variables = {{"HOME", root_}};
    }
    void TearDown() override { fs::remove_all(root_); }
    std::string root_;
};

TEST_F(FolderPathTest, MapsNumbersWithoutTouchingTheFileSystem) {
    variables["XDG_CONFIG_HOME"] = "/elsewhere/config";
    variables["XDG_DATA_HOME"] = "relative/data";  // relative XDG values don't count
    const struct {
        int32_t csidl;
        std::string path;
    } cases[] = {
        {0x4000 | 0x28, root_}, {0x4000 | 0x05, root_ + "/Documents"}, {0x4000 | 0x1A, "/elsewhere/config"},
        {0x4000 | 0x07, "/elsewhere/config/autostart"}, {0x4000 | 0x1C, root_ + "/.local/share"},
        {0x1000 | 0x2000 | 0x4000 | 0x24, "/usr"},  // shell-only flags have no effect
    };
    for (const auto& c : cases) {
        std::string path;
        EXPECT_EQ(ResolveFolderPath(c.csidl, kTestEnvironment, &path), 0) << std::hex << c.csidl;
        EXPECT_EQ(path, c.path) << std::hex << c.csidl;
    }
}

TEST_F(FolderPathTest, RefusesUnknownNumbersAndFlags) {
    for (int32_t csidl : {0x01, 0xFF, 0x0100 | 0x23, 0x10000 | 0x23, -1}) {
        std::string path = "left over";
        EXPECT_EQ(ResolveFolderPath(csidl, kTestEnvironment, &path), kFolderInvalidArg) << csidl;
        EXPECT_EQ(path, "");
    }
}

TEST_F(FolderPathTest, MissingFolderIsReportedOrCreated) {
    std::string path;
    EXPECT_EQ(ResolveFolderPath(0x05, kTestEnvironment, &path), kFileNotFound);
    EXPECT_FALSE(fs::exists(root_ + "/Documents"));

    variables["XDG_CONFIG_HOME"] = root_ + "/a/b";
    EXPECT_EQ(ResolveFolderPath(0x8000 | 0x07, kTestEnvironment, &path), 0);
    EXPECT_EQ(path, root_ + "/a/b/autostart");
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_TRUE(S_ISDIR(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_EQ(ResolveFolderPath(0x07, kTestEnvironment, &path), 0);  // there now

    std::FILE* file = std::fopen((root_ + "/Music").c_str(), "w");  // a file where the folder should be
    std::fclose(file);
    EXPECT_LT(ResolveFolderPath(0x8000 | 0x0D, kTestEnvironment, &path), 0);
    variables.erase("HOME");
    EXPECT_EQ(ResolveFolderPath(0x4000 | 0x28, kTestEnvironment, &path), kFileNotFound);
}

// The process's own environment, and the conversions of the two outputs.
TEST_F(FolderPathTest, NarrowAndWideFromTheProcessEnvironment) {
    std::string saved = std::getenv("HOME") != nullptr ? std::getenv("HOME") : "";
    const struct {
        std::string name;  // UTF-8, as the file system keeps it
        const char* narrow;
        std::u16string wide;
        int32_t result;
    } cases[] = {
        {"caff\xC3\xA8", "caff\xE8", u"caff\u00E8", 0},
        {"\xE2\x82\xAC\xD0\xB6", "\x80?", u"\u20AC\u0436", 0},  // 1252 has the euro, not zhe
        {"bad\xFF", "bad?", u"bad\uFFFD", 0},
        {std::string(300, 'x'), "", u"", kNameTooLong},
    };
    for (const auto& c : cases) {
        std::string home = root_ + "/" + c.name;
        ::setenv("HOME", home.c_str(), 1);
        char narrow[kFolderPathUnits] = {};
        char16_t wide[kFolderPathUnits] = {};
        EXPECT_EQ(GetFolderPathNarrow(0x4000 | 0x28, narrow), c.result);
        EXPECT_EQ(GetFolderPathWide(0x4000 | 0x28, wide), c.result);
        if (c.result != 0) continue;
        EXPECT_EQ(std::string(narrow), root_ + "/" + c.narrow);
        EXPECT_EQ(std::u16string(wide), std::u16string(root_.begin(), root_.end()) + u"/" + c.wide);
    }
    ::setenv("HOME", saved.c_str(), 1);
}

}  // namespace
}  // namespace vrn
