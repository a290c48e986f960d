#include "bench/yardstick.h"

#include <cmath>
#include <cstring>

namespace vrn::bench {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10, 1e11, 1e12};

// Digits, a point and digits: an exact mantissa over an exact power of ten,
// which is the double strtod gives for these lengths.
const char* ReadDecimal(const char* p, double* number, int* integerDigits = nullptr, int* decimals = nullptr) {
    uint64_t mantissa = 0;
    const char* first = p;
    while (IsDigit(*p)) mantissa = mantissa * 10 + static_cast<uint64_t>(*p++ - '0');
    const char* point = p;
    int fraction = 0;
    if (*p == '.') {
        for (++p; IsDigit(*p); ++fraction) mantissa = mantissa * 10 + static_cast<uint64_t>(*p++ - '0');
    }
    if (integerDigits) *integerDigits = static_cast<int>(point - first);
    if (decimals) *decimals = fraction;
    *number = static_cast<double>(mantissa) / kPowersOfTen[fraction];
    return p;
}

// ---- Percentage chains

template <int Mode>
double Term(double n) {
    if constexpr (Mode == 0) return n / 100.0;
    else if constexpr (Mode == 1) return 1.0 - n / 100.0;
    else return n / 100.0 + 1.0;
}

template <int Mode>
double Chain(const char* p) {
    const bool negative = *p == '-';
    if (negative) ++p;
    double n = 0;
    p = ReadDecimal(p, &n);
    double value = Term<Mode>(n);
    if (negative) value = Mode == 0 ? -value : 2.0 - value;
    while (*p == '+' || *p == '-') {
        const char op = *p++;
        p = ReadDecimal(p, &n);
        const double term = Term<Mode>(n);
        if constexpr (Mode == 0) value = op == '+' ? value + term : value - term;
        else value = op == '+' ? value * term : (2.0 - term) * value;
    }
    return value;
}

// ---- Price formulas

double Round(double value, int digits, char kind) {
    static constexpr double kScales[] = {0.001, 0.01, 0.1, 1.0, 10.0, 100.0, 1000.0};
    const double scale = kScales[digits + 3];
    const double x = value * scale;
    const double t = std::trunc(x) + 0.0;
    if (std::fabs(x - t) < 1e-8) return x / scale;
    if (kind == 'C') return (std::trunc(x + 0.5) + 0.0) / scale;
    if (kind == 'E') return (std::trunc(x + 1.0) + 0.0) / scale;
    return t / scale;
}

// The operand as the normal form writes it, straight from its digits: no
// leading zeros, no trailing decimal zeros, no bare point.
char* WriteDigits(char* out, const char* digits, int integerDigits, int decimals) {
    const char* integer = digits;
    const char* integerEnd = digits + integerDigits;
    while (integer < integerEnd && *integer == '0') ++integer;
    if (integer == integerEnd) *out++ = '0';
    while (integer < integerEnd) *out++ = *integer++;
    const char* fraction = integerEnd + 1;
    int kept = decimals;
    while (kept > 0 && fraction[kept - 1] == '0') --kept;
    if (kept > 0) {
        *out++ = '.';
        std::memcpy(out, fraction, static_cast<size_t>(kept));
        out += kept;
    }
    return out;
}

char* WriteRounding(char* out, char kind, int digits) {
    *out++ = 'A';
    *out++ = kind;
    *out++ = '(';
    if (digits < 0) *out++ = '-';
    *out++ = static_cast<char>('0' + (digits < 0 ? -digits : digits));
    *out++ = ')';
    *out++ = ' ';
    return out;
}

// ---- Symbolic texts

constexpr size_t kTextMax = 21;

struct Text {
    char text[kTextMax + 1];
    size_t length;
};

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsNameStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool IsNameByte(char c) { return IsNameStart(c) || IsDigit(c); }
char Folded(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool SameName(const char* a, size_t length, const char* b) {
    for (size_t i = 0; i < length; ++i) {
        if (b[i] == 0 || Folded(a[i]) != Folded(b[i])) return false;
    }
    return b[length] == 0;
}

class SymbolicReducer {
public:
    SymbolicReducer(const char* text, const YardstickVariable* variables, int count, int32_t mode)
        : p_(text), variables_(variables), count_(count), mode_(mode) {}

    bool Reduce(char* result) {
        Text value;
        if (!Expression(value) || *p_ != 0) return false;
        std::memcpy(result, value.text, value.length + 1);
        return true;
    }

private:
    // term (+ or - term)...; a - turns the signs of its right operand.
    bool Expression(Text& value) {
        if (!Term(value)) return false;
        while (*p_ == '+' || *p_ == '-') {
            const bool flip = *p_++ == '-';
            Text right;
            if (!Term(right) || !Join(value, right, flip)) return false;
        }
        return true;
    }

    static bool BlankText(const Text& t) {
        for (size_t i = 0; i < t.length; ++i) {
            if (!IsBlank(t.text[i])) return false;
        }
        return true;
    }

    static bool Join(Text& left, const Text& right, bool flip) {
        size_t n = BlankText(left) ? 0 : left.length;
        if (!BlankText(right)) {
            if (right.text[0] != '+' && right.text[0] != '-') {
                if (n == kTextMax) return false;
                left.text[n++] = flip ? '-' : '+';
            }
            for (size_t i = 0; i < right.length; ++i) {
                if (n == kTextMax) return false;
                const char c = right.text[i];
                left.text[n++] = flip && c == '+' ? '-' : flip && c == '-' ? '+' : c;
            }
        }
        left.text[n] = 0;
        left.length = n;
        return true;
    }

    static void Set(Text& t, const char* first, size_t length) {
        while (length > 0 && IsBlank(*first)) ++first, --length;
        while (length > 0 && IsBlank(first[length - 1])) --length;
        std::memcpy(t.text, first, length);
        t.text[length] = 0;
        t.length = length;
    }

    double Number(const Text& t) const {
        if (t.length == 0) return mode_ == 0 ? 0.0 : 1.0;
        return YardstickPercentChain(t.text, mode_);
    }

    bool Term(Text& value) {
        const char* first = p_;
        if (IsDigit(*p_)) {
            double unused = 0;
            p_ = ReadDecimal(p_, &unused);
            Set(value, first, static_cast<size_t>(p_ - first));
            return true;
        }
        if (!IsNameStart(*p_)) return false;
        while (IsNameByte(*p_)) ++p_;
        const size_t length = static_cast<size_t>(p_ - first);
        const bool isMin = SameName(first, length, "min");
        if (isMin || SameName(first, length, "max")) return List(value, isMin);
        for (int i = 0; i < count_; ++i) {
            if (SameName(first, length, variables_[i].name)) {
                Set(value, variables_[i].value, std::strlen(variables_[i].value));
                return true;
            }
        }
        return false;
    }

    // The cumulative modes compare factors, which fall as a discount grows.
    bool Keeps(const Text& kept, const Text& other, bool isMin) const {
        double left = Number(kept), right = Number(other);
        if (mode_ != 0) std::swap(left, right);
        return isMin ? left <= right : left >= right;
    }

    bool List(Text& value, bool isMin) {
        if (*p_++ != '(' || !Expression(value)) return false;
        while (*p_ == ',') {
            ++p_;
            Text next;
            if (!Expression(next)) return false;
            if (!Keeps(value, next, isMin)) value = next;
        }
        return *p_++ == ')';
    }

    const char* p_;
    const YardstickVariable* variables_;
    int count_;
    int32_t mode_;
};

}  // namespace

double YardstickPercentChain(const char* text, int32_t mode) {
    if (mode == 0) return Chain<0>(text);
    if (mode == 1) return Chain<1>(text);
    return Chain<2>(text);
}

double YardstickNormalFormRun(const char* p, double value) {
    while (*p != 0) {
        const char c = *p++;
        if (c == 'A') {
            const char kind = *p;
            p += 2;
            const bool negative = *p == '-';
            if (negative) ++p;
            const int digits = *p - '0';
            p += 3;
            value = Round(value, negative ? -digits : digits, kind);
            continue;
        }
        double x = 0;
        p = ReadDecimal(p, &x);
        switch (c) {
            case '=': value = x; break;
            case '*': value = x * value; break;
            case '/': value = value / x; break;
            default:
                if (c == '-') x = -x;
                if (*p == '%') {
                    ++p;
                    value = (x / 100 + 1) * value;
                } else if (*p == '&') {
                    ++p;
                    value = value / (1 - x / 100);
                } else {
                    value = x + value;
                }
        }
        ++p;  // the blank
    }
    return value;
}

bool YardstickFormulaNormalize(const char* p, double* value, char* out) {
    double reg = *value;
    for (;;) {
        while (*p == ' ') ++p;
        if (*p == 0) break;
        if (*p == 'A' || *p == 'a') {
            const char kind = static_cast<char>(p[1] & ~0x20);
            if ((kind != 'C' && kind != 'D' && kind != 'E') || p[2] != '(') return false;
            p += 3;
            const bool negative = *p == '-';
            if (*p == '-' || *p == '+') ++p;
            int digits = 0;
            while (IsDigit(*p)) digits = digits * 10 + (*p++ - '0');
            if (*p++ != ')') return false;
            if (negative) digits = -digits;
            if (digits < -3 || digits > 3) return false;
            reg = Round(reg, digits, kind);
            out = WriteRounding(out, kind, digits);
            continue;
        }
        char op = '+';
        if (*p == '=' || *p == '*' || *p == '/' || *p == '+' || *p == '-') op = *p++;
        while (*p == ' ') ++p;
        if (!IsDigit(*p) && *p != '.') return false;
        const char* digits = p;
        double n = 0;
        int integerDigits = 0, decimals = 0;
        p = ReadDecimal(p, &n, &integerDigits, &decimals);
        if (integerDigits > 8 || decimals > 4 || (p[-1] == '.')) return false;
        char suffix = 0;
        if ((op == '+' || op == '-') && (*p == '%' || *p == '&')) suffix = *p++;
        const double signedN = op == '-' ? -n : n;
        if (suffix == '%') {
            if (signedN < -99 || signedN > 2900) return false;
            reg = op == '-' ? (1 - n / 100) * reg : (n / 100 + 1) * reg;
        } else if (suffix == '&') {
            if (signedN < -2900 || signedN > 99) return false;
            reg = op == '-' ? reg / (n / 100 + 1) : reg / (1 - n / 100);
        } else if (op == '=') {
            reg = n;
        } else if (op == '*') {
            if (n < 0.1 || n > 300) return false;
            reg = n * reg;
        } else if (op == '/') {
            if (n < 0.1 || n > 100) return false;
            reg = reg / n;
        } else {
            reg = reg + signedN;
        }
        if (n == 0) continue;  // an operand of 0 isn't written
        *out++ = op;  // a bare operand is written with its +
        out = WriteDigits(out, digits, integerDigits, decimals);
        if (suffix) *out++ = suffix;
        *out++ = ' ';
    }
    *out = 0;
    *value = reg;
    return true;
}

bool YardstickSymbolicReduce(const char* text, const YardstickVariable* variables, int variableCount, int32_t mode,
                             char* result) {
    return SymbolicReducer(text, variables, variableCount, mode).Reduce(result);
}

}  // namespace vrn::bench
