#include "formula/formula_scanner.h"

namespace vrn {

namespace {

enum class Action { Number, Token, Skip, Byte };

// The eight and four digits are limits of the language: a longer number is
// one token of its own, so that the parser reports it whole.
constexpr ScanRow<Action> kRows[] = {
    {"[0-9]{1,8}", Action::Number, kTokenInteger},
    {"[0-9]{9,}", Action::Token, kTokenLongInteger},
    {"[0-9]{0,8}\\.[0-9]{1,4}", Action::Number, kTokenDecimal},
    {"[0-9]{0,8}\\.[0-9]{5,}", Action::Token, kTokenLongDecimal},
    {"[0-9]{9,}\\.[0-9]+", Action::Token, kTokenLongDecimal},
    {"AC", Action::Token, kTokenRoundCommercial, true},
    {"AD", Action::Token, kTokenRoundDown, true},
    {"AE", Action::Token, kTokenRoundUp, true},
    {"[\\t\\r\\n ]+", Action::Skip},
    // Its lead byte is anything else, even a digit.
    {"[^\\t !-+/Aa][A-Za-z][A-Za-z0-9]+", Action::Token, kTokenBadWord},
    {".", Action::Byte},
};

}  // namespace

const ScanAutomaton& PFormulaAutomaton() {
    static const ScanAutomaton automaton(kRows);
    return automaton;
}

constinit ScannerEngine PFormulaScanner(PFormulaAutomaton);

int32_t PFormulaNextToken(double* value, TokenLocation* location, PFormulaRecord*) {
    for (;;) {
        const int rule = PFormulaScanner.NextMatch();
        if (rule == kEndOfInput) return 0;
        StepLocation(location, PFormulaScanner.TokenLength());
        const ScanRow<Action>& row = kRows[rule - 1];
        switch (row.action) {
            case Action::Number:
                *value = DecimalValue(PFormulaScanner.TokenText(), PFormulaScanner.TokenLength());
                return row.token;
            case Action::Token: return row.token;
            case Action::Skip: continue;
            case Action::Byte: return static_cast<int8_t>(PFormulaScanner.TokenText()[0]);
        }
    }
}

}  // namespace vrn
