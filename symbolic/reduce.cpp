// Grammar 2: every action rewrites text in fixed fields of 21 characters;
// numbers arise only to compare two texts, through the percentage evaluator.
#include "symbolic/reduce.h"

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "percstr/evaluate.h"
#include "percstr/engine/parser.h"
#include "symbolic/scanner.h"
#include "symbolic/symbols.h"

namespace vrn {

// The value of a grammar symbol: text for input, expr and the lists, a truth
// value (0 or 1) for cond.
union PercStrSymbValue {
    PercStrSymbText text;
    int32_t truth;
};

namespace {

struct PercStrSymbContext {
    bool syntaxError = false;
};

using SymbGrammar = Grammar<PercStrSymbValue, NoLocation, PercStrSymbContext>;
using SymbReduce = SymbGrammar::Reduce;

Lookahead<PercStrSymbValue, NoLocation> PercStrSymbLookahead;

// ---- Texts. Blank is a space or a tab.

constexpr bool IsBlank(char c) { return c == ' ' || c == '\t'; }

bool IsBlankText(const PercStrSymbText& t) {
    for (const char* p = t.text; *p != '\0'; ++p) {
        if (!IsBlank(*p)) return false;
    }
    return true;
}

PercStrSymbText Trimmed(const PercStrSymbText& t) {
    const char* first = t.text;
    while (IsBlank(*first)) ++first;
    const char* last = first + strlen(first);
    while (last > first && IsBlank(last[-1])) --last;
    PercStrSymbText out;
    const size_t length = static_cast<size_t>(last - first);
    memcpy(out.text, first, length);
    out.text[length] = '\0';
    return out;
}

constexpr char Flipped(char c) { return c == '+' ? '-' : c == '-' ? '+' : c; }

// Plus (flip false) and Minus (flip true) of left and right, written over
// left. False when the text would pass 21 characters.
[[nodiscard]] bool Join(PercStrSymbText& left, const PercStrSymbText& right, bool flip) {
    size_t n = IsBlankText(left) ? 0 : strlen(left.text);
    left.text[n] = '\0';
    if (IsBlankText(right)) return true;
    if (right.text[0] != '+' && right.text[0] != '-') {
        if (n == kPercStrSymbTextMax) return false;
        left.text[n++] = flip ? '-' : '+';
    }
    for (const char* p = right.text; *p != '\0'; ++p) {
        if (n == kPercStrSymbTextMax) return false;
        left.text[n++] = flip ? Flipped(*p) : *p;
    }
    left.text[n] = '\0';
    return true;
}

const PercStrSymbText& First(const PercStrSymbText& left, const PercStrSymbText& right) {
    return IsBlankText(left) ? right : left;
}

// ---- Numbers and comparisons.

double NeutralValue() { return PercStrSymbMode == 0 ? 0.0 : 1.0; }

// A text the evaluator refuses says nothing: it counts as the neutral value.
double PercStrSymbNum(const PercStrSymbText& t) {
    double value = 0.0;
    return PercStrEvaluate(t.text, &value, PercStrSymbMode) == kPercStrEvaluated ? value : NeutralValue();
}

enum class Comparison { Greater, GreaterEqual, Less, LessEqual, Equal, NotEqual };

// Mode 0 compares sums; the cumulative modes compare factors, which fall as a
// discount grows, so their order is turned around (in mode 2 as well).
bool Compare(Comparison op, double left, double right) {
    if (PercStrSymbMode != 0) std::swap(left, right);
    switch (op) {
        case Comparison::Greater: return left > right;
        case Comparison::GreaterEqual: return left >= right;
        case Comparison::Less: return left < right;
        case Comparison::LessEqual: return left <= right;
        case Comparison::Equal: return left == right;
        case Comparison::NotEqual: return left != right;
    }
    return false;
}

bool CompareTexts(Comparison op, const PercStrSymbText& left, const PercStrSymbText& right) {
    return Compare(op, PercStrSymbNum(left), PercStrSymbNum(right));
}

// ---- Actions. Each writes the left side's value; r[i] is the i-th symbol
// of the right side, and r.value starts as a copy of r[1].

void Concatenate(SymbReduce& r, bool flip) {
    if (!Join(r.value.text, r[3].text, flip)) r.Abort();  // text overflow: nothing is recorded
}

template <Comparison op>
void CompareOperands(SymbReduce& r) {
    r.value.truth = CompareTexts(op, r[1].text, r[3].text) ? 1 : 0;
}

constexpr SymbGrammar::Rule kRules[] = {
    {"input:", [](SymbReduce&) { PercStrSymbResult.text[0] = '\0'; }},
    {"input: expr", [](SymbReduce& r) { PercStrSymbResult = r[1].text; }},
    {"expr: expr '+' expr", [](SymbReduce& r) { Concatenate(r, false); }},
    {"expr: expr '-' expr", [](SymbReduce& r) { Concatenate(r, true); }},
    {"expr: expr '|' expr", [](SymbReduce& r) { r.value.text = First(r[1].text, r[3].text); }},
    {"expr: '-' expr %prec NEG",
     [](SymbReduce& r) {
         r.value.text.text[0] = '\0';
         if (!Join(r.value.text, r[2].text, true)) r.Abort();
     }},
    {"expr: '+' expr", [](SymbReduce& r) { r.value = r[2]; }},
    {"expr: '(' expr ')'", [](SymbReduce& r) { r.value = r[2]; }},
    {"expr: MIN '(' minlist ')'", [](SymbReduce& r) { r.value = r[3]; }},
    {"expr: MAX '(' maxlist ')'", [](SymbReduce& r) { r.value = r[3]; }},
    {"expr: COALESCE '(' coalescelist ')'", [](SymbReduce& r) { r.value = r[3]; }},
    {"expr: VALUE", [](SymbReduce& r) { r.value.text = Trimmed(r[1].text); }},
    {"expr: IIF '(' cond ',' expr ',' expr ')'", [](SymbReduce& r) { r.value = r[3].truth ? r[5] : r[7]; }},
    {"minlist: expr"},
    {"minlist: minlist ',' expr",
     [](SymbReduce& r) {
         if (!CompareTexts(Comparison::LessEqual, r[1].text, r[3].text)) r.value = r[3];
     }},
    {"maxlist: expr"},
    {"maxlist: maxlist ',' expr",
     [](SymbReduce& r) {
         if (!CompareTexts(Comparison::GreaterEqual, r[1].text, r[3].text)) r.value = r[3];
     }},
    {"coalescelist: expr"},
    {"coalescelist: coalescelist ',' expr", [](SymbReduce& r) { r.value.text = First(r[1].text, r[3].text); }},
    {"cond: expr '>' expr", CompareOperands<Comparison::Greater>},
    {"cond: expr GE expr", CompareOperands<Comparison::GreaterEqual>},
    {"cond: expr '<' expr", CompareOperands<Comparison::Less>},
    {"cond: expr LE expr", CompareOperands<Comparison::LessEqual>},
    {"cond: expr '=' expr", CompareOperands<Comparison::Equal>},
    {"cond: expr NE expr", CompareOperands<Comparison::NotEqual>},
    {"cond: ISEMPTY '(' expr ')'", [](SymbReduce& r) { r.value.truth = r[3].text.text[0] == '\0' ? 1 : 0; }},
    {"cond: ISZERO '(' expr ')'",
     [](SymbReduce& r) { r.value.truth = PercStrSymbNum(r[3].text) == NeutralValue() ? 1 : 0; }},
    {"cond: NOT cond", [](SymbReduce& r) { r.value.truth = r[2].truth ? 0 : 1; }},
};

// UNSET stands in no production: as an unknown code it matches nothing.
constexpr lalr::TokenName kTokens[] = {
    {"VALUE", kSymbValue}, {"NE", kSymbNe},   {"LE", kSymbLe},   {"GE", kSymbGe},
    {"NOT", kSymbNot},     {"MIN", kSymbMin}, {"MAX", kSymbMax}, {"IIF", kSymbIif},
    {"COALESCE", kSymbCoalesce}, {"ISEMPTY", kSymbIsEmpty}, {"ISZERO", kSymbIsZero},
};

// Behind the right operand of + and - (infix or prefix) + and - reduce and |
// shifts; behind that of | or of prefix - everything reduces.
constexpr lalr::PrecedenceLevel kPrecedence[] = {
    {lalr::Assoc::Left, "'+' '-'"},
    {lalr::Assoc::Left, "'|'"},
    {lalr::Assoc::NonAssoc, "NEG"},
};

int32_t NextToken(PercStrSymbValue* value, NoLocation*, PercStrSymbContext*) {
    const int token = PercStrSymbNextToken();
    if (token == kSymbValue) value->text = PercStrSymbScanner.tokenValue;
    return token;
}

void RecordError(PercStrSymbContext* context, const NoLocation&) {
    PercStrSymbMarkError();
    context->syntaxError = true;
}

constexpr SymbGrammar kGrammar = {kTokens, kPrecedence, kRules, NextToken, RecordError, &PercStrSymbLookahead};

using SymbParser = Parser<kGrammar>;

// Tables and automaton are built at the first reduction. Should memory run
// out for them, the reduction ends like one without a scan buffer, and the
// next one tries again.
const SymbParser* MachinesOrNull() noexcept {
    const SymbParser* parser = SymbParser::Get();
    return parser != nullptr && PercStrSymbScanner.Prepare() ? parser : nullptr;
}

void SetEmpty(char* result, uint32_t* length) {
    result[0] = '\0';
    *length = 0;
}

int32_t Parse(PercStrSymbContext& context) {
    const SymbParser* parser = MachinesOrNull();
    return parser != nullptr ? parser->Parse(&context) : kParseExhausted;
}

PercStrSymbStop StopOf(int32_t parsed, const PercStrSymbContext& context) {
    if (parsed == kParseAccepted) return PercStrSymbStop::kNone;
    if (parsed == kParseExhausted) return PercStrSymbStop::kNoMemory;
    if (!context.syntaxError) return PercStrSymbStop::kOverflow;
    switch (PercStrSymbScanner.unset) {
        case PercStrSymbUnsetName::kUnsetVariable: return PercStrSymbStop::kUnsetVariable;
        case PercStrSymbUnsetName::kNoVariable: return PercStrSymbStop::kNoVariable;
        case PercStrSymbUnsetName::kNone: break;
    }
    return PercStrSymbStop::kSyntax;
}

}  // namespace

const std::vector<std::string>& PercStrSymbGrammarProblems() {
    static const std::vector<std::string> unbuilt{"no memory for the tables"};
    const SymbParser* parser = SymbParser::Get();
    return parser != nullptr ? parser->Tables().problems : unbuilt;
}

int32_t PercStrSymbParse() {
    PercStrSymbContext context;
    const int32_t parsed = Parse(context);
    PercStrSymbScanner.unset = PercStrSymbUnsetName::kNone;
    return parsed;
}

int32_t PercStrSymbReduce(const char* text, char* result, uint32_t* length, PercStrSymbStop* stop) {
    if (length == nullptr) return kPercStrSymbNoResult;
    if (result == nullptr) {
        *length = 0;
        return kPercStrSymbNoResult;
    }
    if (*length == 0) return kPercStrSymbNoResult;
    if (text == nullptr || text[0] == '\0') {
        SetEmpty(result, length);
        return kPercStrSymbReduced;
    }
    ScanBuffer* buffer = MachinesOrNull() != nullptr ? PercStrSymbScanner.yy_scan_text(text) : nullptr;
    if (buffer == nullptr) {
        SetEmpty(result, length);
        return kPercStrSymbNoBuffer;
    }
    PercStrSymbContext context;
    const int32_t parsed = Parse(context);
    PercStrSymbScanner.yy_release_buffer(buffer);
    if (parsed != kParseAccepted) {
        if (stop != nullptr) *stop = StopOf(parsed, context);
        PercStrSymbScanner.unset = PercStrSymbUnsetName::kNone;
        SetEmpty(result, length);
        return kPercStrSymbFailed;
    }
    const uint32_t capacity = *length;
    const uint32_t reduced = static_cast<uint32_t>(strlen(PercStrSymbResult.text));
    const uint32_t kept = reduced < capacity ? reduced : capacity - 1;
    memcpy(result, PercStrSymbResult.text, kept);
    result[kept] = '\0';
    *length = kept;
    return kept == reduced ? kPercStrSymbReduced : kPercStrSymbCut;
}

}  // namespace vrn
