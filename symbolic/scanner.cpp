#include "symbolic/scanner.h"

#include <cstring>

namespace vrn {
namespace {

enum class Action { Number, PointNumber, Token, Name, Skip, Byte };

// Earlier rules win among matches of one length, so the keywords stand before
// the names and a name only beginning with one (MINI) stays a name.
constexpr ScanRow<Action> kRows[] = {
    {"[0-9]{1,3}", Action::Number, kSymbValue},
    {"[0-9]{1,3}\\.[0-9]{1,6}", Action::Number, kSymbValue},
    {"\\.[0-9]{1,6}", Action::PointNumber, kSymbValue},
    {"!=", Action::Token, kSymbNe},
    {"<>", Action::Token, kSymbNe},
    {"<=", Action::Token, kSymbLe},
    {">=", Action::Token, kSymbGe},
    {"!", Action::Token, kSymbNot},
    {"NOT", Action::Token, kSymbNot, true},
    {"MIN", Action::Token, kSymbMin, true},
    {"MAX", Action::Token, kSymbMax, true},
    {"IIF", Action::Token, kSymbIif, true},
    {"ISEMPTY", Action::Token, kSymbIsEmpty, true},
    {"EMPTY", Action::Token, kSymbIsEmpty, true},
    {"ISZERO", Action::Token, kSymbIsZero, true},
    {"ZERO", Action::Token, kSymbIsZero, true},
    {"COALESCE", Action::Token, kSymbCoalesce, true},
    {"[A-Za-z_][A-Za-z0-9_]*", Action::Name},
    {"[\\t\\r\\n ]", Action::Skip},
    {".", Action::Byte},
};

const ScanAutomaton& Automaton() {
    static const ScanAutomaton automaton{kRows};
    return automaton;
}

void SetTokenValue(const char* prefix, const char* text) {
    const size_t prefixLength = strlen(prefix);
    const size_t length = strnlen(text, kPercStrSymbTextMax - prefixLength);
    memcpy(PercStrSymbTokenValue.text, prefix, prefixLength);
    memcpy(PercStrSymbTokenValue.text + prefixLength, text, length);
    PercStrSymbTokenValue.text[prefixLength + length] = '\0';
}

int NameToken(const char* name) {
    const PercStrSymbVar* var = PercStrSymbFindVar(name);
    if (var == nullptr) return kSymbUnset;
    PercStrSymbTokenValue = var->value;
    return kSymbValue;
}

}  // namespace

constinit ScannerEngine PercStrSymbScanner{&Automaton};
PercStrSymbText PercStrSymbTokenValue = {};

int PercStrSymbNextToken() {
    for (;;) {
        const int rule = PercStrSymbScanner.NextMatch();
        if (rule == kEndOfInput) return 0;
        const char* text = PercStrSymbScanner.TokenText();
        const ScanRow<Action>& matched = kRows[rule - 1];
        switch (matched.action) {
            case Action::Number:
                SetTokenValue("", text);
                return matched.token;
            case Action::PointNumber:
                SetTokenValue("0", text);
                return matched.token;
            case Action::Token:
                return matched.token;
            case Action::Name:
                return NameToken(text);
            case Action::Skip:
                continue;
            case Action::Byte:
                return static_cast<signed char>(text[0]);
        }
        return 0;
    }
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
