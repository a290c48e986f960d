// TDS data types: reading and writing a TYPE_INFO and a value of it, and the
// one table that maps them to the host's type codes, which the procedures judge.
#pragma once

#include <cstdint>
#include <optional>

#include "host/tds/wire.h"

namespace vrn::tds {

// TDS type bytes.
enum TdsType : uint8_t {
    kNull = 0x1F, kImage = 0x22, kText = 0x23, kGuid = 0x24, kVarBinary = 0x25, kIntN = 0x26, kVarChar = 0x27,
    kDateN = 0x28, kTimeN = 0x29, kDateTime2N = 0x2A, kDateTimeOffsetN = 0x2B, kBinary = 0x2D, kChar = 0x2F,
    kInt1 = 0x30, kBit = 0x32, kInt2 = 0x34, kDecimal = 0x37, kInt4 = 0x38, kDateTime4 = 0x3A, kFlt4 = 0x3B,
    kMoney = 0x3C, kDateTime = 0x3D, kFlt8 = 0x3E, kNumeric = 0x3F, kSqlVariant = 0x62, kNText = 0x63,
    kBitN = 0x68, kDecimalN = 0x6A, kNumericN = 0x6C, kFltN = 0x6D, kMoneyN = 0x6E, kDateTimeN = 0x6F,
    kMoney4 = 0x7A, kInt8 = 0x7F, kBigVarBinary = 0xA5, kBigVarChar = 0xA7, kBigBinary = 0xAD,
    kBigChar = 0xAF, kNVarChar = 0xE7, kNChar = 0xEF, kUdt = 0xF0, kXml = 0xF1, kTvp = 0xF3,
};

constexpr uint16_t kMaxMarker = 0xFFFF;  // USHORTLEN maximum of a (max) type: its value is PLP

struct TypeInfo {
    uint8_t type = kNull;
    uint32_t length = 0;  // declared maximum length; fixed types: their width
    uint8_t precision = 0, scale = 0;
    uint8_t collation[5] = {};
    [[nodiscard]] bool IsPlp() const;
    [[nodiscard]] bool HasCollation() const;
};

// A value as the wire carries it, PLP chunks joined; nullopt is NULL.
using Value = std::optional<Bytes>;

// TYPE_INFO of an RPC parameter or RETURNVALUE. False for a type this server
// can't read (user-defined types, table-valued parameters) or a lying length.
[[nodiscard]] bool ReadTypeInfo(Reader& r, TypeInfo& t, uint32_t version);
// withTableName: a COLMETADATA's text column, which names its (absent) table.
void WriteTypeInfo(Writer& w, const TypeInfo& t, uint32_t version, bool withTableName = false);
// inRow: a ROW's text, image and ntext values come behind a text pointer.
[[nodiscard]] bool ReadValue(Reader& r, const TypeInfo& t, Value& value, size_t maxBytes, bool inRow = false);
// Writes value as t's value; a value that doesn't fit t is cut or converted.
void WriteValue(Writer& w, const TypeInfo& t, const Value& value, bool inRow = false);

// ---- The host's view -----------------------------------------------------------

// A parameter as the procedure sees it through srv_paraminfo.
struct HostValue {
    uint8_t code = 0;
    uint32_t maxLength = 0;
    Value value;
};
// From the wire to what srv_paraminfo reports.
[[nodiscard]] HostValue ToHost(const TypeInfo& t, const Value& value);
// What a procedure delivered with srv_paramsetoutput, as a value of t.
[[nodiscard]] Value FromHost(const TypeInfo& t, const Value& delivered);
// The TYPE_INFO that carries a host type code and maxLength (a client's
// parameter, a described column). Fixed host codes keep their fixed types.
[[nodiscard]] TypeInfo TypeOfHost(uint8_t code, uint32_t maxLength, uint8_t precision = 0, uint8_t scale = 0);
// A column cell as the procedure bound it (srcCode's bytes) as a value of t.
[[nodiscard]] Value CellOfHost(const TypeInfo& t, uint8_t srcCode, const Value& cell);
// The host code and maxLength a value of t comes back as (a RETURNVALUE, a column).
[[nodiscard]] HostValue HostOfColumn(const TypeInfo& t, const Value& value);

}  // namespace vrn::tds
