#include "symbolic/scanner.h"

#include <array>
#include <cstring>
#include <iterator>

namespace vrn {
namespace {

enum class Action { Number, PointNumber, Fixed, Name, Skip, Byte };

struct SymbRule {
    ScanRule rule;
    Action action;
    int token;  // for Fixed
};

// Earlier rules win among matches of one length, so the keywords stand before
// the names and a name only beginning with one (MINI) stays a name.
constexpr SymbRule kSymbRules[] = {
    {{"[0-9]{1,3}"}, Action::Number, 0},
    {{"[0-9]{1,3}\\.[0-9]{1,6}"}, Action::Number, 0},
    {{"\\.[0-9]{1,6}"}, Action::PointNumber, 0},
    {{"!="}, Action::Fixed, kSymbNe},
    {{"<>"}, Action::Fixed, kSymbNe},
    {{"<="}, Action::Fixed, kSymbLe},
    {{">="}, Action::Fixed, kSymbGe},
    {{"!"}, Action::Fixed, kSymbNot},
    {{"NOT", true}, Action::Fixed, kSymbNot},
    {{"MIN", true}, Action::Fixed, kSymbMin},
    {{"MAX", true}, Action::Fixed, kSymbMax},
    {{"IIF", true}, Action::Fixed, kSymbIif},
    {{"ISEMPTY", true}, Action::Fixed, kSymbIsEmpty},
    {{"EMPTY", true}, Action::Fixed, kSymbIsEmpty},
    {{"ISZERO", true}, Action::Fixed, kSymbIsZero},
    {{"ZERO", true}, Action::Fixed, kSymbIsZero},
    {{"COALESCE", true}, Action::Fixed, kSymbCoalesce},
    {{"[A-Za-z_][A-Za-z0-9_]*"}, Action::Name, 0},
    {{"[\\t\\r\\n ]"}, Action::Skip, 0},
    {{"."}, Action::Byte, 0},
};

constexpr auto kScanRules = [] {
    std::array<ScanRule, std::size(kSymbRules)> rules{};
    for (size_t i = 0; i < rules.size(); ++i) rules[i] = kSymbRules[i].rule;
    return rules;
}();

const ScanAutomaton& Automaton() {
    static const ScanAutomaton automaton{kScanRules};
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
        if (rule <= 0 || rule > static_cast<int>(std::size(kSymbRules))) return 0;
        const char* text = PercStrSymbScanner.TokenText();
        const SymbRule& matched = kSymbRules[rule - 1];
        switch (matched.action) {
            case Action::Number:
                SetTokenValue("", text);
                return kSymbValue;
            case Action::PointNumber:
                SetTokenValue("0", text);
                return kSymbValue;
            case Action::Fixed:
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
