// Scanner 3: cuts a price formula into tokens for PFormulaParse. The rows and
// the token function stand here so that the parser's loop takes the token
// function in.
#pragma once

#include <cstdint>

#include "formula/record.h"
#include "percstr/engine/scanner.h"

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

enum class PFormulaScanAction { Number, Token, Skip, Byte };

// The eight and four digits are limits of the language: a longer number is
// one token of its own, so that the parser reports it whole.
inline constexpr ScanRow<PFormulaScanAction> kPFormulaScanRows[] = {
    {"[0-9]{1,8}", PFormulaScanAction::Number, kTokenInteger},
    {"[0-9]{9,}", PFormulaScanAction::Token, kTokenLongInteger},
    {"[0-9]{0,8}\\.[0-9]{1,4}", PFormulaScanAction::Number, kTokenDecimal},
    {"[0-9]{0,8}\\.[0-9]{5,}", PFormulaScanAction::Token, kTokenLongDecimal},
    {"[0-9]{9,}\\.[0-9]+", PFormulaScanAction::Token, kTokenLongDecimal},
    {"AC", PFormulaScanAction::Token, kTokenRoundCommercial, true},
    {"AD", PFormulaScanAction::Token, kTokenRoundDown, true},
    {"AE", PFormulaScanAction::Token, kTokenRoundUp, true},
    {"[\\t\\r\\n ]+", PFormulaScanAction::Skip},
    // Its lead byte is anything else, even a digit.
    {"[^\\t !-+/Aa][A-Za-z][A-Za-z0-9]+", PFormulaScanAction::Token, kTokenBadWord},
    {".", PFormulaScanAction::Byte},
};

// The automaton of its token rules.
[[nodiscard]] const ScanAutomaton& PFormulaAutomaton();

// Its instance of the engine; PFormulaMutex guards it.
extern ScannerEngine PFormulaScanner;

// The next token of PFormulaScanner's current buffer, 0 at the end of the
// input. INTEGER and DECIMAL deliver their number into *value; other tokens
// leave it alone. location moves over each matched text, skipped blanks
// included, and stays put at the end. record isn't used.
[[nodiscard]] inline int32_t PFormulaNextToken(double* value, TokenLocation* location, PFormulaRecord*) {
    return NextToken<kPFormulaScanRows>(PFormulaScanner, location, [&](const auto& row) -> int32_t {
        switch (row.action) {
            case PFormulaScanAction::Number:
                *value = DecimalValue(PFormulaScanner.TokenText(), PFormulaScanner.TokenLength());
                return row.token;
            case PFormulaScanAction::Token: return row.token;
            case PFormulaScanAction::Skip: return kNoToken;
            case PFormulaScanAction::Byte: return static_cast<int8_t>(PFormulaScanner.TokenText()[0]);
        }
        return kNoToken;
    });
}

}  // namespace vrn
