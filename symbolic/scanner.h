// Scanner 2: cuts a symbolic percentage string into tokens. A name that is a
// set variable leaves as a VALUE with the variable's text, so the grammar
// never sees names. One scan at a time in the process (PercStrSymbMutex).
#pragma once

#include <cstdint>

#include "percstr/engine/scanner.h"
#include "symbolic/symbols.h"

namespace vrn {

// Token codes; a single byte outside these is its own token, read as a signed
// 8-bit number, and 0 ends the text.
enum PercStrSymbToken : int {
    kSymbValue = 258,
    kSymbUnset,
    kSymbNe,
    kSymbLe,
    kSymbGe,
    kSymbNot,
    kSymbMin,
    kSymbMax,
    kSymbIif,
    kSymbCoalesce,
    kSymbIsEmpty,
    kSymbIsZero,
};

enum class PercStrSymbScanAction { Number, PointNumber, Token, Name, Skip, Byte };

// Earlier rules win among matches of one length, so the keywords stand before
// the names and a name only beginning with one (MINI) stays a name.
inline constexpr ScanRow<PercStrSymbScanAction> kPercStrSymbScanRows[] = {
    {"[0-9]{1,3}", PercStrSymbScanAction::Number, kSymbValue},
    {"[0-9]{1,3}\\.[0-9]{1,6}", PercStrSymbScanAction::Number, kSymbValue},
    {"\\.[0-9]{1,6}", PercStrSymbScanAction::PointNumber, kSymbValue},
    {"!=", PercStrSymbScanAction::Token, kSymbNe},
    {"<>", PercStrSymbScanAction::Token, kSymbNe},
    {"<=", PercStrSymbScanAction::Token, kSymbLe},
    {">=", PercStrSymbScanAction::Token, kSymbGe},
    {"!", PercStrSymbScanAction::Token, kSymbNot},
    {"NOT", PercStrSymbScanAction::Token, kSymbNot, true},
    {"MIN", PercStrSymbScanAction::Token, kSymbMin, true},
    {"MAX", PercStrSymbScanAction::Token, kSymbMax, true},
    {"IIF", PercStrSymbScanAction::Token, kSymbIif, true},
    {"ISEMPTY", PercStrSymbScanAction::Token, kSymbIsEmpty, true},
    {"EMPTY", PercStrSymbScanAction::Token, kSymbIsEmpty, true},
    {"ISZERO", PercStrSymbScanAction::Token, kSymbIsZero, true},
    {"ZERO", PercStrSymbScanAction::Token, kSymbIsZero, true},
    {"COALESCE", PercStrSymbScanAction::Token, kSymbCoalesce, true},
    {"[A-Za-z_][A-Za-z0-9_]*", PercStrSymbScanAction::Name},
    {"[\\t\\r\\n ]", PercStrSymbScanAction::Skip},
    {".", PercStrSymbScanAction::Byte},
};

// What the name of an UNSET token is.
enum class PercStrSymbUnsetName : int32_t { kNone, kUnsetVariable, kNoVariable };

// Scanner 2's instance of the engine, with what its actions leave beside the
// engine's own variables.
class PercStrSymbScanning : public ScannerEngine {
public:
    using ScannerEngine::ScannerEngine;

    PercStrSymbText tokenValue{};  // the text of the last VALUE token
    // The name of the last UNSET token. No production takes UNSET, so a parse
    // stops at the first; whoever parses clears it again after a failure.
    PercStrSymbUnsetName unset = PercStrSymbUnsetName::kNone;
};

extern PercStrSymbScanning PercStrSymbScanner;

// The token value: prefix and text, cut to 21 characters.
void PercStrSymbSetTokenValue(const char* prefix, const char* text);
// VALUE with the variable's text for a set variable, else UNSET.
[[nodiscard]] int PercStrSymbNameToken(const char* name);

// The next token of PercStrSymbScanner's current buffer, 0 at the end.
[[nodiscard]] inline int PercStrSymbNextToken() {
    return NextToken<kPercStrSymbScanRows>(PercStrSymbScanner, nullptr, [](const auto& row) -> int32_t {
        const char* text = PercStrSymbScanner.TokenText();
        switch (row.action) {
            case PercStrSymbScanAction::Number: PercStrSymbSetTokenValue("", text); return row.token;
            case PercStrSymbScanAction::PointNumber: PercStrSymbSetTokenValue("0", text); return row.token;
            case PercStrSymbScanAction::Token: return row.token;
            case PercStrSymbScanAction::Name: return PercStrSymbNameToken(text);
            case PercStrSymbScanAction::Skip: return kNoToken;
            case PercStrSymbScanAction::Byte: return static_cast<signed char>(text[0]);
        }
        return kNoToken;
    });
}

// Records the byte offset and length of the last match in PercStrSymbErrorPos
// and PercStrSymbErrorLen; at the end of the text: its length less 1, and 1.
void PercStrSymbMarkError();

}  // namespace vrn
