// Scanner 1: cuts a percentage string into numbers and single bytes.
#pragma once

#include <cstdint>

#include "percstr/scanner.h"

namespace vrn {

struct PercStrContext;

inline constexpr int32_t kPercStrNumber = 258;

// Its instance of the engine; PercStrMutex guards it.
extern ScannerEngine PercStrScanner;

// The next token of PercStrScanner's current buffer: kPercStrNumber with
// its value, a byte as a signed 8-bit code, or 0 at the end of the input.
// location moves over each matched text, skipped blanks included; context
// isn't read.
[[nodiscard]] int32_t PercStrNextToken(double* value, TokenLocation* location, PercStrContext* context);

}  // namespace vrn
