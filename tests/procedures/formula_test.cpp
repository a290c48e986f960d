// The formula procedures through the loaded library: what threads share, the
// lock of the parser, and the reader against the parser on generated formulas.
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform.h"
#include "frame/procedure.h"
#include "host/host.h"

namespace vrn {
namespace {

using host::CallResult;
using host::Float;
using host::Output;
using host::VarChar;

constexpr int32_t kParamError = static_cast<int32_t>(0x80070057u);

const host::Library& Lib() {
    static const host::Library library(host::DefaultLibraryPath());
    return library;
}

struct Evaluated {
    int32_t code;
    double value;  // NAN when no value came back
};

Evaluated Eval(const std::string& text, double start) {
    const CallResult result = Lib().Call("vrn_PFormula_Eval", {VarChar(text), Output(Float(start))});
    const host::OutputValue* out = result.OutputOf(2);
    double value = NAN;
    if (out != nullptr && out->value.size() == sizeof value) std::memcpy(&value, out->value.data(), sizeof value);
    return {result.returnCode, value};
}

struct Normalized {
    int32_t code;
    std::string normalForm;
    std::string message;
};

Normalized Normalize(const std::string& text, uint32_t outputLength = 8000) {
    const CallResult result = Lib().Call("vrn_PFormula_Normalize", {VarChar(text), Output(VarChar("", outputLength))});
    const host::OutputValue* out = result.OutputOf(2);
    return {result.returnCode, out ? std::string(out->value.begin(), out->value.end()) : "<none>",
            result.messages.empty() ? "" : result.messages.back().text};
}

std::string Repeat(const std::string& piece, size_t times) {
    std::string text;
    for (size_t i = 0; i < times; ++i) text += piece;
    return text;
}

TEST(FormulaProcedures, LongestFormulasAndTheirNormalForms) {
    const Normalized dots = Normalize(Repeat(".1", 499));  // 998 bytes: the longest text taken
    EXPECT_EQ(dots.code, 0);
    EXPECT_EQ(dots.normalForm, Repeat("+0.1 ", 499));
    EXPECT_NEAR(Eval(dots.normalForm, 0).value, 49.9, 1e-9);

    const Normalized percents = Normalize(Repeat("1%", 499));
    EXPECT_EQ(percents.code, 0);
    EXPECT_EQ(percents.normalForm, Repeat("+1% ", 499));

    const Normalized tooLong = Normalize(Repeat(".1", 499) + " ");
    EXPECT_EQ(tooLong.code, -4);
    EXPECT_EQ(tooLong.message, "vrn_PFormula_Normalize\nErrore -4 (pos 1, len 0) nella formula.");
    EXPECT_EQ(tooLong.normalForm, "<none>");

    // The reader has no length limit of its own.
    EXPECT_DOUBLE_EQ(Eval(Repeat("+1 ", 5000), 0).value, 5000);
}

TEST(FormulaProcedures, NeitherProcedureCompletesTheCall) {
    const std::vector<std::pair<const char*, std::vector<host::Param>>> calls = {
        {"vrn_PFormula_Eval", {VarChar("+1 "), Output(Float(1))}},
        {"vrn_PFormula_Eval", {VarChar("x"), Output(Float(1))}},
        {"vrn_PFormula_Eval", {VarChar("x")}},
        {"vrn_PFormula_Normalize", {VarChar("1"), Output(VarChar("", 10))}},
        {"vrn_PFormula_Normalize", {VarChar("x"), Output(VarChar("", 10))}},
        {"vrn_PFormula_Normalize", {VarChar("100"), Output(VarChar("", 4))}},
        {"vrn_PFormula_Normalize", {}},
    };
    for (const auto& [name, params] : calls) EXPECT_TRUE(Lib().Call(name, params).dones.empty()) << name;

    host::CallOptions failing;
    failing.failParamInfo = true;
    const CallResult refused = Lib().Call("vrn_PFormula_Eval", {VarChar("+1 "), Output(Float(1))}, failing);
    EXPECT_EQ(refused.returnCode, kParamError);
    ASSERT_EQ(refused.messages.size(), 1u);
    EXPECT_EQ(refused.messages[0].text, "vrn_PFormula_Eval\nErrore nei parametri: devono essere Char / Float OUTPUT.");
    EXPECT_TRUE(refused.outputs.empty());
}

TEST(FormulaProcedures, NormalizeWaitsHalfASecondForTheLockThatEvalNeverTakes) {
    std::promise<void> held, done;
    std::thread holder([&] {
        ASSERT_NE(platform::WaitLock(PFormulaMutex, 0), platform::kWaitTimeout);
        held.set_value();
        done.get_future().wait();
        (void)platform::ReleaseLock(PFormulaMutex);
    });
    held.get_future().wait();

    const auto before = std::chrono::steady_clock::now();
    const CallResult refused = Lib().Call("vrn_PFormula_Normalize", {VarChar("100"), Output(VarChar("", 10))});
    const auto waited = std::chrono::steady_clock::now() - before;
    const Evaluated meanwhile = Eval("+10 ", 100);
    done.set_value();
    holder.join();

    EXPECT_EQ(refused.returnCode, 258);
    ASSERT_EQ(refused.messages.size(), 1u);
    EXPECT_EQ(refused.messages[0].text, "vrn_PFormula_Normalize\nTimeout sul Mutex.");
    EXPECT_TRUE(refused.outputs.empty());
    EXPECT_TRUE(refused.dones.empty());
    EXPECT_GE(waited, std::chrono::milliseconds(490));
    EXPECT_EQ(meanwhile.code, 0);
    EXPECT_EQ(meanwhile.value, 110);
    EXPECT_EQ(Normalize("100").normalForm, "+100 ") << "the lock is free again";
}

TEST(FormulaProcedures, ThreadsGetTheResultsOfOneThread) {
    const std::vector<std::string> formulas = {"=100 22% -5& AC(2)", "1.2.3", "5 x", "*500,", "ad(+3) 7&",
                                               "123456789", "-5+5%", "AE(-1) /3", "2900% -99%", ""};
    std::vector<Normalized> normalized;
    std::vector<Evaluated> evaluated;
    for (const std::string& formula : formulas) {
        normalized.push_back(Normalize(formula));
        evaluated.push_back(Eval(normalized.back().normalForm, 1234.5678));
    }
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int round = 0; round < 150; ++round) {
                const size_t i = static_cast<size_t>(round + t) % formulas.size();
                const Normalized n = Normalize(formulas[i]);
                const Evaluated e = Eval(normalized[i].normalForm, 1234.5678);
                if (n.code == 258) continue;  // contention beyond half a second is allowed to time out
                if (n.code != normalized[i].code || n.normalForm != normalized[i].normalForm ||
                    n.message != normalized[i].message || e.code != evaluated[i].code ||
                    std::bit_cast<uint64_t>(e.value) != std::bit_cast<uint64_t>(evaluated[i].value)) {
                    ++mismatches;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
}  // namespace vrn
