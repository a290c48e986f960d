// The rounding behind AC(n), AD(n) and AE(n).
#pragma once

#include <cstdint>

#include "formula/record.h"

namespace vrn {

// Rounds value to `digits` decimals (-3 to 3; negative: tens, hundreds,
// thousands). kRoundCommercial half up, kRoundUp up, every other kind down
// (toward zero).
// A value within 1e-8 of a multiple counts as rounded and comes back as
// value * 10^digits / 10^digits. Negative values aren't mirrored.
[[nodiscard]] double PFormulaRound(double value, int32_t digits, PFormulaOp kind);

// Conversion toward zero to 32 bits; out of range (and NaN) gives the integer
// minimum, as the platform's conversion does, instead of undefined behaviour.
[[nodiscard]] int32_t TruncateToInt32(double x);

}  // namespace vrn
