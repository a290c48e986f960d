#include "symbolic/scanner.h"

#include <cstring>

namespace vrn {
namespace {

const ScanAutomaton& Automaton() {
    static const ScanAutomaton automaton{kPercStrSymbScanRows};
    return automaton;
}

}  // namespace

constinit PercStrSymbScanning PercStrSymbScanner{&Automaton};

void PercStrSymbSetTokenValue(const char* prefix, const char* text) {
    const size_t prefixLength = strlen(prefix);
    const size_t length = strnlen(text, kPercStrSymbTextMax - prefixLength);
    memcpy(PercStrSymbScanner.tokenValue.text, prefix, prefixLength);
    memcpy(PercStrSymbScanner.tokenValue.text + prefixLength, text, length);
    PercStrSymbScanner.tokenValue.text[prefixLength + length] = '\0';
}

int PercStrSymbNameToken(const char* name) {
    const PercStrSymbVar* var = PercStrSymbLookUpVar(name);
    if (var == nullptr || var->isSet == 0) {
        PercStrSymbScanner.unset =
            var == nullptr ? PercStrSymbUnsetName::kNoVariable : PercStrSymbUnsetName::kUnsetVariable;
        return kSymbUnset;
    }
    PercStrSymbScanner.tokenValue = var->value;
    return kSymbValue;
}

void PercStrSymbMarkError() {
    const ScanBuffer* buffer = PercStrSymbScanner.CurrentBuffer();
    if (buffer == nullptr) return;
    // The engine holds a NUL right behind the current token, and behind the
    // text after the end-of-buffer match, whose length is 1.
    const uint64_t end = strlen(buffer->characters);
    const uint64_t length = PercStrSymbScanner.TokenLength();
    PercStrSymbErrorPos = end - length;
    PercStrSymbErrorLen = length;
}

}  // namespace vrn
