// The formula engine's entry points: a text through scanner and parser, its
// outcome in one PFormulaCode. A value given goes into the register and comes
// back changed on success only; null starts the register at 0. The normal-form
// variants also fill the caller's block. The caller holds PFormulaMutex.
#pragma once

#include <cstdint>

#include "formula/record.h"

namespace vrn {

// Longest text the entry points take, in bytes as counted by their length.
inline constexpr uint32_t kPFormulaMaxLength = 1000;

// Counted and Text scan a copy; Buffer scans the caller's block of `length`
// bytes in place, the two final NULs included.
[[nodiscard]] PFormulaCode PFormulaEvalCounted(double* value, const char* text, uint32_t length);
[[nodiscard]] PFormulaCode PFormulaEvalBuffer(double* value, char* text, uint32_t length);
[[nodiscard]] PFormulaCode PFormulaEvalText(double* value, const char* text);

// normalFormSize must be at least PFormulaNormalFormSize(length), else -3.
// Past that test a normal form that still doesn't fit ends the parse with -3.
[[nodiscard]] PFormulaCode PFormulaNormalizeCounted(double* value, const char* text, uint32_t length,
                                                    char* normalForm, uint32_t normalFormSize);
[[nodiscard]] PFormulaCode PFormulaNormalizeBuffer(double* value, char* text, uint32_t length, char* normalForm,
                                                   uint32_t normalFormSize);
[[nodiscard]] PFormulaCode PFormulaNormalizeText(double* value, const char* text, char* normalForm,
                                                 uint32_t normalFormSize);

}  // namespace vrn
