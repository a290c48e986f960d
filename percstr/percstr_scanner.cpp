#include "percstr/percstr_scanner.h"

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

// The rules leave at most 9 digits and 6 decimals: the digits as an integer
// and the power of ten are both exact doubles, so one division gives the
// double nearest to the decimal text, as the C locale's strtod does.
double NumberOf(const char* text, uint32_t length) {
    static constexpr double kPowersOfTen[] = {1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6};
    uint32_t digits = 0;
    uint32_t decimals = 0;
    bool afterPoint = false;
    for (uint32_t i = 0; i < length; ++i) {
        if (text[i] == '.') {
            afterPoint = true;
            continue;
        }
        digits = digits * 10 + static_cast<uint32_t>(text[i] - '0');
        if (afterPoint) ++decimals;
    }
    return static_cast<double>(digits) / kPowersOfTen[decimals];
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
