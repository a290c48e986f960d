#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "formula/entry_points.h"
#include "formula/normal_form.h"
#include "frame/procedure.h"
#include "host/host.h"

namespace {

constexpr char kNormalForm[] = "=100 +22% -5& *2 /4 AD(-1) ";
constexpr char kFormula[] = "=100 22% -5& *2 /4 AD(-1)";

// The text with its two final NULs, as vrn_PFormula_Eval hands it over.
std::vector<char> Block(const char* text) {
    std::vector<char> block(std::strlen(text) + 2, '\0');
    std::memcpy(block.data(), text, block.size() - 2);
    return block;
}

void ReaderOnNormalForm(benchmark::State& state) {
    const std::vector<char> block = Block(kNormalForm);
    const auto size = static_cast<uint32_t>(block.size());
    for (auto _ : state) {
        double value = 100;
        benchmark::DoNotOptimize(vrn::PFormulaRunBuffer(&value, block.data(), size));
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(ReaderOnNormalForm);

// Scanner and parser with the normal form written, under the lock as the procedure takes it.
void ParserOnFormula(benchmark::State& state) {
    std::vector<char> block = Block(kFormula);
    const auto size = static_cast<uint32_t>(block.size());
    std::vector<char> normalForm(vrn::PFormulaNormalFormRoom(size));
    for (auto _ : state) {
        double value = 100;
        const vrn::LockGuard lock(vrn::PFormulaMutex, 500);
        benchmark::DoNotOptimize(vrn::PFormulaNormalizeBuffer(&value, block.data(), size, normalForm.data(),
                                                              static_cast<uint32_t>(normalForm.size())));
    }
}
BENCHMARK(ParserOnFormula);

const vrn::host::Library& Lib() {
    static const vrn::host::Library library(vrn::host::DefaultLibraryPath());
    return library;
}

// A whole call through the host stand-in: parameters built, judged, read, answered.
void EvalProcedure(benchmark::State& state) {
    const vrn::host::Library& library = Lib();
    for (auto _ : state) {
        const vrn::host::CallResult result = library.Call(
            "vrn_PFormula_Eval", {vrn::host::VarChar(kNormalForm), vrn::host::Output(vrn::host::Float(100))});
        benchmark::DoNotOptimize(result.returnCode);
    }
    state.SetItemsProcessed(state.iterations());  // summed over the threads: calls per second
}
BENCHMARK(EvalProcedure)->Threads(1)->Threads(2)->UseRealTime();

void NormalizeProcedure(benchmark::State& state) {
    const vrn::host::Library& library = Lib();
    for (auto _ : state) {
        const vrn::host::CallResult result = library.Call(
            "vrn_PFormula_Normalize", {vrn::host::VarChar(kFormula), vrn::host::Output(vrn::host::VarChar("", 100))});
        benchmark::DoNotOptimize(result.returnCode);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(NormalizeProcedure)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace
