// The server utilities through the DLL against the system's own answers: a
// sharing violation with its number and text, the shell's folders to the exact
// length, and the network facts.
#include <windows.h>
#include <dsgetdc.h>
#include <lm.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/procedures/calls.h"

namespace vrn {
namespace {

namespace fs = std::filesystem;
using host::Output;
using host::Param;
using test::Code;
using test::Lib;
using test::Trace;

std::string SystemText(DWORD error) {
    char* text = nullptr;
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (FormatMessageA(flags, nullptr, error, 0x400, reinterpret_cast<char*>(&text), 0, nullptr) == 0) return {};
    std::string result(text);
    LocalFree(text);
    return result;
}

// Opened by someone who would share it: the call wants it alone, and is refused.
TEST(StrToFileWin32, ASharingViolationWithTheSystemsNumberAndText) {
    const std::string held = (fs::temp_directory_path() / ("vrn-held-" + std::to_string(GetCurrentProcessId()))).string();
    std::ofstream(held, std::ios::binary) << "before";
    HANDLE holder = CreateFileA(held.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    for (const Param& flag : {host::Int(0), host::Int(1)}) {
        EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", {host::VarChar("abc"), host::VarChar(held), flag})),
                  "-1 M[vrn_StrToFile\nErrore " + std::to_string(ERROR_SHARING_VIOLATION) +
                      " nell'apertura del file " + held + ".\nMessaggio di errore: " +
                      SystemText(ERROR_SHARING_VIOLATION) + "] D");
    }
    CloseHandle(holder);
    std::ifstream file(held, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "before");
    file.close();
    fs::remove(held);
}

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
        {0x99, Output(host::VarChar("", 100)), Code(0x80070057) + " D"},
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
    std::string domain, flags;
    DOMAIN_CONTROLLER_INFOA* controller = nullptr;
    if (DsGetDcNameA(nullptr, nullptr, nullptr, nullptr, DS_RETURN_FLAT_NAME, &controller) == ERROR_SUCCESS) {
        char hex[16];
        std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(controller->Flags));
        domain = controller->DomainName;
        flags = hex;
    }
    if (controller != nullptr) NetApiBufferFree(controller);

    auto ask = [](const char* name) {
        return Trace(Lib().Call("vrn_GetSrvInfo", {host::VarChar(name), Output(host::VarChar("", 100))}));
    };
    EXPECT_EQ(ask("servertype"), "0 O2[" + type + "] D");
    EXPECT_EQ(ask("DomainName"), "0 O2[" + domain + "] D");
    EXPECT_EQ(ask("FLAGS"), "0 O2[" + flags + "] D");
    EXPECT_EQ(ask("NoSuchProperty"), "0 O2[] D");
}

}  // namespace
}  // namespace vrn
