// The formula procedures through the loaded library: what threads share, the
// lock of the parser, and the reader against the parser on generated formulas.
#include <gtest/gtest.h>

#include <atomic>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <future>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "formula/entry_points.h"
#include "formula/normal_form.h"
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

// ---- Generated formulas: the reader over the normal form repeats the parser.

class FormulaGenerator {
public:
    explicit FormulaGenerator(uint32_t seed) : rng_(seed) {}

    std::string Formula() {
        std::string text;
        const int items = 1 + Pick(8);
        for (int i = 0; i < items; ++i) {
            text += Item();
            text += kBlanks[Pick(4)];
        }
        return text;
    }

    double Start() {
        const double starts[] = {0, 100, 1.5, -37.25, 12345.678, 0.001, 99999999.9999};
        return Pick(3) == 0 ? std::uniform_real_distribution<double>(-1e6, 1e6)(rng_) : starts[Pick(7)];
    }

private:
    static constexpr const char* kBlanks[] = {" ", "  ", "\t", "\r\n"};

    int Pick(int n) { return static_cast<int>(rng_() % static_cast<uint32_t>(n)); }

    std::string Digits(int count) {
        std::string digits;
        for (int i = 0; i < count; ++i) digits += static_cast<char>('0' + Pick(10));
        return digits;
    }

    // Mostly within the limits, now and then a number the language refuses.
    std::string Number() {
        switch (Pick(6)) {
            case 0: return Digits(1 + Pick(2));
            case 1: return Digits(1 + Pick(3)) + "." + Digits(1 + Pick(4));
            case 2: return "." + Digits(1 + Pick(4));
            case 3: return Digits(1 + Pick(8)) + (Pick(2) ? "." + Digits(1 + Pick(4)) : "");
            case 4: return "0" + Digits(1 + Pick(2));
            default: return Pick(4) ? Digits(1 + Pick(3)) : Digits(9) + "." + Digits(5);
        }
    }

    std::string Item() {
        const char* signs[] = {"", "+", "-"};
        const char* rounding[] = {"AC", "AD", "AE", "ac", "aD"};
        switch (Pick(7)) {
            case 0: return signs[Pick(3)] + Number();
            case 1: return signs[Pick(3)] + Number() + "%";
            case 2: return signs[Pick(3)] + Number() + "&";
            case 3: return "*" + Number();
            case 4: return "/" + Number();
            case 5: return "=" + Number();
            default: return std::string(rounding[Pick(5)]) + "(" + signs[Pick(3)] + std::to_string(Pick(5)) + ")";
        }
    }

    std::mt19937 rng_;
};

TEST(FormulaProcedures, EvalOfTheNormalFormRepeatsTheParser) {
    FormulaGenerator generator(20261123);
    int accepted = 0;
    for (int i = 0; i < 4000; ++i) {
        const std::string formula = generator.Formula();
        const double start = generator.Start();
        const Normalized normalized = Normalize(formula);
        if (normalized.code != 0) continue;
        ++accepted;

        double parsed = start;
        std::vector<char> room(PFormulaNormalFormRoom(static_cast<uint32_t>(formula.size())));
        {
            const LockGuard lock(PFormulaMutex, platform::kInfinite);
            ASSERT_EQ(PFormulaNormalizeText(&parsed, formula.c_str(), room.data(), static_cast<uint32_t>(room.size())),
                      0u);
        }
        ASSERT_EQ(std::string(room.data()), normalized.normalForm);

        const Evaluated read = Eval(normalized.normalForm, start);
        ASSERT_EQ(read.code, 0) << normalized.normalForm;
        if (read.value == 0 && parsed == 0) continue;  // 0 + -0 may meet a dropped +0
        EXPECT_EQ(std::bit_cast<uint64_t>(read.value), std::bit_cast<uint64_t>(parsed))
            << "formula \"" << formula << "\" start " << start << " normal form \"" << normalized.normalForm
            << "\": " << read.value << " against " << parsed;
    }
    EXPECT_GT(accepted, 1000);
}

}  // namespace
}  // namespace vrn
