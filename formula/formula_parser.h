// Grammar 3: checks a price formula against the limits of the language,
// applies each operation to the record's value register and has it written
// to the normal form.
#pragma once

#include <cstdint>

#include "formula/record.h"

namespace vrn {

// Parses what PFormulaScanner's current buffer holds. 0 accepted, 1 stopped
// by an error, which record->errorCode, errorPosition and errorLength tell.
// The caller holds PFormulaMutex. Tables that can't be built end it as -2.
[[nodiscard]] int32_t PFormulaParse(PFormulaRecord* record);

// Builds the parser's tables and the scanner's automaton ahead of the first
// parse; false when memory runs out for them (the next call tries again).
[[nodiscard]] bool PFormulaPrepare() noexcept;

// Faults of the grammar's tables (conflicts); empty for a sound grammar.
[[nodiscard]] int PFormulaGrammarProblemCount();

}  // namespace vrn
