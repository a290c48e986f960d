// Scanner 2: cuts a symbolic percentage string into tokens. A name that is a
// set variable leaves as a VALUE with the variable's text, so the grammar
// never sees names. One scan at a time in the process (PercStrSymbMutex).
#pragma once

#include <cstdint>

#include "percstr/scanner.h"
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

extern ScannerEngine PercStrSymbScanner;
// The text of the last VALUE token.
extern PercStrSymbText PercStrSymbTokenValue;

// The next token of PercStrSymbScanner's current buffer, 0 at the end.
[[nodiscard]] int PercStrSymbNextToken();
// Records the byte offset and length of the last match in PercStrSymbErrorPos
// and PercStrSymbErrorLen; at the end of the text: its length less 1, and 1.
void PercStrSymbMarkError();

}  // namespace vrn
