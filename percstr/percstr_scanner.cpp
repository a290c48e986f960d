#include "percstr/percstr_scanner.h"

#include <charconv>

namespace vrn {

namespace {

enum PercStrRule : int { kInteger = 1, kDecimal, kBlank, kInnerNul, kOtherByte };

constexpr ScanRule kPercStrRules[] = {
    {"[0-9]{1,3}"},                 // kInteger
    {"[0-9]{0,3}\\.[0-9]{1,6}"},    // kDecimal
    {"[\\t\\r\\n ]"},               // kBlank
    {"\\0"},                        // kInnerNul: the final NULs never reach the rules
    {"."},                          // kOtherByte
};

const ScanAutomaton& PercStrAutomaton() {
    static const ScanAutomaton automaton(kPercStrRules);
    return automaton;
}

// The text holds digits and at most one point: the nearest double, as the
// C locale's strtod gives it.
double NumberOf(const char* text, uint32_t length) {
    double value = 0.0;
    std::from_chars(text, text + length, value);
    return value;
}

}  // namespace

constinit ScannerEngine PercStrScanner(PercStrAutomaton);

int32_t PercStrNextToken(double* value, TokenLocation* location, PercStrContext*) {
    for (;;) {
        const int rule = PercStrScanner.NextMatch();
        if (rule == kEndOfInput) return 0;
        StepLocation(location, PercStrScanner.TokenLength());
        switch (rule) {
            case kInteger:
            case kDecimal:
                *value = NumberOf(PercStrScanner.TokenText(), PercStrScanner.TokenLength());
                return kPercStrNumber;
            case kBlank: continue;
            case kInnerNul: return 0;
            default: return static_cast<int8_t>(PercStrScanner.TokenText()[0]);
        }
    }
}

}  // namespace vrn
