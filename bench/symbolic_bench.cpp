#include <benchmark/benchmark.h>

#include <cstring>

#include "symbolic/reduce.h"
#include "symbolic/symbols.h"

namespace {

// 200 characters of nested MIN, MAX, IIF and COALESCE over ten variables.
constexpr char kNested[] =
    "MAX(MIN(Cliente,Articolo,IIF(Listino>5.5,Listino,7)),IIF(ISEMPTY(Sconto),MIN(10,20.75+1,Agente1),"
    "MAX(Pagamento,3)))-COALESCE(Fidelity,Commessa,2)+MIN(IIF(Documento<=4,1,2),MAX(5.125,IIF(NOT 1=2,6,7)))";
static_assert(sizeof kNested - 1 == 200);

void SetUpVariables() {
    vrn::PercStrSymbInitVars(1);
    const char* const values[][2] = {
        {"Cliente", "10+5"}, {"Articolo", "20"}, {"Listino", "5+1"}, {"Sconto", ""},    {"Agente1", "8"},
        {"Pagamento", "4"},  {"Fidelity", ""},   {"Commessa", "3"},  {"Documento", "2"},
    };
    for (const auto& [name, value] : values) {
        if (vrn::PercStrSymbSetVarValue(name, value) != 0) std::abort();
    }
}

void Reduce(benchmark::State& state, const char* text) {
    SetUpVariables();
    char result[vrn::kPercStrSymbTextSize];
    uint32_t length = sizeof result;
    if (vrn::PercStrSymbReduce(text, result, &length) != vrn::kPercStrSymbReduced) {
        state.SkipWithError("the text doesn't reduce");
        return;
    }
    state.SetLabel(result);
    for (auto _ : state) {
        length = sizeof result;
        benchmark::DoNotOptimize(vrn::PercStrSymbReduce(text, result, &length));
        benchmark::DoNotOptimize(result);
    }
}

BENCHMARK_CAPTURE(Reduce, max_of_two_variables, "MAX(Cliente,Articolo)+2");
BENCHMARK_CAPTURE(Reduce, nested_200_characters, kNested);

}  // namespace
