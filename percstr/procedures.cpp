// The percentage-string procedures, one section each.
#include <algorithm>
#include <cstdint>

#include "frame/procedure.h"
#include "percstr/evaluate.h"
#include "percstr/normalize.h"

namespace vrn {
namespace {

// ---- vrn_PercStrNormalize ---------------------------------------------------

constexpr int32_t kNormalizeParamError = -1;
constexpr uint32_t kNormalizeMaxText = 21;  // the longest text the normaliser is given and gives
constexpr uint32_t kNormalizeBufferSize = kNormalizeMaxText + 1;

// NULL and refused lengths answer with the empty text, not with NULL.
int32_t AnswerEmptyNormalized(SRV_PROC* srvproc) {
    SetOutputText(srvproc, 2, "", 0);
    CompleteCall(srvproc);
    return kDone;
}

int32_t PercStrNormalizeCall(SRV_PROC* srvproc) {
    ParamInfo params[2]{};
    if (!JudgeCall(srvproc, {{IsCharType}, {IsCharType, kOut}}, params)) {
        SendMessage(srvproc,
                    "vrn_PercStrNormalize\nErrore nei parametri: devono essere Char/VarChar, Char/VarChar OUTPUT.");
        CompleteCall(srvproc);
        return kNormalizeParamError;
    }
    const ParamInfo& text = params[0];
    const ParamInfo& result = params[1];
    if (text.isNull) return AnswerEmptyNormalized(srvproc);
    if (text.actualLength > kNormalizeMaxText) {
        SendMessage(srvproc, "vrn_PercStrNormalize\nIl primo parametro \xE8" " troppo lungo: %d (max %d).",
                    static_cast<int>(text.actualLength), static_cast<int>(kNormalizeMaxText));
        return AnswerEmptyNormalized(srvproc);
    }
    if (text.actualLength > result.maxLength) {
        SendMessage(srvproc, "vrn_PercStrNormalize\nIl secondo parametro \xE8" " troppo corto: %d (max %d).",
                    static_cast<int>(text.actualLength), static_cast<int>(result.maxLength));
        return AnswerEmptyNormalized(srvproc);
    }

    char input[kNormalizeBufferSize];
    ReadCharParam(srvproc, 1, text, input);
    char output[kNormalizeBufferSize];
    uint32_t length = sizeof output;
    const int32_t errors = PercStrNormalizeText(input, output, &length);

    // Normalising may lengthen a text (.5 gives 0.5): cut it to the variable, uncounted.
    SetOutputText(srvproc, 2, output, std::min(length, result.maxLength));
    CompleteCall(srvproc);
    return errors;
}

// ---- vrn_PercStrEval --------------------------------------------------------

constexpr uint32_t kEvalMaxText = 20;
constexpr uint32_t kPercStrWaitMilliseconds = 500;

int32_t AnswerValue(SRV_PROC* srvproc, double value) {
    SetOutputFloat(srvproc, 2, value);
    CompleteCall(srvproc);
    return kDone;
}

// Scanner 1 serves one text at a time: the lock is held around the
// evaluation only, never while the host is called.
bool EvaluateLocked(const char* text, int32_t mode, double* value) {
    LockGuard guard(PercStrMutex, kPercStrWaitMilliseconds);
    if (!guard.Obtained()) return false;
    if (PercStrEvaluate(text, value, mode) != kPercStrEvaluated) *value = PercStrStartingValue(mode);
    return true;
}

int32_t PercStrEvalCall(SRV_PROC* srvproc) {
    ParamInfo params[3]{};
    if (!JudgeCall(srvproc, {{IsCharType}, {IsFloatType, kOut, 8}, {IsIntegerType}}, params)) {
        SendMessage(srvproc, "vrn_PercStrEval\nErrore nei parametri: devono essere Char / Float OUTPUT / Integer.");
        CompleteCall(srvproc);
        return kInvalidArg;
    }
    const int32_t mode = static_cast<int32_t>(ReadIntegerParam(srvproc, 3, params[2]));  // NULL reads as 0
    const ParamInfo& text = params[0];
    if (text.isNull) return AnswerValue(srvproc, PercStrStartingValue(mode));
    if (text.actualLength > kEvalMaxText) {
        SendMessage(srvproc, "vrn_PercStrEval\nIl parametro 1 \xE8" " troppo lungo: %d (max %d).",
                    static_cast<int>(text.actualLength), static_cast<int>(kEvalMaxText));
        return AnswerValue(srvproc, PercStrStartingValue(mode));
    }

    char input[kEvalMaxText + 1];
    ReadCharParam(srvproc, 1, text, input);
    double value = PercStrStartingValue(mode);
    if (!EvaluateLocked(input, mode, &value)) {
        SendMessage(srvproc, "vrn_PercStrEval\nTimeout sul Mutex.");
        return kLockTimeout;  // and no completion
    }
    return AnswerValue(srvproc, value);
}

}  // namespace
}  // namespace vrn

// text, normalised text OUTPUT. Returns the number of defects thrown away, -1 for a wrong call.
VRN_EXPORT int32_t vrn_PercStrNormalize(SRV_PROC* srvproc) { return vrn::PercStrNormalizeCall(srvproc); }

// text, result OUTPUT, mode. A text that isn't a percentage string gives the
// mode's starting value, like NULL. 258 when PercStrMutex isn't obtained in
// 500 ms, 0x80070057 for a wrong call.
VRN_EXPORT int32_t vrn_PercStrEval(SRV_PROC* srvproc) { return vrn::PercStrEvalCall(srvproc); }
