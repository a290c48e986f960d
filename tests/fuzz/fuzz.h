// What the fuzz targets share: the exports, called through the host stand-in
// as the server calls them, and a broken property as an abort (kept as a crash).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "frame/srv.h"
#include "host/host.h"

// Every export; the params target and scripts/fuzz-seeds.py index this list.
#define VRN_FUZZ_EXPORTS(X)                                                                                     \
    X(vrn_PercStrNormalize) X(vrn_PercStrEval) X(vrn_PercStrSymb_GetMutex) X(vrn_PercStrSymb_ReleaseMutex)     \
    X(vrn_PercStrSymb_Init) X(vrn_PercStrSymb_SetVar) X(vrn_PercStrSymb_Eval) X(vrn_PercStrSymb_ErrorInfo)      \
    X(vrn_PFormula_Eval) X(vrn_PFormula_Normalize) X(vrn_CountBitsOn) X(vrn_Debugout) X(vrn_GetFolderPath)     \
    X(vrn_GetSrvInfo) X(vrn_StrToFile) X(vrn_Wts_TaskCreate) X(vrn_Wts_TaskDelete) X(vrn_Wts_TaskRun)          \
    X(vrn_Wts_TaskTerminate) X(vrn_Wts_TaskGetFlags) X(vrn_Wts_TaskGetStatus) X(vrn_Wts_TaskSetFlags)          \
    X(vrn_Wts_TaskSetMaxRunTime) X(vrn_Wts_TaskEnableAll) X(vrn_Wts_TaskDisableAll) X(vrn_Wts_TaskEnum)        \
    X(vrn_Wts_TaskInfo) X(vrn_Wts_TriggerCreate) X(vrn_Wts_TriggerUpdate) X(vrn_Wts_TriggerDelete)             \
    X(vrn_Wts_TriggerEnum)

#define VRN_FUZZ_DECLARE(name) int32_t name(SRV_PROC* srvproc);
extern "C" {
VRN_FUZZ_EXPORTS(VRN_FUZZ_DECLARE)
}
#undef VRN_FUZZ_DECLARE

namespace vrn::fuzz {

using Procedure = int32_t (*)(SRV_PROC*);

// Each target's own: one input, the library loaded and HOME at a fresh
// temporary folder. -1 keeps an input out of the corpus.
int RunOne(const std::string& input);

inline host::CallResult Call(Procedure procedure, std::vector<host::Param> params) {
    return host::Invoke(procedure, std::move(params));
}

// The last text or float delivered to OUTPUT parameter n; false when none was.
bool OutputText(const host::CallResult& result, int n, std::string* text);
bool OutputFloat(const host::CallResult& result, int n, double* value);

// The same double, or both not a number; +0 and -0 count as equal.
bool SameValue(double a, double b);

// A broken property: prints what and the input, then aborts.
[[noreturn]] void Broken(const std::string& what);

}  // namespace vrn::fuzz
