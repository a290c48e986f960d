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

void ClearFault(VrnPgFault* fault) { *fault = VrnPgFault{-1, 0, 0, -1, kVrnPgTokenOther}; }

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

// ---- Symbolic refusals: what the token at the error is ----------------------

bool IsLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool IsNameByte(char c) { return IsLetter(c) || (c >= '0' && c <= '9'); }
char Folded(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameFolded(const char* a, size_t length, const char* b) {
    for (size_t i = 0; i < length; ++i) {
        if (b[i] == '\0' || Folded(a[i]) != Folded(b[i])) return false;
    }
    return b[length] == '\0';
}

// The scanner takes a name from the first letter of a run of name bytes to the
// run's end (digits in front are a number). The error values at the end of
// the text cover the last byte alone, which may lie inside a name.
bool IsWholeName(const char* text, size_t textLength, size_t position, size_t length) {
    if (length == 0 || position + length > textLength || !IsLetter(text[position])) return false;
    for (size_t i = position; i < position + length; ++i) {
        if (!IsNameByte(text[i])) return false;
    }
    if (position + length < textLength && IsNameByte(text[position + length])) return false;
    for (size_t i = position; i > 0 && IsNameByte(text[i - 1]); --i) {
        if (IsLetter(text[i - 1])) return false;
    }
    return true;
}

int32_t TokenKind(const char* text, size_t position, size_t length) {
    static const char* const kKeywords[] = {"NOT",   "MIN",    "MAX",  "IIF",     "ISEMPTY",
                                            "EMPTY", "ISZERO", "ZERO", "COALESCE"};
    const char* name = text + position;
    if (!IsWholeName(text, strlen(text), position, length)) return kVrnPgTokenOther;
    for (const char* keyword : kKeywords) {
        if (SameFolded(name, length, keyword)) return kVrnPgTokenOther;
    }
    for (const vrn::PercStrSymbVar& var : vrn::PercStrSymbVars) {
        if (SameFolded(name, length, var.name)) return var.isSet ? kVrnPgTokenOther : kVrnPgTokenUnsetVariable;
    }
    return kVrnPgTokenNoVariable;
}

// The engine's variables, mode, result and error values are process state:
// each call starts from and leaves them cleared.
void ClearSymbolicState() {
    vrn::PercStrSymbInitVars(0);
    vrn::PercStrSymbResult.text[0] = '\0';
    vrn::PercStrSymbErrorPos = 0;
    vrn::PercStrSymbErrorLen = 0;
}

// A text overflow records no position: a mark that survives the reduction tells it apart.
constexpr uint64_t kNoErrorMark = UINT64_MAX;

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

    vrn::PercStrSymbErrorPos = kNoErrorMark;
    uint32_t capacity = VRN_PG_SYMB_RESULT_SIZE;
    const int32_t code = vrn::PercStrSymbReduce(text, result, &capacity);
    if (code == vrn::kPercStrSymbReduced) {
        *length = capacity;
        return kVrnPgDone;
    }
    if (code == vrn::kPercStrSymbNoBuffer) return kVrnPgNoMemory;
    if (code != vrn::kPercStrSymbFailed) return kVrnPgFailed;  // 22 bytes always hold the result
    if (vrn::PercStrSymbErrorPos == kNoErrorMark) return kVrnPgOverflow;
    fault->position = static_cast<uint32_t>(vrn::PercStrSymbErrorPos);
    fault->length = static_cast<uint32_t>(vrn::PercStrSymbErrorLen);
    fault->token = TokenKind(text, fault->position, fault->length);
    return kVrnPgRefused;
}

int32_t FormulaOutcome(vrn::PFormulaCode code, VrnPgFault* fault) {
    if (code == 0) return kVrnPgDone;
    const int32_t number = vrn::PFormulaErrorInfo(code, &fault->position, &fault->length, nullptr);
    if (number == vrn::kPFormulaScanBuffer) return kVrnPgNoMemory;  // the blocks always end in two NULs
    fault->number = number;
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
