#include "percstr/evaluate.h"

#include "percstr/normalize.h"
#include "percstr/engine/parser.h"
#include "percstr/percstr_scanner.h"

namespace vrn {

namespace {

// The actions read no locations: only the lookahead's, for an error, is kept.
using PercStrGrammar = Grammar<double, TokenLocation, PercStrContext, NoLocation>;
using Reduce = PercStrGrammar::Reduce;

double Percent(double n) { return n / 100.0; }
bool Additive(const Reduce& r) { return r.context->mode == 0; }

constexpr lalr::TokenName kTokens[] = {{"NUMBER", kPercStrNumber}};

constexpr lalr::PrecedenceLevel kPrecedence[] = {
    {lalr::Assoc::Left, "'+' '-'"},
    {lalr::Assoc::Right, "NEG"},
};

constexpr PercStrGrammar::Rule kRules[] = {
    {"input: expr", [](Reduce& r) { r.context->value = r[1]; }},
    {"input:", [](Reduce& r) { r.context->value = Additive(r) ? 0.0 : 1.0; }},
    {"expr: '(' expr ')'", [](Reduce& r) { r.value = r[2]; }},
    {"expr: expr '+' expr", [](Reduce& r) { r.value = Additive(r) ? r[1] + r[3] : r[1] * r[3]; }},
    {"expr: expr '-' expr", [](Reduce& r) { r.value = Additive(r) ? r[1] - r[3] : (2.0 - r[3]) * r[1]; }},
    {"expr: '-' expr %prec NEG", [](Reduce& r) { r.value = Additive(r) ? -r[2] : 2.0 - r[2]; }},
    {"expr: NUMBER",
     [](Reduce& r) {
         switch (r.context->mode) {
             case 0: r.value = Percent(r[1]); break;
             case 1: r.value = 1.0 - Percent(r[1]); break;
             default: r.value = Percent(r[1]) + 1.0; break;
         }
     }},
};

void RecordError(PercStrContext* context, const TokenLocation& location) {
    context->errorCode = -1;
    context->errorPosition = location.firstColumn;
    context->errorLength = location.lastColumn - location.firstColumn;
}

constexpr PercStrGrammar kGrammar{kTokens, kPrecedence, kRules, PercStrNextToken, RecordError};

using PercStrParser = Parser<kGrammar>;

constexpr uint32_t kNormalizedCapacity = 20;

// The tables and the automaton are built at the first evaluation. Should
// memory run out for them, the evaluation ends like one without a scan
// buffer, and the next one tries again.
const PercStrParser* MachinesOrNull() noexcept {
    const PercStrParser* parser = PercStrParser::Get();
    return parser != nullptr && PercStrScanner.Prepare() ? parser : nullptr;
}

}  // namespace

int32_t PercStrMode(int32_t modeWord) { return modeWord == 0 || modeWord == 1 ? modeWord : 2; }

double PercStrStartingValue(int32_t modeWord) { return modeWord == 0 ? 0.0 : 1.0; }

const std::vector<std::string>& PercStrGrammarProblems() {
    static const std::vector<std::string> unbuilt{"no memory for the tables"};
    const PercStrParser* parser = PercStrParser::Get();
    return parser != nullptr ? parser->Tables().problems : unbuilt;
}

int32_t PercStrParse(PercStrContext* context) {
    const PercStrParser* parser = MachinesOrNull();
    return parser != nullptr ? parser->Parse(context) : kParseExhausted;
}

namespace {

// The steps of an evaluation; a refused text leaves where it went wrong in the context.
int32_t Evaluate(PercStrContext& context, const char* text, double* value) {
    *value = context.value;
    if (text == nullptr || text[0] == 0) return kPercStrEvaluated;
    const PercStrParser* parser = MachinesOrNull();
    if (parser == nullptr) return kPercStrNoBuffer;
    ScanBuffer* buffer = PercStrScanner.yy_scan_text(text);
    if (buffer == nullptr) return kPercStrNoBuffer;
    const int32_t parsed = parser->Parse(&context);
    PercStrScanner.yy_release_buffer(buffer);
    if (parsed != kParseAccepted) return kPercStrNotValid;
    *value = context.value;
    return kPercStrEvaluated;
}

}  // namespace

int32_t PercStrEvaluate(const char* text, double* value, int32_t mode) {
    PercStrContext context{PercStrMode(mode), PercStrStartingValue(mode), 0, 0, 0};
    return Evaluate(context, text, value);
}

int32_t PercStrEvaluateAt(const char* text, double* value, int32_t mode, int32_t* errorPosition,
                          int32_t* errorLength) {
    PercStrContext context{PercStrMode(mode), PercStrStartingValue(mode), 0, 0, 0};
    const int32_t result = Evaluate(context, text, value);
    *errorPosition = result == kPercStrNotValid ? context.errorPosition : 0;
    *errorLength = result == kPercStrNotValid ? context.errorLength : 0;
    return result;
}

int32_t PercStrNormalizeEvaluate(const char* text, double* value, int32_t mode) {
    char normalized[kNormalizedCapacity];
    uint32_t length = kNormalizedCapacity;
    normalized[0] = 0;
    (void)PercStrNormalizeText(text, normalized, &length);
    return PercStrEvaluate(normalized, value, mode);
}

}  // namespace vrn
