#include "host/tds/types.h"

#include <algorithm>
#include <array>

#include "host/tds/protocol.h"

namespace vrn::tds {

namespace {

// How a type's TYPE_INFO and value are laid out.
enum class Layout {
    Fixed,   // no length: the width is the type's
    Byte,    // one-byte length in TYPE_INFO and before the value (0: NULL)
    Scaled,  // date and time: a scale (but date) in TYPE_INFO, one-byte length before the value
    UShort,  // two-byte length (0xFFFF: NULL), or PLP when declared (max)
    Long,    // four-byte length (0xFFFFFFFF: NULL, and 0 for a variant)
    Xml,     // schema information in TYPE_INFO, PLP value
};

struct TypeRow {
    uint8_t type;
    Layout layout;
    uint8_t width;  // fixed types
    uint8_t host;   // the host code srv_paraminfo reports (integers by width: see HostCode)
};

// Every type a client may send. The host codes are the protocol's own, but for
// INTN (tinyint 48, smallint 52, int 38, bigint 127, by width) and the NULL
// type (31), as vrn-exec hands them over; decimals reach the host as 17 bytes.
constexpr TypeRow kTypes[] = {
    {kNull, Layout::Fixed, 0, 31},         {kInt1, Layout::Fixed, 1, 48},
    {kBit, Layout::Fixed, 1, 50},          {kInt2, Layout::Fixed, 2, 52},
    {kInt4, Layout::Fixed, 4, 56},         {kInt8, Layout::Fixed, 8, 127},
    {kDateTime4, Layout::Fixed, 4, 58},    {kFlt4, Layout::Fixed, 4, 59},
    {kMoney, Layout::Fixed, 8, 60},        {kDateTime, Layout::Fixed, 8, 61},
    {kFlt8, Layout::Fixed, 8, 62},         {kMoney4, Layout::Fixed, 4, 122},
    {kGuid, Layout::Byte, 0, 36},          {kIntN, Layout::Byte, 0, 38},
    {kDecimal, Layout::Byte, 0, 55},       {kNumeric, Layout::Byte, 0, 63},
    {kBitN, Layout::Byte, 0, 104},         {kDecimalN, Layout::Byte, 0, 106},
    {kNumericN, Layout::Byte, 0, 108},     {kFltN, Layout::Byte, 0, 109},
    {kMoneyN, Layout::Byte, 0, 110},       {kDateTimeN, Layout::Byte, 0, 111},
    {kChar, Layout::Byte, 0, 47},          {kVarChar, Layout::Byte, 0, 39},
    {kBinary, Layout::Byte, 0, 45},        {kVarBinary, Layout::Byte, 0, 37},
    {kDateN, Layout::Scaled, 0, 40},       {kTimeN, Layout::Scaled, 0, 41},
    {kDateTime2N, Layout::Scaled, 0, 42},  {kDateTimeOffsetN, Layout::Scaled, 0, 43},
    {kBigVarBinary, Layout::UShort, 0, 165}, {kBigVarChar, Layout::UShort, 0, 167},
    {kBigBinary, Layout::UShort, 0, 173},  {kBigChar, Layout::UShort, 0, 175},
    {kNVarChar, Layout::UShort, 0, 231},   {kNChar, Layout::UShort, 0, 239},
    {kImage, Layout::Long, 0, 34},         {kText, Layout::Long, 0, 35},
    {kSqlVariant, Layout::Long, 0, 98},    {kNText, Layout::Long, 0, 99},
    {kXml, Layout::Xml, 0, 241},
};

// Each type's row in kTypes, by type byte (-1: none): one look per value.
constexpr auto kRowIndex = [] {
    std::array<int8_t, 256> index{};
    index.fill(-1);
    for (size_t i = std::size(kTypes); i-- > 0;) index[kTypes[i].type] = static_cast<int8_t>(i);  // the first row wins
    return index;
}();

const TypeRow* RowOf(uint8_t type) { return kRowIndex[type] < 0 ? nullptr : &kTypes[kRowIndex[type]]; }

constexpr uint32_t kHostDecimalLength = 17;  // sign byte + 16-byte magnitude
constexpr uint32_t kMaxValueLength = 8000;   // the longest value that isn't (max)
constexpr uint64_t kPlpNull = ~uint64_t{0};
constexpr uint64_t kPlpUnknownLength = ~uint64_t{0} - 1;

bool IsDecimal(uint8_t type) { return type == kDecimalN || type == kNumericN || type == kDecimal || type == kNumeric; }
bool IsInteger(uint8_t type) { return type == kIntN || type == kInt1 || type == kInt2 || type == kInt4 || type == kInt8; }
bool IsFloat(uint8_t type) { return type == kFltN || type == kFlt4 || type == kFlt8; }
bool IsWide(uint8_t type) { return type == kNVarChar || type == kNChar || type == kNText; }

uint8_t DecimalLength(uint8_t precision) {
    return precision <= 9 ? 5 : precision <= 19 ? 9 : precision <= 28 ? 13 : 17;
}
bool IsDecimalLength(size_t n) { return n == 5 || n == 9 || n == 13 || n == 17; }

uint32_t Width(const TypeInfo& t) {
    const TypeRow* row = RowOf(t.type);
    return row && row->layout == Layout::Fixed ? row->width : t.length;
}

uint8_t HostCode(const TypeInfo& t) {
    if (t.type == kIntN) {
        switch (t.length) {
        case 1: return 48;
        case 2: return 52;
        case 8: return 127;
        default: return 38;
        }
    }
    const TypeRow* row = RowOf(t.type);
    return row ? row->host : t.type;
}

int64_t IntegerOf(const Bytes& bytes, bool isUnsigned) {
    const size_t n = std::min<size_t>(bytes.size(), 8);
    uint64_t raw = 0;
    for (size_t i = 0; i < n; ++i) raw |= uint64_t{bytes[i]} << (8 * i);
    if (!isUnsigned && n > 0 && n < 8 && (bytes[n - 1] & 0x80)) raw |= ~uint64_t{0} << (8 * n);
    return static_cast<int64_t>(raw);
}

Bytes LowBytes(int64_t value, size_t width) {
    Bytes out(width);
    for (size_t i = 0; i < width; ++i) out[i] = static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i));
    return out;
}

Bytes FloatOf(const Bytes& bytes, size_t width) {
    double d = 0;
    if (bytes.size() == 8) {
        std::memcpy(&d, bytes.data(), 8);
    } else if (bytes.size() == 4) {
        float f = 0;
        std::memcpy(&f, bytes.data(), 4);
        d = f;
    }
    Bytes out(width);
    if (width == 4) {
        const auto f = static_cast<float>(d);
        std::memcpy(out.data(), &f, 4);
    } else if (width == 8) {
        std::memcpy(out.data(), &d, 8);
    }
    return out;
}

// A value of any shape, as t's value: integers and floats convert by width,
// bits become 0 or 1, texts and binaries are cut to t's length.
Value Fit(const TypeInfo& t, const Value& value, bool sourceUnsigned) {
    if (!value) return value;
    const Bytes& v = *value;
    if (IsInteger(t.type)) return LowBytes(IntegerOf(v, sourceUnsigned), Width(t));
    if (IsFloat(t.type)) return FloatOf(v, Width(t));
    if (t.type == kBit || t.type == kBitN) {
        return Bytes{static_cast<uint8_t>(std::any_of(v.begin(), v.end(), [](uint8_t b) { return b != 0; }))};
    }
    if (IsDecimal(t.type)) {
        // The host's 17 bytes (sign, then the magnitude) into the precision's length.
        const size_t n = std::min<size_t>(DecimalLength(t.precision), t.length);
        Bytes out(v.begin(), v.begin() + std::min(v.size(), n));
        out.resize(n, 0);
        if (v.empty()) out[0] = 1;
        return out;
    }
    const TypeRow* row = RowOf(t.type);
    if (row && row->layout == Layout::Fixed) {
        Bytes out = v;
        out.resize(row->width, 0);
        return out;
    }
    if ((row && (row->layout == Layout::Long || row->layout == Layout::Scaled)) || t.IsPlp()) return value;
    Bytes out(v.begin(), v.begin() + std::min<size_t>(v.size(), t.length));
    if (IsWide(t.type) && out.size() % 2) out.pop_back();
    return out;
}

void WritePlp(Writer& w, const Value& value) {
    if (!value) return w.U64(kPlpNull);
    w.U64(value->size());
    if (!value->empty()) {
        w.U32(static_cast<uint32_t>(value->size()));
        w.Append(*value);
    }
    w.U32(0);
}

bool ReadPlp(Reader& r, Value& value, size_t maxBytes) {
    const uint64_t total = r.U64();
    if (total == kPlpNull) {
        value.reset();
        return r.ok();
    }
    if (total != kPlpUnknownLength && total > maxBytes) return false;
    Bytes out;
    for (;;) {
        const uint32_t chunk = r.U32();
        if (!r.ok()) return false;
        if (chunk == 0) break;
        if (chunk > maxBytes - out.size() || !r.Need(chunk)) return false;
        out.insert(out.end(), r.Here(), r.Here() + chunk);
        r.Skip(chunk);
    }
    value = std::move(out);
    return r.ok();
}

// The widths a nullable number, date or GUID can declare.
bool WidthAllowed(const TypeInfo& t) {
    switch (t.type) {
    case kIntN: return t.length == 1 || t.length == 2 || t.length == 4 || t.length == 8;
    case kFltN: case kMoneyN: case kDateTimeN: return t.length == 4 || t.length == 8;
    case kBitN: return t.length == 1;
    case kGuid: return t.length == 16;
    case kTimeN: case kDateTime2N: case kDateTimeOffsetN: return t.scale <= 7;
    default: return true;
    }
}

}  // namespace

bool TypeInfo::IsPlp() const {
    const TypeRow* row = RowOf(type);
    return row && ((row->layout == Layout::UShort && length == kMaxMarker) || row->layout == Layout::Xml);
}

bool TypeInfo::HasCollation() const {
    return type == kBigVarChar || type == kBigChar || type == kNVarChar || type == kNChar || type == kText ||
           type == kNText;
}

bool ReadTypeInfo(Reader& r, TypeInfo& t, uint32_t version) {
    t = TypeInfo{};
    t.type = r.U8();
    const TypeRow* row = RowOf(t.type);
    if (!row) return false;
    switch (row->layout) {
    case Layout::Fixed: t.length = row->width; break;
    case Layout::Byte: t.length = r.U8(); break;
    case Layout::Scaled:
        if (t.type != kDateN) t.scale = r.U8();
        t.length = 10;  // the longest date and time value
        break;
    case Layout::UShort:
        t.length = r.U16();
        if (t.length == kMaxMarker && !Is72(version)) return false;
        break;
    case Layout::Long: t.length = r.U32(); break;
    case Layout::Xml:
        if (r.U8()) {
            (void)r.BVarChar();
            (void)r.BVarChar();
            (void)r.UsVarChar();
        }
        break;
    }
    if (IsDecimal(t.type)) {
        t.precision = r.U8();
        t.scale = r.U8();
        if (t.precision < 1 || t.precision > 38 || t.scale > t.precision || !IsDecimalLength(t.length)) return false;
    }
    if (!WidthAllowed(t)) return false;
    if (t.HasCollation()) {
        for (uint8_t& b : t.collation) b = r.U8();
    }
    return r.ok();
}

void WriteTypeInfo(Writer& w, const TypeInfo& t, uint32_t version, bool withTableName) {
    w.U8(t.type);
    const TypeRow* row = RowOf(t.type);
    const Layout layout = row ? row->layout : Layout::Fixed;
    switch (layout) {
    case Layout::Fixed: break;
    case Layout::Byte: w.U8(static_cast<uint8_t>(t.length)); break;
    case Layout::Scaled:
        if (t.type != kDateN) w.U8(t.scale);
        break;
    case Layout::UShort: w.U16(static_cast<uint16_t>(t.length)); break;
    case Layout::Long: w.U32(t.length); break;
    case Layout::Xml: w.U8(0); break;
    }
    if (IsDecimal(t.type)) {
        w.U8(t.precision);
        w.U8(t.scale);
    }
    if (t.HasCollation()) w.Append(t.collation, sizeof t.collation);
    if (withTableName && layout == Layout::Long) {
        if (Is72(version)) w.U8(0);  // no parts
        else w.U16(0);               // an empty name
    }
}

bool ReadValue(Reader& r, const TypeInfo& t, Value& value, size_t maxBytes, bool inRow) {
    const TypeRow* row = RowOf(t.type);
    if (!row) return false;
    if (t.IsPlp()) return ReadPlp(r, value, maxBytes);
    size_t length = 0;
    if (t.type == kNull) {
        value.reset();
        return r.ok();
    }
    switch (row->layout) {
    case Layout::Fixed: length = row->width; break;
    case Layout::Byte: case Layout::Scaled:
        length = r.U8();
        if (length == 0 && t.type != kChar && t.type != kVarChar && t.type != kBinary && t.type != kVarBinary) {
            value.reset();
            return r.ok();
        }
        break;
    case Layout::UShort:
        length = r.U16();
        if (length == kMaxMarker) {
            value.reset();
            return r.ok();
        }
        break;
    case Layout::Long: {
        if (inRow && t.type != kSqlVariant) {
            const uint8_t pointer = r.U8();
            if (pointer == 0) {
                value.reset();
                return r.ok();
            }
            r.Skip(pointer + 8u);  // text pointer and timestamp
        }
        const uint32_t n = r.U32();
        if (n == 0xFFFFFFFF || (n == 0 && t.type == kSqlVariant)) {
            value.reset();
            return r.ok();
        }
        length = n;
        break;
    }
    case Layout::Xml: return false;
    }
    // A value longer than its type declares is a lie.
    const size_t declared = row->layout == Layout::Long ? maxBytes : t.length;
    if (length > maxBytes || length > declared || !r.Need(length)) return false;
    if (IsDecimal(t.type) && !IsDecimalLength(length)) return false;
    value = r.Take(length);
    return r.ok();
}

void WriteValue(Writer& w, const TypeInfo& t, const Value& raw, bool inRow) {
    const Value value = Fit(t, raw, false);
    const TypeRow* row = RowOf(t.type);
    const Layout layout = row ? row->layout : Layout::Fixed;
    if (t.IsPlp()) return WritePlp(w, value);
    switch (layout) {
    case Layout::Fixed:
        // A fixed type has no NULL: a missing value goes as zeros.
        w.Append(value ? *value : Bytes(row ? row->width : 0, 0));
        return;
    case Layout::Byte: case Layout::Scaled:
        w.U8(value ? static_cast<uint8_t>(std::min<size_t>(value->size(), 255)) : 0);
        if (value) w.Append(value->data(), std::min<size_t>(value->size(), 255));
        return;
    case Layout::UShort:
        if (!value) return w.U16(kMaxMarker);
        w.U16(static_cast<uint16_t>(value->size()));
        w.Append(*value);
        return;
    case Layout::Long:
        if (inRow && t.type != kSqlVariant) {
            if (!value) return w.U8(0);
            w.U8(16);
            w.Append(Bytes(16, 0xEE));  // a text pointer no one follows
            w.U64(0);                   // its timestamp
        }
        if (!value) return w.U32(t.type == kSqlVariant ? 0 : 0xFFFFFFFF);
        w.U32(static_cast<uint32_t>(value->size()));
        w.Append(*value);
        return;
    case Layout::Xml: return WritePlp(w, value);
    }
}

HostValue ToHost(const TypeInfo& t, const Value& value) {
    HostValue h;
    h.code = HostCode(t);
    h.value = value;
    const TypeRow* row = RowOf(t.type);
    const size_t size = value ? value->size() : 0;
    if (IsDecimal(t.type)) {
        h.maxLength = kHostDecimalLength;
        if (value) {
            h.value->resize(kHostDecimalLength, 0);
            if (value->empty()) (*h.value)[0] = 1;
        }
    } else if (t.IsPlp()) {
        h.maxLength = static_cast<uint32_t>(std::max<size_t>(kMaxValueLength, size));
    } else if (row && row->layout == Layout::Long) {
        h.maxLength = static_cast<uint32_t>(size);
    } else {
        h.maxLength = Width(t);
    }
    return h;
}

Value FromHost(const TypeInfo& t, const Value& delivered) {
    return Fit(t, delivered, false);
}

TypeInfo TypeOfHost(uint8_t code, uint32_t maxLength, uint8_t precision, uint8_t scale) {
    TypeInfo t;
    auto sized = [&](uint8_t type, uint32_t fallback) {
        t.type = type;
        t.length = maxLength ? maxLength : fallback;
        if (t.length > kMaxValueLength) t.length = kMaxMarker;
    };
    switch (code) {
    case 48: t.type = kIntN, t.length = 1; break;
    case 52: t.type = kIntN, t.length = 2; break;
    case 38: t.type = kIntN, t.length = maxLength == 1 || maxLength == 2 || maxLength == 8 ? maxLength : 4; break;
    case 104: t.type = kBitN, t.length = 1; break;
    case 109: t.type = kFltN, t.length = maxLength == 4 ? 4 : 8; break;
    case 111: t.type = kDateTimeN, t.length = maxLength == 4 ? 4 : 8; break;
    case 110: t.type = kMoneyN, t.length = maxLength == 4 ? 4 : 8; break;
    case 55: case 63: case 106: case 108:
        t.type = code == 55 || code == 106 ? kDecimalN : kNumericN;
        t.precision = precision ? precision : 38;
        t.scale = scale;
        t.length = DecimalLength(t.precision);
        break;
    case 39: case 167: sized(kBigVarChar, 1); break;
    case 47: case 175: sized(kBigChar, 1); break;
    case 37: case 165: sized(kBigVarBinary, 1); break;
    case 45: case 173: sized(kBigBinary, 1); break;
    case 231: sized(kNVarChar, 2); break;
    case 239: sized(kNChar, 2); break;
    case 35: t.type = kText, t.length = 0x7FFFFFFF; break;
    case 99: t.type = kNText, t.length = 0x7FFFFFFF; break;
    case 34: t.type = kImage, t.length = 0x7FFFFFFF; break;
    default: {
        const TypeRow* row = nullptr;
        for (const TypeRow& candidate : kTypes) {
            if (candidate.host == code && candidate.layout == Layout::Fixed) row = &candidate;
        }
        if (row) {
            t.type = row->type;
            t.length = row->width;
        } else {
            sized(kBigVarBinary, kMaxValueLength);  // a code without a type: its bytes
        }
        break;
    }
    }
    if (t.HasCollation()) std::memcpy(t.collation, kCollation, sizeof t.collation);
    return t;
}

Value CellOfHost(const TypeInfo& t, uint8_t srcCode, const Value& cell) {
    return Fit(t, cell, srcCode == 48);
}

HostValue HostOfColumn(const TypeInfo& t, const Value& value) {
    HostValue h = ToHost(t, value);
    // Described widths: fixed types and texts have none.
    const TypeRow* row = RowOf(t.type);
    if (row && (row->layout == Layout::Fixed || row->layout == Layout::Long)) h.maxLength = 0;
    if (t.IsPlp()) h.maxLength = 0;
    return h;
}

}  // namespace vrn::tds
