#include <gtest/gtest.h>
#include <locale.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "utilities/file_io.h"

namespace vrn::fileio {
namespace {

namespace fs = std::filesystem;

// Another process holds the file: the open fails with the system's "would block".
TEST(FileIoTest, ExclusiveAgainstAnotherProcess) {
    char pattern[] = "/tmp/vrn-file-XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string name = std::string(pattern) + "/held";
    int ready[2], release[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(release), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        uint32_t error = 0;
        FileHandle file = OpenExclusive(name.c_str(), &error);
        char byte = file != kNoFile ? 'y' : 'n';
        (void)!::write(ready[1], &byte, 1);
        (void)!::read(release[0], &byte, 1);
        ::_exit(0);
    }
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    ASSERT_EQ(byte, 'y');

    uint32_t error = 0;
    EXPECT_EQ(OpenExclusive(name.c_str(), &error), kNoFile);
    EXPECT_EQ(error, static_cast<uint32_t>(EWOULDBLOCK));

    (void)!::write(release[1], "x", 1);
    int status = 0;
    ::waitpid(child, &status, 0);
    FileHandle file = OpenExclusive(name.c_str(), &error);  // free again once the holder is gone
    EXPECT_NE(file, kNoFile);
    if (file != kNoFile) Close(file);
    for (int fd : {ready[0], ready[1], release[0], release[1]}) ::close(fd);
    fs::remove_all(pattern);
}

// The texts are the C locale's, whatever locale the process runs in.
TEST(FileIoTest, ErrorTextIsTheCLocales) {
    const char* old = ::setlocale(LC_ALL, nullptr);
    std::string saved = old != nullptr ? old : "C";
    (void)::setlocale(LC_ALL, "it_IT.UTF-8");  // where it exists
    EXPECT_STREQ(ErrorText(ENOENT).Get(), "No such file or directory");
    EXPECT_STREQ(ErrorText(EWOULDBLOCK).Get(), "Resource temporarily unavailable");
    EXPECT_STREQ(ErrorText(99999).Get(), "Unknown error 99999");
    (void)::setlocale(LC_ALL, saved.c_str());
}

}  // namespace
}  // namespace vrn::fileio
