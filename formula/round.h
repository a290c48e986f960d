// The rounding behind AC(n), AD(n) and AE(n).
#pragma once

#include <cstdint>

namespace vrn {

inline constexpr int32_t kRoundCommercial = 'C';
inline constexpr int32_t kRoundDown = 'D';
inline constexpr int32_t kRoundUp = 'E';

// Rounds value to `digits` decimals (-3 to 3; negative: tens, hundreds,
// thousands). 'C' half up, 'E' up, every other kind down (toward zero).
// A value within 1e-8 of a multiple counts as rounded and comes back as
// value * 10^digits / 10^digits. Negative values aren't mirrored.
[[nodiscard]] double PFormulaRound(double value, int32_t digits, int32_t kind);

// Conversion toward zero to 32 bits; out of range (and NaN) gives the integer
// minimum, as the platform's conversion does, instead of undefined behaviour.
[[nodiscard]] int32_t TruncateToInt32(double x);

}  // namespace vrn
