#include "host/exec/values.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "host/exec/text.h"

namespace vrn::exec {

namespace {

using U128 = unsigned __int128;

constexpr int kMaxPrecision = 38;
constexpr uint32_t kDecimalLength = 17;  // sign byte + 16-byte magnitude

// An exact number: a decimal or integer value, magnitude / 10^scale.
struct Exact {
    bool negative = false;
    U128 magnitude = 0;
    uint8_t scale = 0;
};

// What numeric conversions go through: either exact or a double.
struct Number {
    bool isFloat = false;
    double floating = 0;
    Exact exact;
};

U128 PowerOfTen(int n) {
    U128 result = 1;
    while (n-- > 0) result *= 10;
    return result;
}

int DigitCount(U128 value) {
    int digits = 1;
    while (value >= 10) value /= 10, ++digits;
    return digits;
}

std::string DigitsOf(U128 value) {
    std::string digits;
    do {
        digits += static_cast<char>('0' + static_cast<int>(value % 10));
        value /= 10;
    } while (value);
    std::reverse(digits.begin(), digits.end());
    return digits;
}

std::string ExactText(const Exact& e) {
    std::string digits = DigitsOf(e.magnitude);
    if (e.scale > 0) {
        if (digits.size() <= e.scale) digits.insert(0, e.scale + 1 - digits.size(), '0');
        digits.insert(digits.size() - e.scale, ".");
    }
    return (e.negative && e.magnitude != 0 ? "-" : "") + digits;
}

uint64_t ReadLittleEndian(const Bytes& bytes, size_t width) {
    uint64_t value = 0;
    for (size_t i = std::min(width, bytes.size()); i-- > 0;) value = (value << 8) | bytes[i];
    return value;
}

Bytes WriteLittleEndian(uint64_t value, size_t width) {
    Bytes bytes(width);
    for (size_t i = 0; i < width; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
    return bytes;
}

int64_t SignExtend(uint64_t value, size_t width) {
    if (width >= 8) return static_cast<int64_t>(value);
    const uint64_t sign = uint64_t{1} << (8 * width - 1);
    return static_cast<int64_t>((value ^ sign) - sign);
}

Bytes EncodeDecimal(const Exact& e) {
    Bytes bytes(kDecimalLength);
    bytes[0] = e.negative && e.magnitude != 0 ? 0 : 1;
    for (size_t i = 0; i < 16; ++i) bytes[1 + i] = static_cast<uint8_t>(e.magnitude >> (8 * i));
    return bytes;
}

Exact DecodeDecimal(const Bytes& bytes, uint8_t scale) {
    Exact e;
    e.scale = scale;
    if (bytes.empty()) return e;
    e.negative = bytes[0] == 0;
    for (size_t i = std::min<size_t>(bytes.size(), kDecimalLength); i-- > 1;) e.magnitude = (e.magnitude << 8) | bytes[i];
    return e;
}

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// [sign] digits [. digits] [e [sign] digits]; nullopt when it isn't a number.
// Exact numbers of more than 38 digits are an overflow.
std::optional<Number> ParseNumber(const std::string& raw) {
    const std::string text = Trimmed(raw);
    size_t i = 0;
    Number n;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) n.exact.negative = text[i++] == '-';
    std::string digits;
    int scale = 0;
    bool point = false, any = false;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9') {
            any = true;
            if (!digits.empty() || c != '0') digits += c;
            if (point) ++scale;
        } else if (c == '.' && !point) {
            point = true;
        } else {
            break;
        }
    }
    if (!any) return std::nullopt;
    if (i < text.size()) {
        if (text[i] != 'e' && text[i] != 'E') return std::nullopt;
        double value = 0;
        const char* begin = text.data();
        // from_chars takes no leading '+'.
        if (*begin == '+') ++begin;
        const auto [end, error] = std::from_chars(begin, text.data() + text.size(), value);
        if (end != text.data() + text.size()) return std::nullopt;
        if (error == std::errc::result_out_of_range) throw SqlError("Arithmetic overflow error for type float, value = " + text + ".");
        n.isFloat = true;
        n.floating = value;
        return n;
    }
    if (scale > kMaxPrecision || static_cast<int>(digits.size()) > kMaxPrecision) {
        throw SqlError("The number '" + text + "' is out of the range for numeric representation (maximum precision 38).");
    }
    for (char c : digits) n.exact.magnitude = n.exact.magnitude * 10 + static_cast<unsigned>(c - '0');
    n.exact.scale = static_cast<uint8_t>(scale);
    return n;
}

double ExactToDouble(const Exact& e) {
    const std::string text = ExactText(e);
    double value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

// A double as the exact decimal of its shortest text (0.1, not 0.1000000000000000055...),
// for |value| < 1e38. Digits far below the smallest scale are dropped.
Exact ShortestExact(double value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::scientific);
    const std::string s(text, result.ptr);  // [-]d[.ddd]e[+-]xx
    Exact e;
    e.negative = s[0] == '-';
    const size_t mark = s.find('e');
    std::string digits;
    for (size_t i = e.negative ? 1 : 0; i < mark; ++i) {
        if (s[i] != '.') digits += s[i];
    }
    int exponent = std::stoi(s.substr(mark + 1)) - static_cast<int>(digits.size() - 1);
    constexpr int kFinest = -(kMaxPrecision + 1);  // one digit more than any scale, for rounding
    if (exponent < kFinest) {
        digits = digits.substr(0, std::max(0, static_cast<int>(digits.size()) + exponent - kFinest));
        exponent = kFinest;
    }
    for (char c : digits) e.magnitude = e.magnitude * 10 + static_cast<unsigned>(c - '0');
    if (exponent > 0) e.magnitude *= PowerOfTen(exponent);
    e.scale = static_cast<uint8_t>(exponent < 0 ? -exponent : 0);
    return e;
}

// The exact value rounded half away from zero to the scale, as the server rounds.
Exact Rescale(Exact e, uint8_t scale) {
    if (scale >= e.scale) {
        e.magnitude *= PowerOfTen(scale - e.scale);
    } else {
        const U128 divisor = PowerOfTen(e.scale - scale);
        const U128 rest = e.magnitude % divisor;
        e.magnitude /= divisor;
        if (rest * 2 >= divisor) ++e.magnitude;
    }
    e.scale = scale;
    return e;
}

bool IsCharFamily(Family f) { return f == Family::Char || f == Family::Text; }
bool IsNumericFamily(Family f) {
    return f == Family::Integer || f == Family::Bit || f == Family::Float || f == Family::Decimal;
}

int64_t IntegerOf(const Value& v) {
    const uint64_t raw = ReadLittleEndian(v.bytes, v.type.length);
    return v.type.code == 48 ? static_cast<int64_t>(raw) : SignExtend(raw, v.type.length);
}

double FloatOf(const Value& v) {
    if (v.type.length == 4) {
        float f = 0;
        std::memcpy(&f, v.bytes.data(), std::min<size_t>(v.bytes.size(), 4));
        return f;
    }
    double d = 0;
    std::memcpy(&d, v.bytes.data(), std::min<size_t>(v.bytes.size(), 8));
    return d;
}

std::string TextOf(const Value& v) {
    if (IsCharFamily(v.type.family)) return Cp1252ToUtf8(v.bytes);
    if (v.type.family == Family::NChar) return Utf16ToUtf8(v.bytes);
    return {};
}

[[noreturn]] void ConversionFailed(const Value& v, const SqlType& target) {
    const char* from = v.type.family == Family::NChar ? "nvarchar" : "varchar";
    throw SqlError("Conversion failed when converting the " + std::string(from) + " value '" + TextOf(v) +
                   "' to data type " + target.name + ".");
}

[[noreturn]] void Overflow(const SqlType& target) {
    throw SqlError("Arithmetic overflow error converting expression to data type " + target.name + ".");
}

Number ToNumber(const Value& v, const SqlType& target) {
    Number n;
    switch (v.type.family) {
    case Family::Integer:
    case Family::Bit: {
        const int64_t i = v.type.family == Family::Bit ? (ReadLittleEndian(v.bytes, 1) != 0) : IntegerOf(v);
        n.exact.negative = i < 0;
        n.exact.magnitude = i < 0 ? U128(0) - static_cast<U128>(i) : static_cast<U128>(i);  // |i|, INT64_MIN too
        return n;
    }
    case Family::Float:
        n.isFloat = true;
        n.floating = FloatOf(v);
        return n;
    case Family::Decimal:
        n.exact = DecodeDecimal(v.bytes, v.type.scale);
        return n;
    case Family::Binary:
        n.exact.magnitude = 0;
        for (size_t i = v.bytes.size() > 8 ? v.bytes.size() - 8 : 0; i < v.bytes.size(); ++i) {
            n.exact.magnitude = (n.exact.magnitude << 8) | v.bytes[i];
        }
        return n;
    default: {
        const std::string text = TextOf(v);
        if (target.family == Family::Bit) {
            const std::string upper = UpperText(Trimmed(text));
            if (upper == "TRUE" || upper == "FALSE") {
                n.exact.magnitude = upper == "TRUE";
                return n;
            }
        }
        std::optional<Number> parsed = ParseNumber(text);
        // An integer takes no fraction nor exponent from text.
        if (!parsed || (target.family == Family::Integer && (parsed->isFloat || parsed->exact.scale > 0))) {
            ConversionFailed(v, target);
        }
        return *parsed;
    }
    }
}

// The number as text, for a char target.
std::string NumberText(const Value& v) {
    switch (v.type.family) {
    case Family::Integer: return std::to_string(IntegerOf(v));
    case Family::Bit: return ReadLittleEndian(v.bytes, 1) ? "1" : "0";
    case Family::Float: return v.type.length == 4 ? ShortestFloat(static_cast<float>(FloatOf(v))) : ShortestDouble(FloatOf(v));
    case Family::Decimal: return ExactText(DecodeDecimal(v.bytes, v.type.scale));
    default: return {};
    }
}

Bytes FitString(Bytes bytes, const SqlType& t, uint8_t padByte, size_t unit) {
    if (t.family == Family::Text) return bytes;
    if (bytes.size() > t.length) bytes.resize(t.length / unit * unit);
    if (t.fixed) {
        while (bytes.size() + unit <= t.length) {
            bytes.push_back(padByte);
            if (unit == 2) bytes.push_back(0);
        }
    }
    return bytes;
}

Bytes To1252(const std::u32string& text) {
    Encoded1252 encoded = EncodeCp1252(text);
    if (encoded.unmapped) {
        char code[16];
        std::snprintf(code, sizeof code, "U+%04X", static_cast<unsigned>(*encoded.unmapped));
        throw SqlError(std::string("the character ") + code + " has no Windows-1252 byte; use N'...' and nvarchar");
    }
    return std::move(encoded.bytes);
}

Bytes AsCharBytes(const Value& v, const SqlType& target) {
    switch (v.type.family) {
    case Family::Char: case Family::Text: case Family::Binary: return v.bytes;
    case Family::NChar: return To1252(*DecodeUtf8(Utf16ToUtf8(v.bytes)));
    default: {
        const std::string text = NumberText(v);
        if (target.family != Family::Text && text.size() > target.length) Overflow(target);
        return Bytes(text.begin(), text.end());
    }
    }
}

Bytes AsUtf16Bytes(const Value& v, const SqlType& target) {
    switch (v.type.family) {
    case Family::NChar: case Family::Binary: return v.bytes;
    case Family::Char: case Family::Text: return EncodeUtf16(DecodeCp1252(v.bytes));
    default: {
        const std::string text = NumberText(v);
        if (text.size() * 2 > target.length) Overflow(target);
        return EncodeUtf16(std::u32string(text.begin(), text.end()));
    }
    }
}

Bytes AsBinaryBytes(const Value& v, const SqlType& target) {
    switch (v.type.family) {
    case Family::Integer: {
        // Big-endian, as the server casts an integer to binary.
        Bytes bytes = WriteLittleEndian(static_cast<uint64_t>(IntegerOf(v)), v.type.length);
        std::reverse(bytes.begin(), bytes.end());
        return bytes;
    }
    case Family::Bit: return Bytes{static_cast<uint8_t>(ReadLittleEndian(v.bytes, 1) != 0)};
    case Family::Float: case Family::Decimal:
        throw SqlError("Implicit conversion from " + v.type.name + " to " + target.name + " is not allowed.");
    default: return v.bytes;
    }
}

Bytes AsInteger(const Number& n, const SqlType& t) {
    int64_t value = 0;
    if (n.isFloat) {
        if (!std::isfinite(n.floating) || std::fabs(n.floating) >= 9.2e18) Overflow(t);
        value = static_cast<int64_t>(std::trunc(n.floating));
    } else {
        const U128 whole = n.exact.magnitude / PowerOfTen(n.exact.scale);
        if (whole > U128(std::numeric_limits<int64_t>::max())) Overflow(t);
        value = n.exact.negative ? -static_cast<int64_t>(whole) : static_cast<int64_t>(whole);
    }
    const int64_t low = t.code == 48 ? 0 : -(int64_t{1} << (8 * t.length - 1));
    const int64_t high = t.code == 48 ? 255 : (int64_t{1} << (8 * t.length - 1)) - 1;
    if (value < low || value > high) Overflow(t);
    return WriteLittleEndian(static_cast<uint64_t>(value), t.length);
}

Bytes AsFloat(const Number& n, const SqlType& t) {
    const double d = n.isFloat ? n.floating : ExactToDouble(n.exact);
    if (t.length == 4) {
        const auto f = static_cast<float>(d);
        if (std::isinf(f) && !std::isinf(d)) Overflow(t);
        Bytes bytes(4);
        std::memcpy(bytes.data(), &f, 4);
        return bytes;
    }
    Bytes bytes(8);
    std::memcpy(bytes.data(), &d, 8);
    return bytes;
}

Bytes AsDecimal(const Number& n, const SqlType& t) {
    Exact e;
    if (n.isFloat) {
        if (!std::isfinite(n.floating) || std::fabs(n.floating) >= 1e38) Overflow(t);
        e = Rescale(ShortestExact(n.floating), t.scale);
    } else {
        e = Rescale(n.exact, t.scale);
    }
    if (DigitCount(e.magnitude) > t.precision) Overflow(t);
    return EncodeDecimal(e);
}

SqlType Make(Family family, uint8_t code, uint32_t length, std::string name, bool fixed = false) {
    SqlType t;
    t.family = family;
    t.code = code;
    t.length = length;
    t.fixed = fixed;
    t.name = std::move(name);
    return t;
}

SqlType DecimalType(uint8_t code, int precision, int scale) {
    SqlType t = Make(Family::Decimal, code, kDecimalLength,
                     std::string(code == 106 ? "decimal" : "numeric") + "(" + std::to_string(precision) + "," +
                         std::to_string(scale) + ")");
    t.precision = static_cast<uint8_t>(precision);
    t.scale = static_cast<uint8_t>(scale);
    return t;
}

uint32_t ParseCount(const std::string& text, const std::string& type) {
    uint32_t n = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), n);
    if (error != std::errc{} || end != text.data() + text.size()) {
        throw SqlError("'" + text + "' is no valid length for " + type);
    }
    return n;
}

}  // namespace

uint32_t Value::MaxLength() const {
    return type.family == Family::Text ? static_cast<uint32_t>(bytes.size()) : type.length;
}

SqlType ParseType(const std::string& rawName, const std::vector<std::string>& args, bool inCast) {
    const std::string name = LowerText(rawName);
    auto noArgs = [&] {
        if (!args.empty()) throw SqlError("the type " + name + " takes no length");
    };
    struct Sized {
        const char* name;
        Family family;
        uint8_t code;
        bool fixed;
        uint32_t limit;
        uint32_t bytesPerUnit;
    };
    static constexpr Sized kSized[] = {
        {"char", Family::Char, 175, true, 8000, 1},     {"varchar", Family::Char, 167, false, 8000, 1},
        {"nchar", Family::NChar, 239, true, 4000, 2},   {"nvarchar", Family::NChar, 231, false, 4000, 2},
        {"binary", Family::Binary, 173, true, 8000, 1}, {"varbinary", Family::Binary, 165, false, 8000, 1},
    };
    for (const Sized& s : kSized) {
        if (name != s.name) continue;
        if (args.size() > 1) throw SqlError("the type " + name + " takes one length");
        uint32_t n = inCast ? 30 : 1;
        if (!args.empty()) {
            if (LowerText(args[0]) == "max") throw SqlError(name + "(max) is not supported; give a length");
            n = ParseCount(args[0], name);
        }
        if (n < 1 || n > s.limit) {
            throw SqlError("the length " + std::to_string(n) + " of " + name + " is out of range (1 to " +
                           std::to_string(s.limit) + ")");
        }
        return Make(s.family, s.code, n * s.bytesPerUnit, name + "(" + std::to_string(n) + ")", s.fixed);
    }
    if (name == "text") return noArgs(), Make(Family::Text, 35, 0, name);
    if (name == "tinyint") return noArgs(), Make(Family::Integer, 48, 1, name);
    if (name == "smallint") return noArgs(), Make(Family::Integer, 52, 2, name);
    if (name == "int" || name == "integer") return noArgs(), Make(Family::Integer, 38, 4, "int");
    if (name == "bit") return noArgs(), Make(Family::Bit, 104, 1, name);
    if (name == "real") return noArgs(), Make(Family::Float, 109, 4, name);
    if (name == "float") {
        if (args.size() > 1) throw SqlError("the type float takes one precision");
        const uint32_t bits = args.empty() ? 53 : ParseCount(args[0], name);
        if (bits < 1 || bits > 53) throw SqlError("the precision of float is out of range (1 to 53)");
        return bits <= 24 ? Make(Family::Float, 109, 4, "real") : Make(Family::Float, 109, 8, "float");
    }
    if (name == "decimal" || name == "numeric" || name == "dec") {
        if (args.size() > 2) throw SqlError("the type " + name + " takes a precision and a scale");
        const uint32_t precision = args.empty() ? 18 : ParseCount(args[0], name);
        const uint32_t scale = args.size() < 2 ? 0 : ParseCount(args[1], name);
        if (precision < 1 || precision > kMaxPrecision) throw SqlError("the precision of " + name + " is out of range (1 to 38)");
        if (scale > precision) throw SqlError("the scale of " + name + " is larger than its precision");
        return DecimalType(name == "numeric" ? 108 : 106, static_cast<int>(precision), static_cast<int>(scale));
    }
    throw SqlError("unknown or unsupported type '" + rawName + "'");
}

Value NullLiteral() {
    Value v;
    v.type = Make(Family::Null, 31, 0, "NULL");
    return v;
}

Value StringLiteral(const std::u32string& text) {
    Value v;
    v.bytes = To1252(text);
    const auto length = std::max<uint32_t>(static_cast<uint32_t>(v.bytes.size()), 1);
    v.type = Make(Family::Char, 167, length, "varchar(" + std::to_string(length) + ")");
    v.isNull = false;
    return v;
}

Value NStringLiteral(const std::u32string& text) {
    Value v;
    v.bytes = EncodeUtf16(text);
    const auto length = std::max<uint32_t>(static_cast<uint32_t>(v.bytes.size()), 2);
    v.type = Make(Family::NChar, 231, length, "nvarchar(" + std::to_string(length / 2) + ")");
    v.isNull = false;
    return v;
}

Value BinaryLiteral(const Bytes& bytes) {
    Value v;
    v.bytes = bytes;
    const auto length = std::max<uint32_t>(static_cast<uint32_t>(bytes.size()), 1);
    v.type = Make(Family::Binary, 165, length, "varbinary(" + std::to_string(length) + ")");
    v.isNull = false;
    return v;
}

Value NumberLiteral(const std::string& text) {
    const std::optional<Number> n = ParseNumber(text);
    if (!n) throw SqlError("'" + text + "' is no number");
    Value v;
    v.isNull = false;
    if (n->isFloat) {
        v.type = Make(Family::Float, 109, 8, "float");
        v.bytes = AsFloat(*n, v.type);
        return v;
    }
    const Exact& e = n->exact;
    const U128 limit = e.negative ? U128(2147483648u) : U128(2147483647);
    if (e.scale == 0 && e.magnitude <= limit) {
        v.type = Make(Family::Integer, 38, 4, "int");
        const int64_t i = e.negative ? -static_cast<int64_t>(e.magnitude) : static_cast<int64_t>(e.magnitude);
        v.bytes = WriteLittleEndian(static_cast<uint64_t>(i), 4);
        return v;
    }
    v.type = DecimalType(108, std::max<int>(DigitCount(e.magnitude), std::max<int>(e.scale, 1)), e.scale);
    v.bytes = EncodeDecimal(e);
    return v;
}

Value Convert(const Value& value, const SqlType& target) {
    Value out;
    out.type = target;
    if (value.isNull) return out;
    out.isNull = false;
    switch (target.family) {
    case Family::Char:
    case Family::Text: out.bytes = FitString(AsCharBytes(value, target), target, ' ', 1); break;
    case Family::NChar: out.bytes = FitString(AsUtf16Bytes(value, target), target, ' ', 2); break;
    case Family::Binary: out.bytes = FitString(AsBinaryBytes(value, target), target, 0, 1); break;
    case Family::Integer: out.bytes = AsInteger(ToNumber(value, target), target); break;
    case Family::Bit: {
        const Number n = ToNumber(value, target);
        const bool set = n.isFloat ? n.floating != 0 : n.exact.magnitude != 0;
        out.bytes = Bytes{static_cast<uint8_t>(set)};
        break;
    }
    case Family::Float: out.bytes = AsFloat(ToNumber(value, target), target); break;
    case Family::Decimal: out.bytes = AsDecimal(ToNumber(value, target), target); break;
    case Family::Null: out.isNull = true; break;
    }
    return out;
}

Value FromDelivery(const SqlType& type, const Bytes& bytes, bool isNull) {
    Value v;
    v.type = type;
    v.isNull = isNull;
    if (isNull) return v;
    v.bytes = bytes;
    if (IsNumericFamily(type.family)) {
        v.bytes.resize(type.length, 0);
    } else if (type.family != Family::Text && v.bytes.size() > type.length) {
        v.bytes.resize(type.length);
    }
    return v;
}

std::string ShowPlain(const Value& v) {
    if (v.isNull) return "NULL";
    switch (v.type.family) {
    case Family::Char: case Family::Text: return ShowCp1252(v.bytes);
    case Family::NChar: return ShowUtf16(v.bytes);
    case Family::Binary: return "0x" + Hex(v.bytes);
    case Family::Null: return "NULL";
    default: return NumberText(v);
    }
}

std::string ShowLiteral(const Value& v) {
    if (v.isNull || (!IsCharFamily(v.type.family) && v.type.family != Family::NChar)) return ShowPlain(v);
    std::string quoted = v.type.family == Family::NChar ? "N'" : "'";
    for (char c : ShowPlain(v)) {
        quoted += c;
        if (c == '\'') quoted += c;
    }
    return quoted + "'";
}

std::optional<std::string> ShowExact(const Value& v) {
    if (v.isNull) return std::nullopt;
    if (IsCharFamily(v.type.family) || v.type.family == Family::NChar) return TextOf(v);
    return ShowPlain(v);
}

bool IsNumericCode(int code) {
    switch (code) {
    case 38: case 48: case 52: case 56: case 127: case 50: case 104: case 59: case 62: case 109:
    case 55: case 63: case 106: case 108: return true;
    default: return false;
    }
}

namespace {

std::string DateTimeText(int32_t days, uint32_t milliseconds) {
    // Days since 1900-01-01 to a civil date (proleptic Gregorian), era-based.
    const int64_t z = int64_t{days} - 25567 + 719468;  // 1900-01-01 is 25567 days before 1970-01-01
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const int64_t year = yoe + era * 400 + (month <= 2);
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02lld-%02lld %02u:%02u:%02u.%03u", static_cast<long long>(year),
                  static_cast<long long>(month), static_cast<long long>(day), milliseconds / 3600000,
                  milliseconds / 60000 % 60, milliseconds / 1000 % 60, milliseconds % 1000);
    return text;
}

size_t IntegerWidth(int code, size_t length) {
    switch (code) {
    case 48: return 1;
    case 52: return 2;
    case 56: return 4;
    default: return length == 1 || length == 2 || length == 8 ? length : 4;
    }
}

}  // namespace

std::string ShowByCode(int code, const Bytes& bytes, bool exact, uint8_t scale) {
    switch (code) {
    case 35: case 39: case 47: case 167: case 175: return exact ? Cp1252ToUtf8(bytes) : ShowCp1252(bytes);
    case 99: case 231: case 239: return exact ? Utf16ToUtf8(bytes) : ShowUtf16(bytes);
    case 38: case 48: case 52: case 56: case 127: {
        const size_t width = IntegerWidth(code, bytes.size());
        const uint64_t raw = ReadLittleEndian(bytes, width);
        return code == 48 || (code == 38 && width == 1) ? std::to_string(raw) : std::to_string(SignExtend(raw, width));
    }
    case 50: case 104: return std::any_of(bytes.begin(), bytes.end(), [](uint8_t b) { return b != 0; }) ? "1" : "0";
    case 59: case 62: case 109:
        if (bytes.size() == 4) {
            float f = 0;
            std::memcpy(&f, bytes.data(), 4);
            return ShortestFloat(f);
        }
        if (bytes.size() == 8) {
            double d = 0;
            std::memcpy(&d, bytes.data(), 8);
            return ShortestDouble(d);
        }
        break;
    case 55: case 63: case 106: case 108: return ExactText(DecodeDecimal(bytes, scale));
    case 58: case 61: case 111:
        if (bytes.size() == 8) {
            const auto days = static_cast<int32_t>(ReadLittleEndian(bytes, 4));
            const auto ticks = static_cast<uint32_t>(ReadLittleEndian(Bytes(bytes.begin() + 4, bytes.end()), 4));
            return DateTimeText(days, static_cast<uint32_t>((uint64_t{ticks} * 10 + 1) / 3));
        }
        if (bytes.size() == 4) {
            const auto days = static_cast<int32_t>(ReadLittleEndian(bytes, 2));
            const auto minutes = static_cast<uint32_t>(ReadLittleEndian(Bytes(bytes.begin() + 2, bytes.end()), 2));
            return DateTimeText(days, minutes * 60000);
        }
        break;
    default: break;
    }
    return "0x" + Hex(bytes);
}

std::string ShortestDouble(double value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

std::string ShortestFloat(float value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

}  // namespace vrn::exec
