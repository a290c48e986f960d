#include "bench/cases.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "bench/yardstick.h"
#include "formula/entry_points.h"
#include "formula/normal_form.h"
#include "percstr/evaluate.h"
#include "percstr/normalize.h"
#include "symbolic/reduce.h"
#include "symbolic/symbols.h"

namespace vrn::bench {

namespace {

// ---- Inputs

constexpr char kShortChain[] = "10+5-2";
constexpr char kTwentyChain[] = "12.5+7.5-2.25+1.5-10";
static_assert(sizeof kTwentyChain - 1 == 20);
constexpr int32_t kChainMode = 1;

// With its two final NULs, as vrn_PFormula_Eval hands it over.
constexpr char kNormalForm[] = "=100 +22% -5& AC(2) \0";
constexpr double kStartValue = 100;
constexpr char kFormula[] = "=100 22% -5& *2 /4 AD(-1)\0";

constexpr YardstickVariable kVariables[] = {
    {"Cliente", "10+5"}, {"Articolo", "20"}, {"Listino", "5+1"}, {"Agente1", "8"},
    {"Pagamento", "4"},  {"Commessa", "3"},  {"Documento", "2"},
};
constexpr int32_t kSymbolicMode = 1;
constexpr char kSymbolicShort[] = "MAX(Cliente,Articolo)+2";
constexpr char kSymbolicLong[] =
    "MAX(Cliente,Articolo,5)+MIN(Listino,2.5,Agente1)-MAX(Pagamento,Commessa,1.25)+MIN(3,Documento)";

constexpr char kNormalizeInput[] = "12,5 2.5-3+4,75 10+66";

// ---- One call each

double Evaluate(const char* text, int32_t mode) {
    double value = 0;
    if (PercStrEvaluate(text, &value, mode) != kPercStrEvaluated) std::abort();
    return value;
}

double Run(const char* block, uint32_t size) {
    double value = kStartValue;
    if (PFormulaRunBuffer(&value, block, size) != 0) std::abort();
    return value;
}

// The entry point scans the text in place and leaves it as it was.
char formulaBlock[sizeof kFormula];
char normalForm[256];

double Normalize() {
    double value = kStartValue;
    std::memcpy(formulaBlock, kFormula, sizeof kFormula);
    if (PFormulaNormalizeBuffer(&value, formulaBlock, sizeof kFormula, normalForm, sizeof normalForm) != 0) {
        std::abort();
    }
    return value;
}

std::string Reduce(const char* text) {
    char result[kPercStrSymbTextSize];
    uint32_t length = sizeof result;
    if (PercStrSymbReduce(text, result, &length) != kPercStrSymbReduced) std::abort();
    return result;
}

std::string YardstickReduce(const char* text) {
    char result[32];
    if (!YardstickSymbolicReduce(text, kVariables, static_cast<int>(std::size(kVariables)), kSymbolicMode, result)) {
        std::abort();
    }
    return result;
}

// ---- The loops

template <const char* Text>
void EngineChain(int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) {
        double value = 0;
        benchmark::DoNotOptimize(PercStrEvaluate(Text, &value, kChainMode));
        benchmark::DoNotOptimize(value);
    }
}

template <const char* Text>
void YardstickChain(int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) benchmark::DoNotOptimize(YardstickPercentChain(Text, kChainMode));
}

void EngineRun(int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) {
        double value = kStartValue;
        benchmark::DoNotOptimize(PFormulaRunBuffer(&value, kNormalForm, sizeof kNormalForm));
        benchmark::DoNotOptimize(value);
    }
}

void YardstickRun(int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) benchmark::DoNotOptimize(YardstickNormalFormRun(kNormalForm, kStartValue));
}

void EngineNormalize(int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) {
        double value = kStartValue;
        benchmark::DoNotOptimize(
            PFormulaNormalizeBuffer(&value, formulaBlock, sizeof kFormula, normalForm, sizeof normalForm));
        benchmark::DoNotOptimize(value);
    }
}

void YardstickNormalize(int64_t calls) {
    for (int64_t i = 0; i < calls; ++i) {
        double value = kStartValue;
        benchmark::DoNotOptimize(YardstickFormulaNormalize(kFormula, &value, normalForm));
        benchmark::DoNotOptimize(value);
    }
}

template <const char* Text>
void EngineReduce(int64_t calls) {
    char result[kPercStrSymbTextSize];
    for (int64_t i = 0; i < calls; ++i) {
        uint32_t length = sizeof result;
        benchmark::DoNotOptimize(PercStrSymbReduce(Text, result, &length));
        benchmark::DoNotOptimize(result);
    }
}

template <const char* Text>
void YardstickReduceLoop(int64_t calls) {
    char result[32];
    for (int64_t i = 0; i < calls; ++i) {
        benchmark::DoNotOptimize(YardstickSymbolicReduce(Text, kVariables, static_cast<int>(std::size(kVariables)),
                                                         kSymbolicMode, result));
        benchmark::DoNotOptimize(result);
    }
}

void EngineNormalizeText(int64_t calls) {
    char output[22];
    for (int64_t i = 0; i < calls; ++i) {
        uint32_t length = sizeof output;
        benchmark::DoNotOptimize(PercStrNormalizeText(kNormalizeInput, output, &length));
        benchmark::DoNotOptimize(output);
    }
}

// ---- Agreement

bool SameDouble(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

std::string Mismatch(const char* what, double library, double yardstick) {
    char text[160];
    std::snprintf(text, sizeof text, "%s: library %.17g, yardstick %.17g", what, library, yardstick);
    return text;
}

template <const char* Text>
std::string ChainDisagreement() {
    for (int32_t mode : {0, 1, 2}) {
        const double library = Evaluate(Text, mode);
        const double yardstick = YardstickPercentChain(Text, mode);
        if (!SameDouble(library, yardstick)) return Mismatch(Text, library, yardstick);
    }
    return {};
}

std::string RunDisagreement() {
    const double library = Run(kNormalForm, sizeof kNormalForm);
    const double yardstick = YardstickNormalFormRun(kNormalForm, kStartValue);
    return SameDouble(library, yardstick) ? std::string() : Mismatch(kNormalForm, library, yardstick);
}

std::string NormalizeDisagreement() {
    const double library = Normalize();
    const std::string libraryForm = normalForm;
    double yardstick = kStartValue;
    if (!YardstickFormulaNormalize(kFormula, &yardstick, normalForm)) return "the yardstick refuses the formula";
    if (!SameDouble(library, yardstick)) return Mismatch(kFormula, library, yardstick);
    if (libraryForm != normalForm) return "normal forms differ: " + libraryForm + " / " + normalForm;
    return {};
}

template <const char* Text>
std::string ReduceDisagreement() {
    const std::string library = Reduce(Text);
    const std::string yardstick = YardstickReduce(Text);
    return library == yardstick ? std::string() : std::string(Text) + ": " + library + " / " + yardstick;
}

std::string NoDisagreement() { return {}; }

constexpr Case kCases[] = {
    {"PercStrEvaluate/10+5-2", EngineChain<kShortChain>, YardstickChain<kShortChain>, ChainDisagreement<kShortChain>},
    {"PercStrEvaluate/20_characters", EngineChain<kTwentyChain>, YardstickChain<kTwentyChain>,
     ChainDisagreement<kTwentyChain>},
    {"PFormulaRun", EngineRun, YardstickRun, RunDisagreement},
    {"PFormulaNormalize", EngineNormalize, YardstickNormalize, NormalizeDisagreement},
    {"PercStrSymbReduce/max_of_two", EngineReduce<kSymbolicShort>, YardstickReduceLoop<kSymbolicShort>,
     ReduceDisagreement<kSymbolicShort>},
    {"PercStrSymbReduce/94_characters", EngineReduce<kSymbolicLong>, YardstickReduceLoop<kSymbolicLong>,
     ReduceDisagreement<kSymbolicLong>},
    // Hand-written already: the normaliser is its own yardstick.
    {"PercStrNormalizeText", EngineNormalizeText, nullptr, NoDisagreement},
};
static_assert(sizeof kSymbolicLong - 1 == 94);

}  // namespace

std::span<const Case> Cases() { return kCases; }

void PrepareCases() {
    std::memcpy(formulaBlock, kFormula, sizeof kFormula);
    PercStrSymbInitVars(kSymbolicMode);
    for (const YardstickVariable& variable : kVariables) {
        if (PercStrSymbSetVarValue(variable.name, variable.value) != 0) std::abort();
    }
    for (const Case& c : kCases) {
        c.engine(1);
        if (const std::string problem = c.disagreement(); !problem.empty()) {
            std::fprintf(stderr, "%s: the yardstick disagrees with the library: %s\n", c.name, problem.c_str());
            std::exit(1);
        }
    }
}

}  // namespace vrn::bench
