// The frame's exports, called through the loaded library as the server calls them.
#include <gtest/gtest.h>

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

}  // namespace
