// The server utilities through the DLL against the system's own answers: the
// shell's folders to the exact length, and the network facts.
#include <windows.h>
#include <dsgetdc.h>
#include <lm.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/procedures/calls.h"

namespace vrn {
namespace {

using host::Output;
using host::Param;
using test::Code;
using test::Lib;
using test::Trace;

TEST(GetFolderPathWin32, TheShellsFolderNarrowOrWideToTheExactLength) {
    char narrow[MAX_PATH];
    wchar_t wide[MAX_PATH];
    ASSERT_EQ(SHGetFolderPathA(nullptr, CSIDL_WINDOWS, nullptr, 0, narrow), S_OK);
    ASSERT_EQ(SHGetFolderPathW(nullptr, CSIDL_WINDOWS, nullptr, 0, wide), S_OK);
    const std::string path = narrow;
    const auto length = static_cast<uint32_t>(path.size());
    std::string wideBytes;
    for (const wchar_t* unit = wide; *unit != 0; ++unit) {
        wideBytes += {static_cast<char>(*unit & 0xFF), static_cast<char>(*unit >> 8)};
    }
    ASSERT_EQ(wideBytes.size(), 2u * length);
    const struct {
        int32_t csidl;
        Param path;
        std::string trace;
    } cases[] = {
        {CSIDL_WINDOWS, Output(host::VarChar("", length)), "0 O2[" + path + "] D"},
        {CSIDL_WINDOWS, Output(host::VarChar("", length - 1)), Code(0x8007007A) + " D"},
        {CSIDL_WINDOWS, Output(host::NVarChar(u"", 2 * length)), "0 O2[" + wideBytes + "] D"},
        {CSIDL_WINDOWS, Output(host::NVarChar(u"", 2 * length - 2)), Code(0x8007007A) + " D"},
        {CSIDL_WINDOWS | CSIDL_FLAG_DONT_VERIFY, Output(host::VarChar("", length)), "0 O2[" + path + "] D"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Trace(Lib().Call("vrn_GetFolderPath", {host::Int(c.csidl), c.path})), c.trace) << c.csidl;
    }
}

TEST(GetSrvInfoWin32, AnswersWhatTheSystemAnswers) {
    std::string type;
    SERVER_INFO_101* server = nullptr;
    if (NetServerGetInfo(nullptr, 101, reinterpret_cast<LPBYTE*>(&server)) == NERR_Success) {
        type = std::to_string(static_cast<int32_t>(server->sv101_type));
    }
    if (server != nullptr) NetApiBufferFree(server);
    std::string domain;
    DOMAIN_CONTROLLER_INFOA* controller = nullptr;
    if (DsGetDcNameA(nullptr, nullptr, nullptr, nullptr, DS_RETURN_FLAT_NAME, &controller) == ERROR_SUCCESS) {
        domain = controller->DomainName;
    }
    if (controller != nullptr) NetApiBufferFree(controller);

    auto ask = [](const char* name) {
        return Trace(Lib().Call("vrn_GetSrvInfo", {host::VarChar(name), Output(host::VarChar("", 100))}));
    };
    EXPECT_EQ(ask("servertype"), "0 O2[" + type + "] D");
    EXPECT_EQ(ask("DomainName"), "0 O2[" + domain + "] D");
}

}  // namespace
}  // namespace vrn
