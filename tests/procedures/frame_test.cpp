// The frame's exports, called through the loaded library as the server calls them.
#include <gtest/gtest.h>

#include <future>

#include "host/host.h"

namespace {

using vrn::host::Library;

constexpr int32_t kVersion = 0x07000000;

TEST(VersionExports, AnswerTheSameBeforeAndAfterOtherCalls) {
    const Library library(vrn::host::DefaultLibraryPath());
    const char* const versions[] = {"__GetXpVersion", "xp_GetVersion"};
    for (const char* name : versions) EXPECT_EQ(library.CallNoArgs(name), kVersion) << name;
    // Wrong calls of whatever procedures are there: each answers with its message.
    for (const char* name : {"vrn_PercStrNormalize", "vrn_PercStrEval", "vrn_PFormula_Eval", "vrn_CountBitsOn"}) {
        if (library.Has(name)) (void)library.Call(name, {});
    }
    for (const char* name : versions) EXPECT_EQ(library.CallNoArgs(name), kVersion) << name;
}

// Loading the library created the locks: one the client holds on one thread
// refuses another thread (a missing lock would let both through).
TEST(LibraryLoad, CreatedTheProcessLocks) {
    const Library library(vrn::host::DefaultLibraryPath());
    if (!library.Has("vrn_PercStrSymb_GetMutex")) GTEST_SKIP() << "no client-held lock to try";
    ASSERT_EQ(library.Call("vrn_PercStrSymb_GetMutex", {}).returnCode, 1);
    const auto other = [&] { return library.Call("vrn_PercStrSymb_GetMutex", {vrn::host::Int(0)}).returnCode; };
    EXPECT_EQ(std::async(std::launch::async, other).get(), 0);
    EXPECT_EQ(library.Call("vrn_PercStrSymb_ReleaseMutex", {}).returnCode, 1);
}

}  // namespace
