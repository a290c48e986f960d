#include "formula/normal_form.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "formula/round.h"

namespace vrn {

namespace {

// ---- Writer

// Enough for "%.4f" of any double.
constexpr size_t kNumberRoom = 400;

// The operand's text: an integer where it lies within 1e-8 of one, else four
// decimals with the trailing zeros, and then a bare point, removed.
size_t FormatOperand(double operand, char* out) {
    const int32_t t = TruncateToInt32(operand);
    if (std::fabs(operand - t) < 1e-8) {
        return static_cast<size_t>(std::to_chars(out, out + kNumberRoom, t).ptr - out);
    }
    char* last = std::to_chars(out, out + kNumberRoom, operand, std::chars_format::fixed, 4).ptr;
    if (std::find(out, last, '.') != last) {
        while (last[-1] == '0') --last;
        if (last[-1] == '.') --last;
    }
    return static_cast<size_t>(last - out);
}

// How an operation is written: the character in front of its number (kSign:
// the operand's own sign, + included), the one behind it, for rounding the
// letter behind the A; and whether an operand of 0 leaves the value as it is,
// so that the operation can go unwritten.
constexpr char kSign = 1;

struct Form {
    char prefix = 0;
    char suffix = 0;
    char rounding = 0;
    bool zeroChangesNothing = false;
};

Form FormOf(PFormulaOp kind) {
    switch (kind) {
        case PFormulaOp::kAdd: return {kSign, 0, 0, true};
        case PFormulaOp::kPercentage: return {kSign, '%', 0, true};
        case PFormulaOp::kMargin: return {kSign, '&', 0, true};
        case PFormulaOp::kMultiply: return {'*'};
        case PFormulaOp::kDivide: return {'/'};
        case PFormulaOp::kAssign: return {'='};
        case PFormulaOp::kRoundCommercial: return {0, 0, 'C'};
        case PFormulaOp::kRoundDown: return {0, 0, 'D'};
        case PFormulaOp::kRoundUp: return {0, 0, 'E'};
    }
    return {};
}

// The operation's text and its blank into out; returns its length.
size_t FormatOp(double operand, const Form& form, char* out) {
    size_t n = 0;
    if (form.rounding) {
        out[n++] = 'A';
        out[n++] = form.rounding;
        out[n++] = '(';
        n += static_cast<size_t>(std::to_chars(out + n, out + kNumberRoom, TruncateToInt32(operand)).ptr - (out + n));
        out[n++] = ')';
    } else {
        if (form.prefix == kSign) {
            if (operand > 0) out[n++] = '+';  // a negative number brings its own minus
        } else {
            out[n++] = form.prefix;
        }
        n += FormatOperand(operand, out + n);
        if (form.suffix) out[n++] = form.suffix;
    }
    out[n++] = ' ';
    return n;
}

}  // namespace

bool PFormulaWriteOp(PFormulaRecord* record, double operand, PFormulaOp kind) {
    if (!record->writeNormalForm) return true;
    const Form form = FormOf(kind);
    if (form.zeroChangesNothing && operand == 0.0) return true;

    char text[kNumberRoom + 8];
    const size_t n = FormatOp(operand, form, text);
    char* const block = record->normalForm;
    const size_t size = block ? record->normalFormSize : 0;
    const size_t used = block ? strnlen(block, size) : 0;
    if (used + n >= size) {  // the terminator needs a byte too
        record->errorCode = kPFormulaOutputTooShort;
        return false;
    }
    std::memcpy(block + used, text, n);
    block[used + n] = '\0';
    return true;
}

uint32_t PFormulaNormalFormSize(uint32_t length) { return (length + 1) / 2 * 3 + 4; }

uint32_t PFormulaNormalFormRoom(uint32_t length) {
    return std::max(PFormulaNormalFormSize(length), 3 * length + 1);
}

// ---- Reader

namespace {

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

struct Cursor {
    const char* p;
    const char* end;

    void SkipBlanks() {
        while (p < end && IsBlank(*p)) ++p;
    }
    bool AtEnd() const { return p >= end; }
};

// Powers of ten that a double holds exactly.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// Digits with an optional point and decimals, as the normal form writes them:
// a mantissa of at most 2^53 over an exact power of ten is one correctly
// rounded division, so the double is the one strtod gives. False when the
// number needs the general reading (exponent, hexadecimal, too many digits).
bool ReadPlainNumber(Cursor& at, double& x) {
    const char* p = at.p;
    if (p[0] == '0' && at.end - p > 1 && (p[1] == 'x' || p[1] == 'X')) return false;
    uint64_t mantissa = 0;
    int digits = 0, decimals = 0;
    for (; p < at.end && IsDigit(*p); ++p, ++digits) mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
    if (p < at.end && *p == '.') {
        for (++p; p < at.end && IsDigit(*p); ++p, ++digits, ++decimals) {
            mantissa = mantissa * 10 + static_cast<uint64_t>(*p - '0');
        }
    }
    if (p < at.end && (*p == 'e' || *p == 'E')) return false;
    if (digits > 19 || mantissa > (uint64_t{1} << 53) || decimals > 22) return false;
    x = static_cast<double>(mantissa);
    if (decimals > 0) x /= kExactPowers[decimals];
    at.p = p;
    return true;
}

// What strtod reads at p. Plain decimals and what from_chars reads within
// end take the fast paths; hexadecimal and out-of-range numbers go to strtod
// itself, which stops where a valid text's number stops: at end at the latest.
double ReadNumber(Cursor& at) {
    double x = 0;
    if (ReadPlainNumber(at, x)) return x;
    const char* first = at.p;
    if (!(first[0] == '0' && at.end - first > 1 && (first[1] == 'x' || first[1] == 'X'))) {
        const std::from_chars_result read = std::from_chars(first, at.end, x);
        if (read.ec == std::errc()) {
            at.p = read.ptr;
            return x;
        }
    }
    char* stop = nullptr;
    x = std::strtod(first, &stop);
    at.p = stop;
    return x;
}

// Applies one operation at at.p; null on success, else where it failed.
const char* RunRounding(Cursor& at, double& reg) {
    ++at.p;  // the A
    if (at.AtEnd()) return at.p;
    PFormulaOp kind;
    switch (*at.p++) {
        case 'C': kind = PFormulaOp::kRoundCommercial; break;
        case 'D': kind = PFormulaOp::kRoundDown; break;
        case 'E': kind = PFormulaOp::kRoundUp; break;
        default: return at.p;
    }
    at.SkipBlanks();
    if (at.AtEnd()) return at.p;
    if (*at.p++ != '(') return at.p;
    at.SkipBlanks();
    if (at.AtEnd()) return at.p;
    bool negative = false;
    if (*at.p == '-') {
        negative = true;
        ++at.p;
        at.SkipBlanks();
        if (at.AtEnd()) return at.p;
    }
    const char digit = *at.p++;
    if (!IsDigit(digit)) return at.p;
    const int32_t digits = negative ? -(digit - '0') : digit - '0';
    if (digits < -3 || digits > 3) return at.p;
    at.SkipBlanks();
    if (at.AtEnd()) return at.p;
    if (*at.p++ != ')') return at.p;
    reg = PFormulaRound(reg, digits, kind);
    return nullptr;
}

// The operand x is read; a % or & directly behind it makes it a percentage or a margin.
const char* ApplyOperand(Cursor& at, double x, double& reg) {
    if (!at.AtEnd() && *at.p == '%') {
        ++at.p;
        if (x < -99 || x > 2900) return at.p;
        reg = (x / 100 + 1) * reg;
    } else if (!at.AtEnd() && *at.p == '&') {
        ++at.p;
        if (x < -2900 || x > 99) return at.p;
        reg = reg / (1 - x / 100);
    } else {
        reg = x + reg;
    }
    return nullptr;
}

// A sign, * / or =, then blanks, then a number that starts with a digit.
const char* ExpectDigit(Cursor& at) {
    ++at.p;
    at.SkipBlanks();
    if (at.AtEnd() || !IsDigit(*at.p)) return at.p;
    return nullptr;
}

const char* RunOperation(Cursor& at, double& reg) {
    const char c = *at.p;
    if (c == 'A') return RunRounding(at, reg);
    if (c == '+' || c == '-') {
        if (const char* q = ExpectDigit(at)) return q;
        const double x = ReadNumber(at);
        return ApplyOperand(at, c == '-' ? -x : x, reg);
    }
    if (IsDigit(c)) return ApplyOperand(at, ReadNumber(at), reg);
    if (c == '*' || c == '/' || c == '=') {
        if (const char* q = ExpectDigit(at)) return q;
        const double x = ReadNumber(at);
        if (c == '*') reg = x * reg;
        else if (c == '/') reg = reg / x;
        else reg = x;
        return nullptr;
    }
    return at.p;
}

}  // namespace

PFormulaCode PFormulaRun(PFormulaRecord* record, double* result) {
    const char* const text = record->text;
    if (!text) return 0;
    Cursor at{text, text + record->length};
    double reg = record->value;
    for (;;) {
        at.SkipBlanks();
        if (at.AtEnd() || *at.p == '\0') break;
        if (const char* q = RunOperation(at, reg)) {
            record->value = reg;
            return PFormulaMakeCode(kPFormulaSyntax, static_cast<uint32_t>(q - text), 1);
        }
    }
    record->value = reg;
    *result = reg;
    return 0;
}

namespace {

PFormulaCode RunOn(double* value, const char* text, uint32_t size, uint32_t buffer) {
    PFormulaRecord record{};
    record.text = text;
    record.length = size;
    record.buffer = buffer;
    record.value = *value;
    return PFormulaRun(&record, value);
}

}  // namespace

PFormulaCode PFormulaRunCounted(double* value, const char* text, uint32_t size) {
    return RunOn(value, text, size, 0);
}

PFormulaCode PFormulaRunBuffer(double* value, const char* text, uint32_t size) {
    return RunOn(value, text, size, 1);
}

PFormulaCode PFormulaRunText(double* value, const char* text) {
    return RunOn(value, text, text ? static_cast<uint32_t>(std::strlen(text)) : 0, 0);
}

}  // namespace vrn
