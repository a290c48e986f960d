#include "formula/round.h"

#include <climits>
#include <cmath>

namespace vrn {

namespace {

// The same doubles that pow(10, digits) gives, without its cost on the hot path.
constexpr double kScales[] = {0.001, 0.01, 0.1, 1.0, 10.0, 100.0, 1000.0};

// Outside the table: 10^n is exact up to 10^22, and 1 / 10^n is then one
// correctly rounded division, the double a correct pow gives (some runtimes'
// pow is an ulp off there).
double Scale(int32_t digits) {
    if (digits >= -3 && digits <= 3) return kScales[digits + 3];
    if (digits < -22 || digits > 22) return std::pow(10.0, digits);
    double exact = 1.0;
    for (int32_t n = digits < 0 ? -digits : digits; n > 0; --n) exact *= 10.0;
    return digits < 0 ? 1.0 / exact : exact;
}

// An integer has no negative zero: -0.4 truncates to +0.
double Truncate(double x) { return std::trunc(x) + 0.0; }

}  // namespace

// Truncation is to a whole double rather than to a 32-bit integer: inside that
// range the result is the same bit for bit, and beyond it (12345678 AC(3))
// the value still rounds instead of collapsing to the integer minimum.
double PFormulaRound(double value, int32_t digits, PFormulaOp kind) {
    const double p = Scale(digits);
    const double x = value * p;
    const double t = Truncate(x);
    if (std::fabs(x - t) < 1e-8) return x / p;
    if (kind == PFormulaOp::kRoundCommercial) return Truncate(x + 0.5) / p;
    if (kind == PFormulaOp::kRoundUp) return Truncate(x + 1.0) / p;
    return t / p;
}

int32_t TruncateToInt32(double x) {
    if (!(x > -2147483649.0 && x < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(x);
}

}  // namespace vrn
