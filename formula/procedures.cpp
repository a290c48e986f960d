// The price-formula procedures, one section each. Neither completes the call
// itself: the host closes it.
#include <cstdint>
#include <cstring>

#include "formula/entry_points.h"
#include "formula/normal_form.h"
#include "formula/record.h"
#include "frame/platform.h"
#include "frame/procedure.h"

namespace vrn {
namespace {

using platform::HeapPtr;

constexpr uint32_t kFormulaLockWait = 500;

// A cleared block for the text of parameter n with two NULs behind it, as
// the formula engine wants it; null when the heap refuses.
HeapPtr<char> ReadFormulaBlock(SRV_PROC* srvproc, int n, const ParamInfo& info, uint32_t* size) {
    *size = info.actualLength + 2;
    HeapPtr<char> block(static_cast<char*>(platform::HeapAllocCleared(*size)));
    if (block) (void)GetParam(srvproc, n, nullptr, block.get());
    return block;
}

HeapPtr<char> AllocateCleared(uint32_t size) { return HeapPtr<char>(static_cast<char*>(platform::HeapAllocCleared(size))); }

// The error's number, position (1-based for the user) and length, in the
// procedure's own words; the error number is the return code.
int32_t SendFormulaError(SRV_PROC* srvproc, const char* format, PFormulaCode code) {
    uint32_t position = 0, length = 0;
    const int32_t number = PFormulaErrorInfo(code, &position, &length, nullptr);
    SendMessage(srvproc, format, number, static_cast<int>(position + 1), static_cast<int>(length));
    return number;
}

// ---- vrn_PFormula_Eval ------------------------------------------------------

int32_t SendEvalError(SRV_PROC* srvproc, PFormulaCode code) {
    return SendFormulaError(srvproc, "vrn_PFormula_Eval\nErrore %d (pos %d, len %d) in valutazione della formula.",
                            code);
}

int32_t PFormulaEvalCall(SRV_PROC* srvproc) {
    ParamInfo params[2]{};
    if (!JudgeCall(srvproc, {{IsCharType}, {IsFloatType, kOut, 8}}, params)) {
        SendMessage(srvproc, "vrn_PFormula_Eval\nErrore nei parametri: devono essere Char / Float OUTPUT.");
        return kInvalidArg;
    }
    double value = 0.0;
    if (!params[1].isNull && params[1].actualLength <= sizeof value) (void)GetParam(srvproc, 2, nullptr, &value);

    if (!params[0].isNull) {
        uint32_t size = 0;
        const HeapPtr<char> block = ReadFormulaBlock(srvproc, 1, params[0], &size);
        if (!block) return SendEvalError(srvproc, PFormulaMakeCode(kPFormulaScanBuffer, 0, 0));
        // The end lies behind both NULs: a NUL ends the text between operations.
        const PFormulaCode code = PFormulaRunBuffer(&value, block.get(), size);
        if (code != 0) return SendEvalError(srvproc, code);
    }
    SetOutputFloat(srvproc, 2, value);
    return kDone;
}

// ---- vrn_PFormula_Normalize -------------------------------------------------

int32_t SendNormalizeError(SRV_PROC* srvproc, PFormulaCode code) {
    return SendFormulaError(srvproc, "vrn_PFormula_Normalize\nErrore %d (pos %d, len %d) nella formula.", code);
}

int32_t PFormulaNormalizeCall(SRV_PROC* srvproc) {
    ParamInfo params[2]{};
    if (!JudgeCall(srvproc, {{IsCharType}, {IsCharType, kOut}}, params)) {
        SendMessage(srvproc, "vrn_PFormula_Normalize\nErrore nei parametri: devono essere Char / Char Output.");
        return kInvalidArg;
    }
    // A NULL text comes with length 0 and is parsed as the empty text.
    uint32_t size = 0;
    const HeapPtr<char> block = ReadFormulaBlock(srvproc, 1, params[0], &size);
    // More than the entry point asks for: every formula it accepts gets its whole normal form.
    const uint32_t capacity = PFormulaNormalFormRoom(size);
    const HeapPtr<char> normalForm = AllocateCleared(capacity);
    if (!block || !normalForm) return SendNormalizeError(srvproc, PFormulaMakeCode(kPFormulaScanBuffer, 0, 0));

    PFormulaCode code;
    {
        const LockGuard lock(PFormulaMutex, kFormulaLockWait);
        if (!lock.Obtained()) {
            SendMessage(srvproc, "vrn_PFormula_Normalize\nTimeout sul Mutex.");
            return kLockTimeout;
        }
        code = PFormulaNormalizeBuffer(nullptr, block.get(), size, normalForm.get(), capacity);
    }
    if (code != 0) return SendNormalizeError(srvproc, code);

    const uint32_t length = static_cast<uint32_t>(strnlen(normalForm.get(), capacity));
    if (params[1].maxLength < length) {
        SendMessage(srvproc, "vrn_PFormula_Normalize\nErrore il parametro di output \xE8" " troppo corto.");
        return kInvalidArg;
    }
    SetOutputText(srvproc, 2, normalForm.get(), length);
    return kDone;
}

}  // namespace
}  // namespace vrn

// normal form, value OUTPUT (in: the start, NULL as 0). Returns 0, the formula's
// error number, or 0x80070057 for a wrong call.
VRN_EXPORT int32_t vrn_PFormula_Eval(SRV_PROC* srvproc) { return vrn::PFormulaEvalCall(srvproc); }

// formula, normal form OUTPUT. Returns 0, the formula's error number, 258 when
// the lock wasn't obtained, or 0x80070057 for a wrong call or a short output.
VRN_EXPORT int32_t vrn_PFormula_Normalize(SRV_PROC* srvproc) { return vrn::PFormulaNormalizeCall(srvproc); }
