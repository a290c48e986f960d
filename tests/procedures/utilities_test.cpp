// The server utilities where a script can't look: the bytes in the files,
// writers racing for one file, and the fakes of the debugger and the domain.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/procedures/calls.h"
#include "utilities/debug_output.h"
#include "utilities/file_io.h"
#include "utilities/server_info.h"

namespace vrn {
namespace {

namespace fs = std::filesystem;
using host::Output;
using host::Param;
using host::VarChar;
using test::Lib;
using test::Trace;

class StrToFile : public testing::Test {
protected:
    void SetUp() override {
        root_ = fs::temp_directory_path() /
                ("vrn-" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
        fs::create_directories(root_);
    }
    void TearDown() override { fs::remove_all(root_); }
    std::string Path(const std::string& name) const { return (root_ / name).string(); }
    fs::path root_;
};

std::optional<std::string> Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST_F(StrToFile, OverwritesInPlaceOrAppends) {
    const std::string old = "0123456789";
    const struct {
        std::optional<std::string> before;
        Param text;
        std::optional<Param> flag;
        std::string after;
    } cases[] = {
        {old, VarChar("abc"), std::nullopt, "abc"},  // cut behind the new text
        {old, VarChar("abc"), host::Int(1), old + "abc"},
        {old, VarChar("abc"), host::Int(256), old + "abc"},  // a flag is any bit of the value
        {old, VarChar("abc"), host::Bit(false), "abc"},
        {old, VarChar(""), std::nullopt, ""},
        {old, VarChar(""), host::Int(1), old},
        {std::nullopt, VarChar(""), host::Bit(true), ""},
        {std::nullopt, host::Text(std::string("a\0\xE8\n", 4)), std::nullopt, std::string("a\0\xE8\n", 4)},
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string path = Path("file" + std::to_string(n++));
        if (c.before) std::ofstream(path, std::ios::binary) << *c.before;
        std::vector<Param> params{c.text, VarChar(path)};
        if (c.flag) params.push_back(*c.flag);
        EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", params)), "0 D") << path;
        EXPECT_EQ(Content(path), c.after) << path;
    }
}

// A call that finds the file taken names the system's error and its text.
bool IsOpenRefusal(const std::string& seen, const std::string& path) {
    const std::string head = "-1 M[vrn_StrToFile\nErrore ";
    if (seen.rfind(head, 0) != 0) return false;
    const auto error = static_cast<uint32_t>(std::strtoul(seen.c_str() + head.size(), nullptr, 10));
    const fileio::ErrorText text(error);
    return error != 0 && seen == head + std::to_string(error) + " nell'apertura del file " + path +
                                     ".\nMessaggio di errore: " + text.Get() + "] D";
}

// Each racing call writes all of its text or is refused with the open message;
// nothing is lost or interleaved.
TEST_F(StrToFile, CallsOnOneFileExcludeEachOther) {
    const std::string path = Path("shared");
    constexpr int kThreads = 4, kCalls = 20;
    constexpr size_t kChunk = 1 << 18;
    std::atomic<int> written{0}, refused{0}, other{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string chunk(kChunk, static_cast<char>('a' + t));
            for (int i = 0; i < kCalls; ++i) {
                const std::string seen =
                    Trace(Lib().Call("vrn_StrToFile", {VarChar(chunk), VarChar(path), host::Bit(true)}));
                (seen == "0 D" ? written : IsOpenRefusal(seen, path) ? refused : other)++;
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

std::vector<std::string> debugTexts;
void Capture(const char* text) { debugTexts.emplace_back(text); }

TEST(Debugout, WritesTheFirstParameterUnchanged) {
    const DebugSink before = SetDebugSink(&Capture);
    for (const Param& text : {VarChar("Prezzo \xE8 zero"), VarChar(""), host::Null(167, 10)}) {
        EXPECT_EQ(Trace(Lib().Call("vrn_Debugout", {text, host::Int(3)})), "0");
    }
    EXPECT_EQ(debugTexts, (std::vector<std::string>{"Prezzo \xE8 zero", "", "NULL"}));
    SetDebugSink(before);
}

class FakeServer final : public ServerInfoSource {
public:
    uint32_t typeResult = 0, type = 0x80000003u, controllerResult = 0;
    DomainControllerInfo info{"\\\\CONTROLLER-WITH-A-LONG-NAME", "\\\\10.1.2.3", 1, "CORP", "corp.example.com",
                              0x20000000, nullptr, "Roma"};
    int controllerCalls = 0, outstanding = 0;

    uint32_t ServerType(uint32_t* out) override {
        *out = type;
        return typeResult;
    }
    uint32_t DomainController(const DomainControllerInfo** out) override {
        ++controllerCalls;
        if (controllerResult != 0) return controllerResult;
        ++outstanding;
        *out = &info;
        return 0;
    }
    void ReleaseDomainController(const DomainControllerInfo*) override { --outstanding; }
};

TEST(GetSrvInfo, AnswersFromTheSourceByName) {
    FakeServer server;
    ServerInfoSource* before = SetServerInfoSource(&server);
    auto ask = [](Param name, uint32_t length = 20) {
        return Trace(Lib().Call("vrn_GetSrvInfo", {std::move(name), Output(VarChar("", length))}));
    };
    const struct {
        const char* name;
        uint32_t length;
        std::string trace;
    } cases[] = {
        {"SERVERTYPE", 20, "0 O2[-2147483645] D"}, {"domainname", 20, "0 O2[CORP] D"},
        {"DnsForestName", 20, "0 O2[corp.example.com] D"}, {"FLAGS", 20, "0 O2[0x20000000] D"},
        {"DomainControllerAddress", 20, "0 O2[\\\\10.1.2.3] D"}, {"DomainControllerAddressType", 20, "0 O2[1] D"},
        {"DcSiteName", 20, "0 O2[(null)] D"}, {"ClientSiteName", 20, "0 O2[Roma] D"},
        {"DomainControllerName", 29, "0 O2[\\\\CONTROLLER-WITH-A-LONG-NAME] D"},  // 29 characters
        {"DomainControllerName", 28, "0 O2[] D"},  // too long for the output: empty, not cut
        {"Flags ", 20, "0 O2[] D"},
    };
    for (const auto& c : cases) EXPECT_EQ(ask(VarChar(c.name), c.length), c.trace) << c.name;
    EXPECT_EQ(server.controllerCalls, 10);  // every name but ServerType asks
    EXPECT_EQ(ask(host::Text("flags")), "0 O2[0x20000000] D");

    server.typeResult = 2;
    server.controllerResult = kNoSuchDomain;
    for (const char* name : {"ServerType", "DomainName"}) EXPECT_EQ(ask(VarChar(name)), "0 O2[] D") << name;
    EXPECT_EQ(server.outstanding, 0);
    SetServerInfoSource(before);
}

}  // namespace
}  // namespace vrn
