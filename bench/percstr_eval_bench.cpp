#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

#include "host/host.h"
#include "percstr/evaluate.h"
#include "percstr/parser.h"
#include "percstr/percstr_scanner.h"

namespace {

// Blocks the scanner and the parser's stacks take: a short text should cost
// the scan buffer's two blocks and no stack block.
long scanBlocks = 0;
long stackBlocks = 0;

void* CountingScanAllocate(size_t bytes) {
    ++scanBlocks;
    return std::malloc(bytes);
}

void* CountingStackAllocate(size_t bytes) {
    ++stackBlocks;
    return std::malloc(bytes);
}

void Evaluate(benchmark::State& state, const char* text) {
    vrn::PercStrScanner.SetAllocator(CountingScanAllocate, std::free);
    vrn::ParserMemory::allocate = CountingStackAllocate;
    double value = 0;
    (void)vrn::PercStrEvaluate(text, &value, 1);  // builds the tables
    scanBlocks = stackBlocks = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(vrn::PercStrEvaluate(text, &value, 1));
        benchmark::DoNotOptimize(value);
    }
    state.counters["scan_blocks"] = benchmark::Counter(static_cast<double>(scanBlocks), benchmark::Counter::kAvgIterations);
    state.counters["stack_blocks"] = benchmark::Counter(static_cast<double>(stackBlocks), benchmark::Counter::kAvgIterations);
    vrn::PercStrScanner.SetAllocator(nullptr, nullptr);
    vrn::ParserMemory::allocate = std::malloc;
}

BENCHMARK_CAPTURE(Evaluate, short_text, "10+5-2");
BENCHMARK_CAPTURE(Evaluate, twenty_characters, "12.5+7.5-(2.25+1)-.5");

void WholeCall(benchmark::State& state) {
    const vrn::host::Library library(vrn::host::DefaultLibraryPath());
    for (auto _ : state) {
        benchmark::DoNotOptimize(library.Call(
            "vrn_PercStrEval",
            {vrn::host::VarChar("10+5-2", 20), vrn::host::Output(vrn::host::Float(0)), vrn::host::Int(1)}));
    }
}

BENCHMARK(WholeCall);

}  // namespace
