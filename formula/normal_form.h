// The normal form of a formula: the writer that the parser feeds operation by
// operation, and the direct reader that evaluates normal-form text without
// scanner, parser, lock or allocation.
#pragma once

#include <cstdint>

#include "formula/record.h"

namespace vrn {

// Appends one operation and its blank to record->normalForm (NUL-terminated,
// normalFormSize bytes) when writeNormalForm is set. An addition, percentage
// or margin of 0 writes nothing, as it changes nothing; every other operation
// is written whatever its operand, so that the text means what the formula
// meant. An operation that doesn't fit whole is not written at all: errorCode
// becomes -3 and the result is false, so that nothing is lost without a word.
[[nodiscard]] bool PFormulaWriteOp(PFormulaRecord* record, double operand, PFormulaOp kind);

// Output size that the entry points require for a text of `length` bytes:
// (length + 1) / 2 * 3 + 4.
[[nodiscard]] uint32_t PFormulaNormalFormSize(uint32_t length);

// Room that every normal form of a text of `length` bytes fits in, terminator
// included: no operation writes more than three bytes for each byte it reads.
[[nodiscard]] uint32_t PFormulaNormalFormRoom(uint32_t length);

// Evaluates record->text[0, length) on record->value. On success *result gets
// the register and the code is 0; on a failure *result is left alone and the
// code has error -1, length 1 and the offset reached. The text must hold a NUL
// at its end or before, or end where no number can run on.
[[nodiscard]] PFormulaCode PFormulaRun(PFormulaRecord* record, double* result);

// PFormulaRun over a record on the stack, starting from *value (never null),
// which is overwritten on success only. Buffer: the size counts two final NULs.
[[nodiscard]] PFormulaCode PFormulaRunCounted(double* value, const char* text, uint32_t size);
[[nodiscard]] PFormulaCode PFormulaRunBuffer(double* value, const char* text, uint32_t size);
[[nodiscard]] PFormulaCode PFormulaRunText(double* value, const char* text);

}  // namespace vrn
