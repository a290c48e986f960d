// Scanner 3: cuts a price formula into tokens for PFormulaParse.
#pragma once

#include <cstdint>

#include "formula/record.h"
#include "percstr/scanner.h"

namespace vrn {

// Token codes beside the bytes themselves (a byte from 0x80 up is negative).
inline constexpr int32_t kTokenRoundUp = 258;          // AE
inline constexpr int32_t kTokenRoundDown = 259;        // AD
inline constexpr int32_t kTokenRoundCommercial = 260;  // AC
inline constexpr int32_t kTokenInteger = 262;          // 1 to 8 digits
inline constexpr int32_t kTokenDecimal = 263;          // within 8 digits, a point, 4 digits
inline constexpr int32_t kTokenBadWord = 264;          // a run of letters no production takes
inline constexpr int32_t kTokenLongInteger = 265;
inline constexpr int32_t kTokenLongDecimal = 266;

// The automaton of its token rules.
[[nodiscard]] const ScanAutomaton& PFormulaAutomaton();

// Its instance of the engine; PFormulaMutex guards it.
extern ScannerEngine PFormulaScanner;

// The next token of PFormulaScanner's current buffer, 0 at the end of the
// input. INTEGER and DECIMAL deliver their number into *value; other tokens
// leave it alone. location moves over each matched text, skipped blanks
// included, and stays put at the end. record isn't used.
[[nodiscard]] int32_t PFormulaNextToken(double* value, TokenLocation* location, PFormulaRecord* record);

}  // namespace vrn
