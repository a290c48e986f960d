// What the pieces of the formula engine pass between them: the record of one
// evaluation, the 32-bit word that sums up its outcome, and the error table.
#pragma once

#include <cstdint>

namespace vrn {

struct PFormulaRecord {
    const char* text;
    uint32_t length;          // as given to the entry point
    uint32_t buffer;          // 1: a caller's block with two final NULs, scanned in place
    double value;             // the value register
    uint32_t writeNormalForm; // 1: operations are appended to normalForm
    char* normalForm;         // the caller's block
    uint32_t normalFormSize;
    int32_t errorCode;
    uint32_t errorPosition;   // 0-based byte offset
    uint32_t errorLength;
};

// Bits 31-24: error number (signed), 23-16: low 8 bits of the length,
// 15-0: low 16 bits of the position. Success is 0.
using PFormulaCode = uint32_t;

// The operations of the language, as the parser hands them to the normal-form
// writer and the rounding. The values are the writer's published kind codes.
enum class PFormulaOp : int32_t {
    kAdd = 1,
    kPercentage = 37,
    kMargin = 38,
    kMultiply = 42,
    kDivide = 47,
    kAssign = 61,
    kRoundCommercial = 67,
    kRoundDown = 68,
    kRoundUp = 69,
};

// Error numbers.
inline constexpr int32_t kPFormulaOk = 0;
inline constexpr int32_t kPFormulaSyntax = -1;
inline constexpr int32_t kPFormulaScanBuffer = -2;
inline constexpr int32_t kPFormulaOutputTooShort = -3;
inline constexpr int32_t kPFormulaTooLong = -4;
inline constexpr int32_t kPFormulaRoundingSyntax = -5;
inline constexpr int32_t kPFormulaRoundingDigits = -6;
inline constexpr int32_t kPFormulaPercentage = -7;
inline constexpr int32_t kPFormulaMargin = -8;
inline constexpr int32_t kPFormulaMultiplication = -9;
inline constexpr int32_t kPFormulaDivision = -10;
inline constexpr int32_t kPFormulaLongDecimal = -11;
inline constexpr int32_t kPFormulaLongInteger = -12;

[[nodiscard]] constexpr PFormulaCode PFormulaMakeCode(int32_t number, uint32_t position, uint32_t length) {
    return ((length & 0xFFu) << 16) | (static_cast<uint32_t>(number) << 24) | (position & 0xFFFFu);
}

[[nodiscard]] inline PFormulaCode PFormulaCodeOf(const PFormulaRecord& record) {
    return PFormulaMakeCode(record.errorCode, record.errorPosition, record.errorLength);
}

// The text of an error number; "Unknown" for a number outside the table.
[[nodiscard]] const char* PFormulaErrorText(int32_t number);
// The same in English, for hosts that speak it; "error" outside the table.
[[nodiscard]] const char* PFormulaErrorReason(int32_t number);

// Takes a code apart. Each out-pointer may be null. Returns the error number.
int32_t PFormulaErrorInfo(PFormulaCode code, uint32_t* position, uint32_t* length, const char** text);

}  // namespace vrn
