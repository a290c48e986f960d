#include "bench/procedures.h"

#include <benchmark/benchmark.h>

#include <vector>

#include "host/host.h"

// The exports, linked directly: the server resolves a procedure once, not at
// every call (a lookup by name takes the dynamic loader's lock).
extern "C" {
int32_t vrn_PercStrEval(SRV_PROC* srvproc);
int32_t vrn_PercStrNormalize(SRV_PROC* srvproc);
int32_t vrn_PFormula_Eval(SRV_PROC* srvproc);
int32_t vrn_PFormula_Normalize(SRV_PROC* srvproc);
}

namespace vrn::bench {

namespace {

struct ProcedureCase {
    const char* name;
    int32_t (*procedure)(SRV_PROC* srvproc);
    std::vector<host::Param> (*params)();
    bool threads;  // also at two threads: the procedure takes no lock
};

const ProcedureCase kProcedures[] = {
    {"vrn_PercStrEval", vrn_PercStrEval,
     [] {
         return std::vector{host::VarChar("10+5-2", 20), host::Output(host::Float(0)), host::Int(1)};
     },
     false},
    {"vrn_PercStrNormalize", vrn_PercStrNormalize,
     [] { return std::vector{host::VarChar("12,5 2.5-3+4,75 10+66"), host::Output(host::VarChar("", 30))}; },
     true},
    {"vrn_PFormula_Eval", vrn_PFormula_Eval,
     [] { return std::vector{host::VarChar("=100 +22% -5& AC(2) "), host::Output(host::Float(100))}; },
     true},
    {"vrn_PFormula_Normalize", vrn_PFormula_Normalize,
     [] { return std::vector{host::VarChar("=100 22% -5& *2 /4 AD(-1)"), host::Output(host::VarChar("", 100))}; },
     false},
};

void CallProcedure(benchmark::State& state, const ProcedureCase* procedure) {
    const std::vector<host::Param> params = procedure->params();
    for (auto _ : state) {
        const host::CallResult result = host::Invoke(procedure->procedure, params);
        if (result.returnCode != 0) state.SkipWithError("the call failed");
    }
    state.SetItemsProcessed(state.iterations());  // summed over the threads: calls per second
}

}  // namespace

void RegisterProcedureBenchmarks() {
    for (const ProcedureCase& procedure : kProcedures) {
        auto* benchmark = benchmark::RegisterBenchmark(procedure.name, CallProcedure, &procedure);
        benchmark->UseRealTime()->Threads(1);
        if (procedure.threads) benchmark->Threads(2);
    }
}

}  // namespace vrn::bench
