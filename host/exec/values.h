// T-SQL types and values of vrn-exec, in the form the server hands them to a
// procedure: a type code, a maxLength and the value's bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/exec/text.h"

namespace vrn::exec {

enum class Family { Null, Char, NChar, Text, Binary, Integer, Bit, Float, Decimal };

struct SqlType {
    Family family = Family::Null;
    uint8_t code = 31;
    uint32_t length = 0;  // maxLength handed over: n, 2n for nchar, the width of a number
    bool fixed = false;   // char(n), nchar(n), binary(n): padded to length
    uint8_t precision = 0;
    uint8_t scale = 0;
    std::string name;  // as a user writes it: varchar(30)
};

struct Value {
    SqlType type;
    bool isNull = true;
    Bytes bytes;
    // What the procedure sees as maxLength: text's is its value's length.
    [[nodiscard]] uint32_t MaxLength() const;
};

// A mistake in the script or a value that doesn't convert; the runner adds the line.
struct SqlError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A type by name and its arguments, e.g. ("varchar", {30}). inCast: a char type
// without a length is 30 long, as in CAST; in DECLARE it is 1 long.
[[nodiscard]] SqlType ParseType(const std::string& name, const std::vector<std::string>& args, bool inCast);

// Literals, typed as the server types them (see the README's table).
[[nodiscard]] Value NullLiteral();
[[nodiscard]] Value StringLiteral(const std::u32string& text);   // 'x'
[[nodiscard]] Value NStringLiteral(const std::u32string& text);  // N'x'
[[nodiscard]] Value BinaryLiteral(const Bytes& bytes);           // 0x..
[[nodiscard]] Value NumberLiteral(const std::string& text);      // 12, -1.5, 1e2

// Assignment and CAST: the value as the target type. Strings are cut or padded;
// numbers that don't fit are an arithmetic overflow.
[[nodiscard]] Value Convert(const Value& value, const SqlType& target);

// A value delivered to an OUTPUT parameter of this type: stored as delivered
// (a char value isn't padded), cut to the declared length; numbers keep their width.
[[nodiscard]] Value FromDelivery(const SqlType& type, const Bytes& bytes, bool isNull);

// Display texts. Plain: as a result cell ("NULL" for NULL). Literal: as T-SQL
// would write it ('it''s', N'x', 0x0A, NULL). Exact: for JSON, characters
// unescaped; nullopt for NULL.
[[nodiscard]] std::string ShowPlain(const Value& value);
[[nodiscard]] std::string ShowLiteral(const Value& value);
[[nodiscard]] std::optional<std::string> ShowExact(const Value& value);

// A value that comes back only with its host type code (OUTPUT deliveries,
// row cells): decoded by the code and, for numbers, by its length.
[[nodiscard]] std::string ShowByCode(int code, const Bytes& bytes, bool exact, uint8_t scale = 0);
[[nodiscard]] bool IsNumericCode(int code);

// The shortest text that reads back to the same number: 0.15000000000000002, 1, -0, inf.
[[nodiscard]] std::string ShortestDouble(double value);
[[nodiscard]] std::string ShortestFloat(float value);

}  // namespace vrn::exec
