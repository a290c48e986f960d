// The engines behind the server's functions. Every call ends here: whatever
// C++ throws is caught before it could reach the server, whose errors jump
// over destructors.
#include "pg/engines.h"

#include <cstdint>
#include <cstring>
#include <new>

#include "formula/entry_points.h"
#include "formula/normal_form.h"
#include "formula/record.h"
#include "percstr/evaluate.h"
#include "percstr/normalize.h"
#include "symbolic/reduce.h"
#include "symbolic/symbols.h"

namespace {

// A refusal of the percentage languages is a syntax error, told as the formula's is.
void ClearFault(VrnPgFault* fault) {
    *fault = VrnPgFault{vrn::PFormulaErrorReason(vrn::kPFormulaSyntax), 0, 0, -1, kVrnPgTokenOther};
}

template <typename Work>
int32_t Guarded(VrnPgFault* fault, Work work) noexcept {
    ClearFault(fault);
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return kVrnPgNoMemory;
    } catch (...) {
        return kVrnPgFailed;
    }
}

// The engine's variables, mode, result and error values are process state:
// each call starts from and leaves them cleared.
void ClearSymbolicState() {
    vrn::PercStrSymbInitVars(0);
    vrn::PercStrSymbResult.text[0] = '\0';
    vrn::PercStrSymbErrorPos = 0;
    vrn::PercStrSymbErrorLen = 0;
}

int32_t SetVariables(const VrnPgSymbVar* vars, int32_t count, VrnPgFault* fault) {
    for (int32_t i = 0; i < count; ++i) {
        fault->item = i;
        // Names fold case, so two keys may name one variable.
        if (vrn::PercStrSymbFindVar(vars[i].name) != nullptr) return kVrnPgVariableTwice;
        if (vrn::PercStrSymbSetVarValue(vars[i].name, vars[i].value) != 0) return kVrnPgUnknownVariable;
    }
    fault->item = -1;
    return kVrnPgDone;
}

int32_t Reduce(const char* text, int32_t mode, const VrnPgSymbVar* vars, int32_t count, char* result,
               uint32_t* length, VrnPgFault* fault) {
    *length = 0;
    result[0] = '\0';
    vrn::PercStrSymbInitVars(mode);
    const int32_t set = SetVariables(vars, count, fault);
    if (set != kVrnPgDone) return set;

    uint32_t capacity = VRN_PG_SYMB_RESULT_SIZE;
    vrn::PercStrSymbStop stop = vrn::PercStrSymbStop::kNone;
    const int32_t code = vrn::PercStrSymbReduce(text, result, &capacity, &stop);
    if (code == vrn::kPercStrSymbReduced) {
        *length = capacity;
        return kVrnPgDone;
    }
    if (code == vrn::kPercStrSymbNoBuffer) return kVrnPgNoMemory;
    if (code != vrn::kPercStrSymbFailed) return kVrnPgFailed;  // 22 bytes always hold the result
    switch (stop) {
        case vrn::PercStrSymbStop::kOverflow: return kVrnPgOverflow;
        case vrn::PercStrSymbStop::kNoMemory: return kVrnPgNoMemory;
        case vrn::PercStrSymbStop::kUnsetVariable: fault->token = kVrnPgTokenUnsetVariable; break;
        case vrn::PercStrSymbStop::kNoVariable: fault->token = kVrnPgTokenNoVariable; break;
        case vrn::PercStrSymbStop::kSyntax: break;
        case vrn::PercStrSymbStop::kNone: return kVrnPgFailed;
    }
    fault->position = static_cast<uint32_t>(vrn::PercStrSymbErrorPos);
    fault->length = static_cast<uint32_t>(vrn::PercStrSymbErrorLen);
    return kVrnPgRefused;
}

int32_t FormulaOutcome(vrn::PFormulaCode code, VrnPgFault* fault) {
    if (code == 0) return kVrnPgDone;
    const int32_t number = vrn::PFormulaErrorInfo(code, &fault->position, &fault->length, nullptr);
    if (number == vrn::kPFormulaScanBuffer) return kVrnPgNoMemory;  // the blocks always end in two NULs
    fault->reason = vrn::PFormulaErrorReason(number);
    return kVrnPgRefused;
}

}  // namespace

extern "C" {

int32_t VrnPgPercStrNormalize(const char* text, char* normalized, uint32_t* length, int32_t* defects) {
    VrnPgFault fault;
    return Guarded(&fault, [&] {
        *length = VRN_PG_NORMALIZE_MAX + 1;
        *defects = vrn::PercStrNormalizeText(text, normalized, length);
        return kVrnPgDone;
    });
}

int32_t VrnPgPercStrEvaluate(const char* text, int32_t mode, double* value, VrnPgFault* fault) {
    return Guarded(fault, [&] {
        int32_t position = 0, length = 0;
        const int32_t result = vrn::PercStrEvaluateAt(text, value, mode, &position, &length);
        if (result == vrn::kPercStrEvaluated) return kVrnPgDone;
        if (result == vrn::kPercStrNoBuffer) return kVrnPgNoMemory;
        fault->position = static_cast<uint32_t>(position);
        fault->length = static_cast<uint32_t>(length);
        return kVrnPgRefused;
    });
}

int32_t VrnPgPercStrSymbReduce(const char* text, int32_t mode, const VrnPgSymbVar* vars, int32_t count,
                               char* result, uint32_t* length, VrnPgFault* fault) {
    const int32_t outcome = Guarded(fault, [&] { return Reduce(text, mode, vars, count, result, length, fault); });
    ClearSymbolicState();
    return outcome;
}

uint32_t VrnPgPFormulaNormalFormRoom(uint32_t size) { return vrn::PFormulaNormalFormRoom(size); }

int32_t VrnPgPFormulaNormalize(char* block, uint32_t size, char* normalForm, uint32_t* length, VrnPgFault* fault) {
    return Guarded(fault, [&] {
        const uint32_t room = vrn::PFormulaNormalFormRoom(size);
        const int32_t outcome =
            FormulaOutcome(vrn::PFormulaNormalizeBuffer(nullptr, block, size, normalForm, room), fault);
        *length = outcome == kVrnPgDone ? static_cast<uint32_t>(strnlen(normalForm, room)) : 0;
        return outcome;
    });
}

int32_t VrnPgPFormulaRun(const char* block, uint32_t size, double* value, VrnPgFault* fault) {
    return Guarded(fault, [&] { return FormulaOutcome(vrn::PFormulaRunBuffer(value, block, size), fault); });
}

}  // extern "C"
