#include "formula/formula_scanner.h"

#include <charconv>

namespace vrn {

namespace {

enum FormulaRule : int {
    kInteger = 1,
    kLongInteger,
    kDecimal,
    kLongDecimal,
    kLongIntegerPart,
    kRoundCommercial,
    kRoundDown,
    kRoundUp,
    kBlanks,
    kBadWord,
    kOtherByte,
};

// The eight and four digits are limits of the language: a longer number is
// one token of its own, so that the parser reports it whole.
constexpr ScanRule kFormulaRules[] = {
    {"[0-9]{1,8}"},                      // kInteger
    {"[0-9]{9,}"},                       // kLongInteger
    {"[0-9]{0,8}\\.[0-9]{1,4}"},         // kDecimal
    {"[0-9]{0,8}\\.[0-9]{5,}"},          // kLongDecimal
    {"[0-9]{9,}\\.[0-9]+"},              // kLongIntegerPart
    {"AC", true},                        // kRoundCommercial
    {"AD", true},                        // kRoundDown
    {"AE", true},                        // kRoundUp
    {"[\\t\\r\\n ]+"},                   // kBlanks
    {"[^\\t !-+/Aa][A-Za-z][A-Za-z0-9]+"},  // kBadWord: its lead byte is anything else, even a digit
    {"."},                               // kOtherByte
};

// Digits and at most one point: the nearest double, as the C locale's strtod gives it.
double NumberOf(const char* text, uint32_t length) {
    double value = 0.0;
    (void)std::from_chars(text, text + length, value);
    return value;
}

}  // namespace

const ScanAutomaton& PFormulaAutomaton() {
    static const ScanAutomaton automaton(kFormulaRules);
    return automaton;
}

constinit ScannerEngine PFormulaScanner(PFormulaAutomaton);

int32_t PFormulaNextToken(double* value, TokenLocation* location, PFormulaRecord*) {
    for (;;) {
        const int rule = PFormulaScanner.NextMatch();
        if (rule == kEndOfInput) return 0;
        StepLocation(location, PFormulaScanner.TokenLength());
        switch (rule) {
            case kInteger:
                *value = NumberOf(PFormulaScanner.TokenText(), PFormulaScanner.TokenLength());
                return kTokenInteger;
            case kDecimal:
                *value = NumberOf(PFormulaScanner.TokenText(), PFormulaScanner.TokenLength());
                return kTokenDecimal;
            case kLongInteger: return kTokenLongInteger;
            case kLongDecimal:
            case kLongIntegerPart: return kTokenLongDecimal;
            case kRoundCommercial: return kTokenRoundCommercial;
            case kRoundDown: return kTokenRoundDown;
            case kRoundUp: return kTokenRoundUp;
            case kBlanks: continue;
            case kBadWord: return kTokenBadWord;
            default: return static_cast<int8_t>(PFormulaScanner.TokenText()[0]);
        }
    }
}

}  // namespace vrn
