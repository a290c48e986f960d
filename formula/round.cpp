#include "formula/round.h"

#include <cmath>

namespace vrn {

namespace {

// The same doubles that pow(10, digits) gives, without its cost on the hot path.
constexpr double kScales[] = {0.001, 0.01, 0.1, 1.0, 10.0, 100.0, 1000.0};

double Scale(int32_t digits) {
    if (digits >= -3 && digits <= 3) return kScales[digits + 3];
    return std::pow(10.0, digits);
}

// An integer has no negative zero: -0.4 truncates to +0.
double Truncate(double x) { return std::trunc(x) + 0.0; }

}  // namespace

// Truncation is to a whole double rather than to a 32-bit integer: inside that
// range the result is the same bit for bit, and beyond it (12345678 AC(3))
// the value still rounds instead of collapsing to the integer minimum.
double PFormulaRound(double value, int32_t digits, int32_t kind) {
    const double p = Scale(digits);
    const double x = value * p;
    const double t = Truncate(x);
    if (std::fabs(x - t) < 1e-8) return x / p;
    if (kind == kRoundCommercial) return Truncate(x + 0.5) / p;
    if (kind == kRoundUp) return Truncate(x + 1.0) / p;
    return t / p;
}

}  // namespace vrn
