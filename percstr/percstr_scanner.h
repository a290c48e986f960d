// Scanner 1: cuts a percentage string into numbers and single bytes. The
// rows and the token function stand here so that the parser's loop takes the
// token function in.
#pragma once

#include <cstdint>

#include "percstr/engine/scanner.h"

namespace vrn {

struct PercStrContext;

inline constexpr int32_t kPercStrNumber = 258;

enum class PercStrScanAction { Number, Skip, End, Byte };

inline constexpr ScanRow<PercStrScanAction> kPercStrScanRows[] = {
    {"[0-9]{1,3}", PercStrScanAction::Number, kPercStrNumber},
    {"[0-9]{0,3}\\.[0-9]{1,6}", PercStrScanAction::Number, kPercStrNumber},
    {"[\\t\\r\\n ]", PercStrScanAction::Skip},
    {"\\0", PercStrScanAction::End},  // a NUL of the input: the final NULs never reach the rules
    {".", PercStrScanAction::Byte},
};

// Its instance of the engine; PercStrMutex guards it.
extern ScannerEngine PercStrScanner;

// The next token of PercStrScanner's current buffer: kPercStrNumber with
// its value, a byte as a signed 8-bit code, or 0 at the end of the input.
// location moves over each matched text, skipped blanks included; context
// isn't read.
[[nodiscard]] inline int32_t PercStrNextToken(double* value, TokenLocation* location, PercStrContext*) {
    return NextToken<kPercStrScanRows>(PercStrScanner, location, [&](const auto& row) -> int32_t {
        switch (row.action) {
            case PercStrScanAction::Number:
                *value = DecimalValue(PercStrScanner.TokenText(), PercStrScanner.TokenLength());
                return row.token;
            case PercStrScanAction::Skip: return kNoToken;
            case PercStrScanAction::End: return 0;
            case PercStrScanAction::Byte: return static_cast<int8_t>(PercStrScanner.TokenText()[0]);
        }
        return kNoToken;
    });
}

}  // namespace vrn
