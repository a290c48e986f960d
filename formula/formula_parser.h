// Grammar 3: checks a price formula against the limits of the language,
// applies each operation to the record's value register and has it written
// to the normal form.
#pragma once

#include <cstdint>

#include "formula/record.h"

namespace vrn {

// Parses what PFormulaScanner's current buffer holds. 0 accepted, 1 stopped
// by an error, which record->errorCode, errorPosition and errorLength tell.
// The caller holds PFormulaMutex.
[[nodiscard]] int32_t PFormulaParse(PFormulaRecord* record);

// Faults of the grammar's tables (conflicts); empty for a sound grammar.
[[nodiscard]] int PFormulaGrammarProblemCount();

}  // namespace vrn
