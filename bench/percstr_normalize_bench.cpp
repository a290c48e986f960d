#include <benchmark/benchmark.h>

#include "percstr/normalize.h"

namespace {

void NormalizeText(benchmark::State& state, const char* input) {
    char output[22];
    for (auto _ : state) {
        uint32_t length = sizeof output;
        benchmark::DoNotOptimize(vrn::PercStrNormalizeText(input, output, &length));
        benchmark::DoNotOptimize(output);
    }
}

BENCHMARK_CAPTURE(NormalizeText, short_text, "10,5+5");
BENCHMARK_CAPTURE(NormalizeText, longest_text, "12,5 2.5-3+4,75 10+66");

}  // namespace
