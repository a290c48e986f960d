// The percentage-string normaliser: turns what users type into a discount
// field (10+5-2, 10,5, 10 5) into the canonical text that the scanner reads.
#pragma once

#include <cstdint>

namespace vrn {

// input: NUL-terminated bytes, or null. output: a buffer of *length bytes
// (NUL included), or null. On return *length is the length of the text written.
// Returns the number of characters thrown away as defects; running out of
// capacity cuts the text without counting. Capacities below 5 give the empty
// text. Needs no lock: it touches nothing but its arguments.
int32_t PercStrNormalizeText(const char* input, char* output, uint32_t* length);

}  // namespace vrn
