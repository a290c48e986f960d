// What the fuzz targets share: the library's exports, linked in, called
// through the host stand-in as the server calls them, and the way a target
// reports a broken property (an abort, which libFuzzer keeps as a crash).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "frame/srv.h"
#include "host/host.h"

extern "C" {
int32_t vrn_PercStrNormalize(SRV_PROC* srvproc);
int32_t vrn_PercStrEval(SRV_PROC* srvproc);
int32_t vrn_PercStrSymb_GetMutex(SRV_PROC* srvproc);
int32_t vrn_PercStrSymb_ReleaseMutex(SRV_PROC* srvproc);
int32_t vrn_PercStrSymb_Init(SRV_PROC* srvproc);
int32_t vrn_PercStrSymb_SetVar(SRV_PROC* srvproc);
int32_t vrn_PercStrSymb_Eval(SRV_PROC* srvproc);
int32_t vrn_PercStrSymb_ErrorInfo(SRV_PROC* srvproc);
int32_t vrn_PFormula_Eval(SRV_PROC* srvproc);
int32_t vrn_PFormula_Normalize(SRV_PROC* srvproc);
int32_t vrn_CountBitsOn(SRV_PROC* srvproc);
int32_t vrn_Debugout(SRV_PROC* srvproc);
int32_t vrn_GetFolderPath(SRV_PROC* srvproc);
int32_t vrn_GetSrvInfo(SRV_PROC* srvproc);
int32_t vrn_StrToFile(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskCreate(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskDelete(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskRun(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskTerminate(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskGetFlags(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskGetStatus(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskSetFlags(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskSetMaxRunTime(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskEnableAll(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskDisableAll(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskEnum(SRV_PROC* srvproc);
int32_t vrn_Wts_TaskInfo(SRV_PROC* srvproc);
int32_t vrn_Wts_TriggerCreate(SRV_PROC* srvproc);
int32_t vrn_Wts_TriggerUpdate(SRV_PROC* srvproc);
int32_t vrn_Wts_TriggerDelete(SRV_PROC* srvproc);
int32_t vrn_Wts_TriggerEnum(SRV_PROC* srvproc);
}

namespace vrn::fuzz {

using Procedure = int32_t (*)(SRV_PROC*);

// What the library's load does: the locks. Also points HOME at a fresh
// temporary folder, so that the folders a call makes land there.
void StartLibrary();

// One call, as the server makes it.
host::CallResult Call(Procedure procedure, std::vector<host::Param> params);

// The last text or float delivered to OUTPUT parameter n; false when none was.
bool OutputText(const host::CallResult& result, int n, std::string* text);
bool OutputFloat(const host::CallResult& result, int n, double* value);

// The same double, or both not a number; +0 and -0 count as equal.
bool SameValue(double a, double b);

// A broken property: prints what and the input, then aborts.
[[noreturn]] void Broken(const std::string& what, const uint8_t* data, size_t size);

}  // namespace vrn::fuzz
