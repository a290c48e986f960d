// The percentage-string procedures, one section each.
#include <algorithm>
#include <cstdint>

#include "frame/procedure.h"
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
    if (!JudgeCall(srvproc, {{IsCharType, false}, {IsCharType, true}}, params)) {
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

}  // namespace
}  // namespace vrn

// text, normalised text OUTPUT. Returns the number of defects thrown away, -1 for a wrong call.
VRN_EXPORT int32_t vrn_PercStrNormalize(SRV_PROC* srvproc) { return vrn::PercStrNormalizeCall(srvproc); }
