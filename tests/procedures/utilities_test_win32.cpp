// The server utilities through the DLL against the system's own answers: share
// violations and missing folders with their numbers and texts, the shell's
// folders to the exact length, and the network facts.
#include <windows.h>
#include <dsgetdc.h>
#include <lm.h>
#include <shlobj.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace vrn {
namespace {

namespace fs = std::filesystem;
using host::Output;
using host::Param;

// The return code, then every delivery in its order (M[message] O<n>[bytes] D).
std::string Trace(const host::CallResult& r) {
    std::string line = std::to_string(r.returnCode);
    size_t message = 0, output = 0;
    for (host::EventKind kind : r.order) {
        if (kind == host::EventKind::Message) line += " M[" + r.messages[message++].text + "]";
        if (kind == host::EventKind::Done) line += " D";
        if (kind == host::EventKind::Output) {
            const host::OutputValue& o = r.outputs[output++];
            line += " O" + std::to_string(o.param) + "[" + std::string(o.value.begin(), o.value.end()) + "]";
        }
    }
    return line;
}

const host::Library& Lib() {
    static const host::Library lib(host::DefaultLibraryPath());
    return lib;
}

std::string Code(uint32_t code) { return std::to_string(static_cast<int32_t>(code)); }

std::string SystemText(DWORD error) {
    char* text = nullptr;
    const DWORD flags = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS;
    if (FormatMessageA(flags, nullptr, error, 0x400, reinterpret_cast<char*>(&text), 0, nullptr) == 0) return {};
    std::string result(text);
    LocalFree(text);
    return result;
}

std::string OpenMessage(DWORD error, const std::string& name) {
    return "-1 M[vrn_StrToFile\nErrore " + std::to_string(error) + " nell'apertura del file " + name +
           ".\nMessaggio di errore: " + SystemText(error) + "] D";
}

std::optional<std::string> Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

class StrToFileWin32 : public testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() /
                ("vrn-" + std::to_string(GetCurrentProcessId()) + "-" +
                 testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(root_);
    }
    void TearDown() override { fs::remove_all(root_); }
    std::string Path(const std::string& name) const { return (root_ / name).string(); }
    fs::path root_;
};

TEST_F(StrToFileWin32, ReportsTheSystemsNumberAndText) {
    const std::string held = Path("held");
    std::ofstream(held, std::ios::binary) << "before";
    // Open by someone who would share it: the call wants it alone, and is refused.
    HANDLE holder = CreateFileA(held.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(holder, INVALID_HANDLE_VALUE);
    for (const Param& flag : {host::Int(0), host::Int(1)}) {
        EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", {host::VarChar("abc"), host::VarChar(held), flag})),
                  OpenMessage(ERROR_SHARING_VIOLATION, held));
    }
    CloseHandle(holder);
    EXPECT_EQ(Content(held), "before");

    const std::string missing = Path("no\\such\\folder.txt");
    EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", {host::VarChar("abc"), host::VarChar(missing)})),
              OpenMessage(ERROR_PATH_NOT_FOUND, missing));
    EXPECT_FALSE(fs::exists(Path("no")));
}

// Share mode 0 keeps racing writers apart: each call writes all of its text or
// is refused with the sharing violation; nothing is lost or interleaved.
TEST_F(StrToFileWin32, CallsOnOneFileExcludeEachOther) {
    const std::string path = Path("shared");
    constexpr int kThreads = 4, kCalls = 20;
    constexpr size_t kChunk = 1 << 18;
    const std::string refusal = OpenMessage(ERROR_SHARING_VIOLATION, path);
    std::atomic<int> written{0}, refused{0}, other{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string chunk(kChunk, static_cast<char>('a' + t));
            for (int i = 0; i < kCalls; ++i) {
                const std::string seen =
                    Trace(Lib().Call("vrn_StrToFile", {host::VarChar(chunk), host::VarChar(path), host::Bit(true)}));
                (seen == "0 D" ? written : seen == refusal ? refused : other)++;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(written + refused, kThreads * kCalls);
    const std::string content = Content(path).value_or("");
    ASSERT_EQ(content.size(), static_cast<size_t>(written) * kChunk);
    for (size_t at = 0; at < content.size(); at += kChunk) {
        EXPECT_EQ(content.substr(at, kChunk), std::string(kChunk, content[at])) << at;
    }
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
