// The formula procedures through the loaded library: the longest formulas, and
// the reader against the parser on generated formulas.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "calls.h"
#include "formula/entry_points.h"
#include "formula/normal_form.h"
#include "frame/platform.h"
#include "frame/procedure.h"

namespace vrn {
namespace {

using host::CallResult;
using host::Float;
using host::Output;
using host::VarChar;
using test::Lib;

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
