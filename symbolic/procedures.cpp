// The symbolic family: a client takes PercStrSymbMutex, chooses the mode, sets
// the variables, reduces strings and gives the lock back, one call per step.
#include <cstdint>

#include "frame/procedure.h"
#include "symbolic/reduce.h"
#include "symbolic/symbols.h"

namespace vrn {
namespace {

constexpr uint32_t kDefaultWaitMs = 500;
constexpr uint32_t kNameMax = 40;
constexpr uint32_t kValueMax = 20;
constexpr uint32_t kTextMax = 1001;
constexpr int32_t kSetVarError = -1;
constexpr int32_t kEvalError = -1;

const char kGetMutexParamsMessage[] =
    "vrn_PercStrSymb_GetMutex\nErrore nei parametri: atteso numero di ms di attesa "
    "(tinyint/smallint/int not null, default 500).";
const char kInitParamsMessage[] =
    "vrn_PercStrSymb_Init\nErrore nei parametri: devono essere Integer (modalit\xE0).";
const char kInitNullMessage[] =
    "vrn_PercStrSymb_Init\nBisogna specificare la modalit\xE0: 0 Additiva, 1 Cumulativa-decremento, "
    "2 Cumulativa-incremento.";
const char kInitWrongModeMessage[] =
    "vrn_PercStrSymb_Init\nModalit\xE0 errata: 0 Additiva, 1 Cumulativa-decremento, 2 Cumulativa-incremento.";
const char kSetVarParamsMessage[] =
    "vrn_PercStrSymb_SetVar\nErrore nei parametri: devono essere Char/VarChar (nome), Char/VarChar (valore).";
const char kSetVarNameTooLongFormat[] =
    "vrn_PercStrSymb_SetVar\nIl primo parametro \xE8 troppo lungo rispetto a quanto pu\xF2 gestire la funzione: "
    "%d (max %d).";
const char kSetVarValueTooLongFormat[] =
    "vrn_PercStrSymb_SetVar\nIl secondo parametro \xE8 troppo lungo rispetto a quanto pu\xF2 gestire la funzione: "
    "%d (max %d).";
const char kEvalParamsMessage[] =
    "vrn_PercStrSymb_Eval\nErrore nei parametri: devono essere Char/VarChar, Char/VarChar OUTPUT.";
const char kEvalTextTooLongFormat[] =
    "vrn_PercStrSymb_Eval\nIl primo parametro \xE8 troppo lungo rispetto a quanto gestito dalla funzione: "
    "%d (max %d).";
const char kEvalOutputTooShortFormat[] = "vrn_PercStrSymb_Eval\nIl secondo parametro \xE8 troppo corto: %d (required %d).";
const char kErrorInfoParamsMessage[] =
    "vrn_PercStrSymb_ErrorInfo\nErrore nei parametri: devono essere INTEGER OUTPUT, INTEGER OUTPUT.";

int32_t CompleteWith(SRV_PROC* srvproc, int32_t code) {
    CompleteCall(srvproc);
    return code;
}

// The reduction calls PercStrEvaluate for its comparisons, so scanner 1 must be
// ours meanwhile. The client may hold PercStrSymbMutex already: that is the
// one lock order there is. No time-out: vrn_PercStrEval holds it for microseconds.
int32_t ReduceUnderEvaluatorLock(const char* text, char* result, uint32_t* length) {
    LockGuard evaluator(PercStrMutex, platform::kInfinite);
    return PercStrSymbReduce(text, result, length);
}

int32_t GetMutexCall(SRV_PROC* srvproc) {
    ParamInfo info{};
    if (!JudgeCall(srvproc, {{.typeTest = IsIntegerType, .notNull = true, .optional = true}}, &info)) {
        SendMessage(srvproc, "%s", kGetMutexParamsMessage);
        return 0;
    }
    // -1 from an int is the endless wait.
    const uint32_t wait = srv_rpcparams(srvproc) > 0 ? ReadIntegerParam(srvproc, 1, info) : kDefaultWaitMs;
    return platform::WaitLock(PercStrSymbMutex, wait) == platform::kWaitTimeout ? 0 : 1;
}

int32_t InitCall(SRV_PROC* srvproc) {
    ParamInfo mode{};
    if (!JudgeCall(srvproc, {{IsIntegerType}}, &mode)) {
        SendMessage(srvproc, "%s", kInitParamsMessage);
        return CompleteWith(srvproc, kInvalidArg);
    }
    if (mode.isNull) {
        SendMessage(srvproc, "%s", kInitNullMessage);
        return CompleteWith(srvproc, kInvalidArg);
    }
    const uint32_t value = ReadIntegerParam(srvproc, 1, mode);
    if (value > 2) {
        SendMessage(srvproc, "%s", kInitWrongModeMessage);
        return CompleteWith(srvproc, kInvalidArg);
    }
    PercStrSymbInitVars(static_cast<int32_t>(value));
    return CompleteWith(srvproc, kDone);
}

int32_t SetVarCall(SRV_PROC* srvproc) {
    ParamInfo infos[2]{};
    if (!JudgeCall(srvproc, {{IsCharType}, {IsCharType}}, infos)) {
        SendMessage(srvproc, "%s", kSetVarParamsMessage);
        return CompleteWith(srvproc, kSetVarError);
    }
    const ParamInfo& name = infos[0];
    const ParamInfo& value = infos[1];
    if (name.isNull) return CompleteWith(srvproc, kSetVarError);
    if (name.actualLength > kNameMax) {
        SendMessage(srvproc, kSetVarNameTooLongFormat, static_cast<int>(name.actualLength), static_cast<int>(kNameMax));
        return CompleteWith(srvproc, kSetVarError);
    }
    if (value.actualLength > kValueMax) {
        SendMessage(srvproc, kSetVarValueTooLongFormat, static_cast<int>(value.actualLength),
                    static_cast<int>(kValueMax));
        return CompleteWith(srvproc, kSetVarError);
    }
    char nameText[kNameMax + 1] = {};
    char valueText[kValueMax + 1] = {};
    ReadCharParam(srvproc, 1, name, nameText);
    // A NULL value sets the variable to the empty text.
    if (!value.isNull) ReadCharParam(srvproc, 2, value, valueText);
    return CompleteWith(srvproc, PercStrSymbSetVarValue(nameText, valueText));
}

int32_t EvalCall(SRV_PROC* srvproc) {
    ParamInfo infos[2]{};
    if (!JudgeCall(srvproc, {{IsCharType}, {IsCharType, kOut}}, infos)) {
        SendMessage(srvproc, "%s", kEvalParamsMessage);
        return CompleteWith(srvproc, kEvalError);
    }
    const ParamInfo& text = infos[0];
    const ParamInfo& output = infos[1];
    if (text.isNull) {
        SetOutputText(srvproc, 2, "", 0);
        return CompleteWith(srvproc, kDone);
    }
    if (text.actualLength > kTextMax) {
        SendMessage(srvproc, kEvalTextTooLongFormat, static_cast<int>(text.actualLength), static_cast<int>(kTextMax));
        SetOutputText(srvproc, 2, "", 0);
        return CompleteWith(srvproc, kDone);
    }
    char input[kTextMax + 1] = {};
    ReadCharParam(srvproc, 1, text, input);

    char result[kPercStrSymbTextSize] = {};
    uint32_t count = kPercStrSymbTextSize;
    const int32_t code = ReduceUnderEvaluatorLock(input, result, &count);
    if (count > output.maxLength) {
        // The reduction's code is lost here: the empty output tells the caller.
        SendMessage(srvproc, kEvalOutputTooShortFormat, static_cast<int>(output.maxLength), static_cast<int>(count));
        SetOutputText(srvproc, 2, "", 0);
        return CompleteWith(srvproc, kDone);
    }
    SetOutputText(srvproc, 2, result, count);
    return CompleteWith(srvproc, code);
}

int32_t ErrorInfoCall(SRV_PROC* srvproc) {
    ParamInfo infos[2]{};
    if (!JudgeCall(srvproc, {{IsIntegerType, kOut}, {IsIntegerType, kOut}}, infos)) {
        SendMessage(srvproc, "%s", kErrorInfoParamsMessage);
        return CompleteWith(srvproc, kInvalidArg);
    }
    int32_t position = 0;
    int32_t length = 0;
    PercStrSymbGetErrorInfo(&position, &length);
    SetOutputInteger(srvproc, 1, position);
    SetOutputInteger(srvproc, 2, length);
    return CompleteWith(srvproc, kDone);
}

}  // namespace
}  // namespace vrn

// wait in ms, optional (500; -1 endless). 1 when PercStrSymbMutex is held, 0 when not.
VRN_EXPORT int32_t vrn_PercStrSymb_GetMutex(SRV_PROC* srvproc) { return vrn::GetMutexCall(srvproc); }

// none. 1 when released, 0 when the caller didn't hold it.
VRN_EXPORT int32_t vrn_PercStrSymb_ReleaseMutex(SRV_PROC* /*srvproc*/) {
    return vrn::platform::ReleaseLock(vrn::PercStrSymbMutex) ? 1 : 0;
}

// mode 0, 1 or 2: clears the variables. 0, or 0x80070057.
VRN_EXPORT int32_t vrn_PercStrSymb_Init(SRV_PROC* srvproc) { return vrn::InitCall(srvproc); }

// name, value. 0 stored, 1 no such variable, -1 a wrong call.
VRN_EXPORT int32_t vrn_PercStrSymb_SetVar(SRV_PROC* srvproc) { return vrn::SetVarCall(srvproc); }

// text, plain percentage string OUTPUT. The reduction's code, -1 for a wrong call.
VRN_EXPORT int32_t vrn_PercStrSymb_Eval(SRV_PROC* srvproc) { return vrn::EvalCall(srvproc); }

// position OUTPUT, length OUTPUT of the last failed reduction. 0, or 0x80070057.
VRN_EXPORT int32_t vrn_PercStrSymb_ErrorInfo(SRV_PROC* srvproc) { return vrn::ErrorInfoCall(srvproc); }
