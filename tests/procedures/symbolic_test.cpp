// The client-held lock of the symbolic family, across threads: each client's
// protocol gets its own results, and only the holder can give the lock back.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "host/host.h"

namespace vrn {
namespace {

using host::CallResult;
using host::Int;
using host::Output;
using host::VarChar;

const host::Library& Lib() {
    static const host::Library library(host::DefaultLibraryPath());
    return library;
}

std::string OutputText(const CallResult& result, int n) {
    const host::OutputValue* out = result.OutputOf(n);
    return out == nullptr ? std::string("<none>") : std::string(out->value.begin(), out->value.end());
}

int32_t GetMutex(int32_t waitMs) { return Lib().Call("vrn_PercStrSymb_GetMutex", {Int(waitMs)}).returnCode; }
int32_t GetMutexDefault() { return Lib().Call("vrn_PercStrSymb_GetMutex", {}).returnCode; }
int32_t ReleaseMutex() { return Lib().Call("vrn_PercStrSymb_ReleaseMutex", {}).returnCode; }

struct Client {
    int32_t mode;
    const char* cliente;
    const char* articolo;
    const char* text;
    const char* expected;
};

// One whole protocol; returns an empty string when every step answered as it should.
std::string RunProtocol(const Client& c) {
    if (GetMutex(10000) != 1) return "GetMutex";
    std::string fault;
    if (Lib().Call("vrn_PercStrSymb_Init", {Int(c.mode)}).returnCode != 0) fault = "Init";
    if (Lib().Call("vrn_PercStrSymb_SetVar", {VarChar("Cliente"), VarChar(c.cliente)}).returnCode != 0) fault = "SetVar";
    if (Lib().Call("vrn_PercStrSymb_SetVar", {VarChar("Articolo"), VarChar(c.articolo)}).returnCode != 0) fault = "SetVar";
    const CallResult eval = Lib().Call("vrn_PercStrSymb_Eval", {VarChar(c.text), Output(VarChar("", 30))});
    if (eval.returnCode != 0 || OutputText(eval, 2) != c.expected) fault = "Eval gave " + OutputText(eval, 2);
    if (ReleaseMutex() == 0) fault = "ReleaseMutex";
    return fault;
}

TEST(SymbolicConcurrency, ClientsUnderTheLockGetTheirOwnResults) {
    const Client clients[] = {
        {1, "10+5", "20", "MAX(Cliente,Articolo)+2", "20+2"},
        {2, "10+5", "20", "MAX(Cliente,Articolo)-1", "10+5-1"},
        {0, "7", "3", "IIF(Cliente>Articolo,Cliente,Articolo)", "7"},
    };
    std::atomic<bool> stop{false};
    // A plain evaluator caller beside them shares scanner 1 with the comparisons.
    auto evaluator = std::async(std::launch::async, [&] {
        int faults = 0;
        while (!stop.load()) {
            const CallResult r = Lib().Call("vrn_PercStrEval", {VarChar("10+5"), Output(host::Float(0)), Int(1)});
            double value = 0;
            const host::OutputValue* out = r.OutputOf(2);
            if (out != nullptr && out->value.size() == sizeof value) memcpy(&value, out->value.data(), sizeof value);
            if (r.returnCode != 0 || value != 0.855) ++faults;
        }
        return faults;
    });
    std::vector<std::future<std::string>> runs;
    for (const Client& c : clients) {
        runs.push_back(std::async(std::launch::async, [&c] {
            for (int i = 0; i < 200; ++i) {
                std::string fault = RunProtocol(c);
                if (!fault.empty()) return fault + " at round " + std::to_string(i);
            }
            return std::string();
        }));
    }
    for (size_t i = 0; i < runs.size(); ++i) EXPECT_EQ(runs[i].get(), "") << clients[i].text;
    stop = true;
    EXPECT_EQ(evaluator.get(), 0);
}

TEST(SymbolicConcurrency, OnlyTheHolderGetsAndGivesBackTheLock) {
    std::promise<void> taken;
    std::promise<void> checked;
    auto holder = std::async(std::launch::async, [&] {
        EXPECT_EQ(GetMutex(1000), 1);
        EXPECT_EQ(GetMutex(0), 1);  // re-entrant for its owner
        taken.set_value();
        checked.get_future().wait();
        EXPECT_NE(ReleaseMutex(), 0);
        EXPECT_NE(ReleaseMutex(), 0);
        EXPECT_EQ(ReleaseMutex(), 0);  // given back as often as taken, no more
    });
    taken.get_future().wait();

    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetMutex(0), 0);
    EXPECT_EQ(GetMutex(50), 0);
    // Bounds wide enough for a loaded machine and coarse system timers.
    const auto shortWait = std::chrono::steady_clock::now() - start;
    EXPECT_GE(shortWait, std::chrono::milliseconds(40));
    EXPECT_LT(shortWait, std::chrono::seconds(3));

    start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetMutexDefault(), 0);
    const auto defaultWait = std::chrono::steady_clock::now() - start;
    EXPECT_GE(defaultWait, std::chrono::milliseconds(450));
    EXPECT_LT(defaultWait, std::chrono::seconds(5));

    const CallResult release = Lib().Call("vrn_PercStrSymb_ReleaseMutex", {});
    EXPECT_EQ(release.returnCode, 0);
    EXPECT_TRUE(release.messages.empty());
    EXPECT_TRUE(release.dones.empty());
    checked.set_value();
    holder.get();

    EXPECT_EQ(GetMutex(0), 1);  // free again
    EXPECT_NE(ReleaseMutex(), 0);
}

// Which calls complete and which just return, as the client sees them.
TEST(SymbolicProcedures, CodesMessagesAndCompletion) {
    constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
    struct Case {
        const char* procedure;
        std::vector<host::Param> params;
        int32_t code;
        size_t messages;
        size_t dones;
    };
    const Case cases[] = {
        {"vrn_PercStrSymb_GetMutex", {host::Null(38, 4)}, 0, 1, 0},
        {"vrn_PercStrSymb_GetMutex", {VarChar("1")}, 0, 1, 0},
        {"vrn_PercStrSymb_ReleaseMutex", {VarChar("x")}, 0, 0, 0},
        {"vrn_PercStrSymb_Init", {}, kInvalidArg, 1, 1},
        {"vrn_PercStrSymb_Init", {host::Null(38, 4)}, kInvalidArg, 1, 1},
        {"vrn_PercStrSymb_Init", {host::SmallInt(-1)}, kInvalidArg, 1, 1},
        {"vrn_PercStrSymb_Init", {host::TinyInt(2)}, 0, 0, 1},
        {"vrn_PercStrSymb_SetVar", {host::Null(167, 40), VarChar("1")}, -1, 0, 1},
        {"vrn_PercStrSymb_SetVar", {VarChar(std::string(41, 'a')), VarChar("1")}, -1, 1, 1},
        {"vrn_PercStrSymb_SetVar", {VarChar("Cliente"), VarChar(std::string(21, '1'))}, -1, 1, 1},
        {"vrn_PercStrSymb_SetVar", {VarChar("Cliente"), host::Null(167, 20)}, 0, 0, 1},
        {"vrn_PercStrSymb_Eval", {VarChar("1")}, -1, 1, 1},
        {"vrn_PercStrSymb_Eval", {VarChar("MIN("), Output(VarChar("", 1))}, -3, 0, 1},
        {"vrn_PercStrSymb_Eval", {VarChar("Cliente"), Output(VarChar("", 1))}, 0, 0, 1},  // empty fits
        {"vrn_PercStrSymb_Eval", {VarChar("10+10"), Output(VarChar("", 4))}, 0, 1, 1},
        {"vrn_PercStrSymb_ErrorInfo", {Int(0), Output(Int(0))}, kInvalidArg, 1, 1},
    };
    for (const auto& c : cases) {
        const CallResult r = Lib().Call(c.procedure, c.params);
        const std::string label = std::string(c.procedure) + " #" + std::to_string(&c - cases);
        EXPECT_EQ(r.returnCode, c.code) << label;
        EXPECT_EQ(r.messages.size(), c.messages) << label;
        ASSERT_EQ(r.dones.size(), c.dones) << label;
        if (c.dones > 0) {
            EXPECT_EQ(r.dones[0].status, 0) << label;
            EXPECT_EQ(r.order.back(), host::EventKind::Done) << label;  // after messages and outputs
        }
    }
}

TEST(SymbolicProcedures, OutputsOfErrorInfoAreFourBytesWhateverTheDeclaredType) {
    const CallResult r =
        Lib().Call("vrn_PercStrSymb_ErrorInfo", {Output(host::SmallInt(0)), Output(host::TinyInt(0))});
    ASSERT_NE(r.OutputOf(1), nullptr);
    ASSERT_NE(r.OutputOf(2), nullptr);
    EXPECT_EQ(r.OutputOf(1)->value.size(), 4u);
    EXPECT_EQ(r.OutputOf(2)->value.size(), 4u);
}

}  // namespace
}  // namespace vrn
