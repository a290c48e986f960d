#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"
#include "utilities/debug_output.h"
#include "utilities/file_io.h"
#include "utilities/server_info.h"

namespace vrn {
namespace {

namespace fs = std::filesystem;
using host::CallResult;
using host::Output;
using host::Param;

// One call as a line: the return code, then every delivery in its order
// (M[message] O<n>[bytes] D).
std::string Trace(const CallResult& r) {
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

class UtilitiesTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/vrn-utilities-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        root_ = pattern;
    }
    void TearDown() override { fs::remove_all(root_); }
    std::string Path(const std::string& name) const { return root_ + "/" + name; }
    std::string root_;
};

std::optional<std::string> Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(file), {});
}

void Put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// ---- vrn_StrToFile

constexpr char kStrToFileParams[] =
    "vrn_StrToFile\nParameters error.\n 1^ Parametro Char/Varchar/Text: stringa da scrivere sul file.\n"
    "2^ Parametro Char/Varchar: nome del file.\n3^ Parametro [optional] boolean: true se si vuole append.";

TEST_F(UtilitiesTest, StrToFileOverwritesOrAppends) {
    const std::string old = "0123456789";
    const struct {
        std::optional<std::string> before;
        Param text;
        std::optional<Param> flag;
        std::string after;
    } cases[] = {
        {std::nullopt, host::VarChar("abc"), std::nullopt, "abc"},
        {old, host::VarChar("abc"), std::nullopt, "abc"},  // cut behind the new text
        {old, host::VarChar("abc"), host::Int(1), old + "abc"},
        {old, host::VarChar("abc"), host::Int(256), old + "abc"},  // only the third byte is set
        {old, host::VarChar("abc"), host::SmallInt(-1), old + "abc"},
        {old, host::VarChar("abc"), host::Bit(false), "abc"},
        {old, host::VarChar("abc"), host::Int(0), "abc"},
        {old, host::VarChar(""), std::nullopt, ""},
        {old, host::VarChar(""), host::Int(1), old},
        {std::nullopt, host::VarChar(""), host::Bit(true), ""},
        {std::nullopt, host::Text(std::string("a\0\xE8\n", 4)), std::nullopt, std::string("a\0\xE8\n", 4)},
        {old, host::Char("ab", 4), std::nullopt, "ab  "},
    };
    int n = 0;
    for (const auto& c : cases) {
        const std::string path = Path("file" + std::to_string(n++));
        if (c.before) Put(path, *c.before);
        std::vector<Param> params{c.text, host::VarChar(path)};
        if (c.flag) params.push_back(*c.flag);
        EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", params)), "0 D") << path;
        EXPECT_EQ(Content(path), c.after) << path;
    }
}

TEST_F(UtilitiesTest, StrToFileRefusesWrongCallsAndTouchesNothing) {
    const std::string path = Path("never");
    const Param text = host::VarChar("abc"), name = host::VarChar(path), flag = host::Int(1);
    const std::vector<std::vector<Param>> calls = {
        {text},
        {host::Null(167, 10), name},
        {text, host::Null(167, 10)},
        {text, host::VarChar("", 10)},
        {text, name, host::Null(38, 4)},
        {Output(text), name},
        {text, Output(name)},
        {text, name, Output(flag)},
        {text, name, host::Float(1)},
        {host::NVarChar(u"abc"), name},
        {host::Int(1), name},
    };
    for (const auto& call : calls) {
        EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", call)), std::string("-1 M[") + kStrToFileParams + "] D");
    }
    EXPECT_FALSE(fs::exists(path));
}

std::string OpenMessage(int error, const std::string& name, const char* text) {
    return "-1 M[vrn_StrToFile\nErrore " + std::to_string(error) + " nell'apertura del file " + name +
           ".\nMessaggio di errore: " + text + "] D";
}

TEST_F(UtilitiesTest, StrToFileReportsWhyTheFileDidNotOpen) {
    const std::string missing = Path("no/such/folder.txt");
    EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", {host::VarChar("abc"), host::VarChar(missing)})),
              OpenMessage(2, missing, "No such file or directory"));
    EXPECT_FALSE(fs::exists(Path("no")));

    // A message that doesn't fit in its 2048 bytes goes out empty.
    const std::string longName = Path(std::string(3000, 'x'));
    EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", {host::VarChar("abc"), host::VarChar(longName)})), "-1 M[] D");

    // Another caller has the file: it stays as it was.
    const std::string held = Path("held");
    Put(held, "before");
    uint32_t error = 0;
    fileio::FileOwner holder(fileio::OpenExclusive(held.c_str(), &error));
    ASSERT_NE(holder.Get(), fileio::kNoFile);
    EXPECT_EQ(Trace(Lib().Call("vrn_StrToFile", {host::VarChar("abc"), host::VarChar(held), host::Int(1)})),
              OpenMessage(11, held, "Resource temporarily unavailable"));
    holder.Reset();
    EXPECT_EQ(Content(held), "before");
}

// Writers racing for one file: each call writes all of its text or is refused
// with the open message; nothing is lost or interleaved.
TEST_F(UtilitiesTest, StrToFileCallsOnOneFileExcludeEachOther) {
    const std::string path = Path("shared");
    constexpr int kThreads = 4, kCalls = 20;
    constexpr size_t kChunk = 1 << 18;
    std::atomic<int> written{0}, refused{0}, other{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            const std::string chunk(kChunk, static_cast<char>('a' + t));
            const std::string refusal = OpenMessage(11, path, "Resource temporarily unavailable");
            for (int i = 0; i < kCalls; ++i) {
                std::string seen = Trace(Lib().Call("vrn_StrToFile", {host::VarChar(chunk), host::VarChar(path), host::Bit(true)}));
                (seen == "0 D" ? written : seen == refusal ? refused : other)++;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(other, 0);
    EXPECT_EQ(written + refused, kThreads * kCalls);
    const std::string content = Content(path).value_or("");
    ASSERT_EQ(content.size(), static_cast<size_t>(written) * kChunk);
    for (size_t at = 0; at < content.size(); at += kChunk) {
        EXPECT_EQ(content.substr(at, kChunk), std::string(kChunk, content[at])) << at;
    }
}

// ---- vrn_CountBitsOn

TEST(CountBitsOn, CountsAndRefuses) {
    auto countOf = [](int32_t n) { return std::string(reinterpret_cast<const char*>(&n), 4); };
    const struct {
        host::Bytes value;
        int32_t count;
    } counts[] = {
        {{0x01, 0x01}, 2}, {{}, 0},
        {host::Bytes(100001, 0xA5), 400004},
    };
    for (const auto& c : counts) {
        EXPECT_EQ(Trace(Lib().Call("vrn_CountBitsOn", {host::VarBinary(c.value), Output(host::Int(7))})),
                  "0 O2[" + countOf(c.count) + "] D");
    }
    Param oldVarBinary = host::VarBinary({0xFF});
    oldVarBinary.type = 37;
    EXPECT_EQ(Trace(Lib().Call("vrn_CountBitsOn", {oldVarBinary, Output(host::Int(7))})), "0 O2[" + countOf(8) + "] D");

    // The done goes out before the message, and the output stays untouched.
    const std::string refusal = std::to_string(static_cast<int32_t>(0x80070057u)) +
                                " D M[vrn_CountBitsOn\nParameters error.\n 1^ Parametro Varbinary\n2^ Parametro Integer Output.]";
    const Param value = host::VarBinary({0xFF}), count = Output(host::Int(7));
    const std::vector<std::vector<Param>> calls = {
        {host::VarChar("a"), count}, {value, Output(host::SmallInt(7))}, {host::Null(165, 1), count},
        {value}, {value, count, count}, {value, host::Int(7)}, {Output(value), count},
    };
    for (const auto& call : calls) EXPECT_EQ(Trace(Lib().Call("vrn_CountBitsOn", call)), refusal);
}

// ---- vrn_Debugout: no done on any path.

std::vector<std::string> debugTexts;
void Capture(const char* text) { debugTexts.emplace_back(text); }

TEST(Debugout, WritesTheFirstParameterUnchanged) {
    DebugSink before = SetDebugSink(&Capture);
    const std::string refusal = std::to_string(static_cast<int32_t>(0x80070057u)) +
                                " M[vrn_DebugOut\nErrore nel 1^ parametro: deve essere Char/Varchar.]";
    const struct {
        std::vector<Param> params;
        std::string trace;
        std::vector<std::string> written;
    } cases[] = {
        {{host::VarChar("Prezzo \xE8 zero")}, "0", {"Prezzo \xE8 zero"}},
        {{host::VarChar("")}, "0", {""}},
        {{host::Null(167, 10)}, "0", {"NULL"}},
        {{host::Char("ab", 4), host::Int(3)}, "0", {"ab  "}},
        {{}, refusal, {}},
        {{host::Int(3)}, refusal, {}},
        {{host::Text("abc")}, refusal, {}},
        {{Output(host::VarChar("abc"))}, refusal, {}},
    };
    for (const auto& c : cases) {
        debugTexts.clear();
        EXPECT_EQ(Trace(Lib().Call("vrn_Debugout", c.params)), c.trace);
        EXPECT_EQ(debugTexts, c.written);
    }
    SetDebugSink(before);
}

// ---- vrn_GetFolderPath

std::string Code(uint32_t code) { return std::to_string(static_cast<int32_t>(code)); }

TEST_F(UtilitiesTest, GetFolderPathNarrowWideAndTheExactLength) {
    // A home folder of exactly 30 characters.
    const std::string home = root_ + "/" + std::string(29 - root_.size(), 'h');
    ASSERT_EQ(home.size(), 30u);
    fs::create_directory(home);
    const char* saved = std::getenv("HOME");
    const std::string savedHome = saved != nullptr ? saved : "";
    ::setenv("HOME", home.c_str(), 1);
    std::string wide;
    for (char c : home) wide += {c, '\0'};

    const struct {
        int32_t csidl;
        Param path;
        std::string trace;
    } cases[] = {
        {0x28, Output(host::VarChar("", 30)), "0 O2[" + home + "] D"},
        {0x28, Output(host::VarChar("", 29)), Code(0x8007007A) + " D"},
        {0x28, Output(host::NVarChar(u"", 60)), "0 O2[" + wide + "] D"},
        {0x28, Output(host::NVarChar(u"", 58)), Code(0x8007007A) + " D"},
        {0x23, Output(host::VarChar("", 8)), "0 O2[/var/lib] D"},
        {0x99, Output(host::VarChar("", 100)), Code(0x80070057) + " D"},
        {0x05, Output(host::VarChar("", 100)), Code(0x80070002) + " D"},  // no Documents in this home
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Trace(Lib().Call("vrn_GetFolderPath", {host::Int(c.csidl), c.path})), c.trace) << c.csidl;
    }
    ::setenv("HOME", savedHome.c_str(), 1);
}

TEST(GetFolderPath, RefusesWrongCallsWithoutADone) {
    const std::string refusal = Code(0x80030057) +
                                " M[vrn_SHGetFolderPath: Parameters error.\nParameters: \n\t@CSIDL\t\t\tInteger Not "
                                "Null\n\t@FolderParh    Varchar|NVarchar Output.]";
    const Param csidl = host::Int(0x23), path = Output(host::VarChar("", 100));
    const std::vector<std::vector<Param>> calls = {
        {csidl}, {csidl, path, path}, {host::SmallInt(0x23), path}, {host::Null(38, 4), path},
        {csidl, Output(host::Char("", 100))}, {csidl, host::VarChar("", 100)}, {csidl, Output(host::Text("x"))},
    };
    for (const auto& call : calls) EXPECT_EQ(Trace(Lib().Call("vrn_GetFolderPath", call)), refusal);
    // The CSIDL's direction isn't judged.
    EXPECT_EQ(Trace(Lib().Call("vrn_GetFolderPath", {Output(csidl), path})), "0 O2[/var/lib] D");
}

// ---- vrn_GetSrvInfo, over facts of our own.

class FakeServer final : public ServerInfoSource {
public:
    uint32_t typeResult = 0, type = 0, controllerResult = 0;
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
    server.type = 0x80000003u;
    ServerInfoSource* before = SetServerInfoSource(&server);
    auto ask = [](Param name, uint32_t length = 30) {
        return Trace(Lib().Call("vrn_GetSrvInfo", {std::move(name), Output(host::VarChar("", length))}));
    };
    const struct {
        const char* name;
        uint32_t length;
        std::string trace;
    } cases[] = {
        {"ServerType", 20, "0 O2[-2147483645] D"},
        {"SERVERTYPE", 20, "0 O2[-2147483645] D"},
        {"domainname", 20, "0 O2[CORP] D"},
        {"DnsForestName", 20, "0 O2[corp.example.com] D"},
        {"FLAGS", 20, "0 O2[0x20000000] D"},
        {"DomainControllerAddress", 20, "0 O2[\\\\10.1.2.3] D"},
        {"DcSiteName", 20, "0 O2[(null)] D"},
        {"ClientSiteName", 20, "0 O2[Roma] D"},
        {"DomainControllerName", 29, "0 O2[\\\\CONTROLLER-WITH-A-LONG-NAME] D"},  // 29 characters
        {"DomainControllerName", 28, "0 O2[] D"},  // too long for the output: empty, not cut
        {"Flags ", 20, "0 O2[] D"},
        {"NoSuchProperty", 20, "0 O2[] D"},
    };
    for (const auto& c : cases) EXPECT_EQ(ask(host::VarChar(c.name), c.length), c.trace) << c.name;
    EXPECT_EQ(server.controllerCalls, 10);  // every name but ServerType asks
    EXPECT_EQ(ask(host::Text("flags")), "0 O2[0x20000000] D");

    server.typeResult = 2;
    server.controllerResult = kNoSuchDomain;
    for (const char* name : {"ServerType", "DomainName", "Flags", "Other"}) {
        EXPECT_EQ(ask(host::VarChar(name)), "0 O2[] D") << name;
    }
    EXPECT_EQ(server.outstanding, 0);
    SetServerInfoSource(before);
}

TEST(GetSrvInfo, RefusesWrongCalls) {
    const std::string refusal =
        Code(0x80070057) +
        " M[vrn_GetSrvInfo\nParameters error.\n 1^ Parametro Char/Varchar/Text: nome della property.\n2^ Parametro "
        "Char/Varchar Output (min 20 caratteri): valore della property.] D";
    const Param name = host::VarChar("Flags"), value = Output(host::VarChar("", 20));
    const std::vector<std::vector<Param>> calls = {
        {name, Output(host::VarChar("", 19))}, {name, Output(host::Char("", 19))}, {host::Null(167, 10), value},
        {Output(name), value}, {host::Int(1), value}, {name, host::VarChar("", 20)}, {name}, {name, value, value},
        {name, Output(host::NVarChar(u"", 40))},
    };
    for (const auto& call : calls) EXPECT_EQ(Trace(Lib().Call("vrn_GetSrvInfo", call)), refusal);
}

}  // namespace
}  // namespace vrn
