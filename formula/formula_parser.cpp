#include "formula/formula_parser.h"

#include "formula/formula_scanner.h"
#include "formula/normal_form.h"
#include "formula/round.h"
#include "percstr/engine/parser.h"

namespace vrn {

namespace {

using FormulaGrammar = Grammar<double, TokenLocation, PFormulaRecord>;
using Reduce = FormulaGrammar::Reduce;

constexpr lalr::TokenName kTokens[] = {
    {"ROUND_UP", kTokenRoundUp},
    {"ROUND_DOWN", kTokenRoundDown},
    {"ROUND_COMMERCIAL", kTokenRoundCommercial},
    {"INTEGER", kTokenInteger},
    {"DECIMAL", kTokenDecimal},
    {"BAD_WORD", kTokenBadWord},  // no production takes it: always a syntax error
    {"LONG_INTEGER", kTokenLongInteger},
    {"LONG_DECIMAL", kTokenLongDecimal},
};

void Fail(Reduce& r, int32_t errorCode, const TokenLocation& at) {
    PFormulaRecord& record = *r.context;
    record.errorCode = errorCode;
    record.errorPosition = static_cast<uint32_t>(at.firstColumn);
    record.errorLength = static_cast<uint32_t>(at.lastColumn - at.firstColumn);
    r.Abort();
}

// An operation that doesn't fit the output block ends the parse at its item.
void Write(Reduce& r, double operand, PFormulaOp kind) {
    if (!PFormulaWriteOp(r.context, operand, kind)) Fail(r, kPFormulaOutputTooShort, r.location);
}

double& Register(Reduce& r) { return r.context->value; }

// Inclusive limits; out of them the item fails at the number's location.
bool Within(Reduce& r, double checked, double low, double high, int32_t errorCode, const TokenLocation& at) {
    if (checked >= low && checked <= high) return true;
    Fail(r, errorCode, at);
    return false;
}

void Assign(Reduce& r) {
    Register(r) = r[2];
    Write(r, r[2], PFormulaOp::kAssign);
}

void Add(Reduce& r, double n) {
    Register(r) = Register(r) + n;
    Write(r, n, PFormulaOp::kAdd);
}

void Subtract(Reduce& r, double n) {
    Register(r) = Register(r) - n;
    Write(r, -n, PFormulaOp::kAdd);
}

void Multiply(Reduce& r) {
    const double n = r[2];
    if (!Within(r, n, 0.1, 300, kPFormulaMultiplication, r.At(2))) return;
    Register(r) = n * Register(r);
    Write(r, n, PFormulaOp::kMultiply);
}

void Divide(Reduce& r) {
    const double n = r[2];
    if (!Within(r, n, 0.1, 100, kPFormulaDivision, r.At(2))) return;
    Register(r) = Register(r) / n;
    Write(r, n, PFormulaOp::kDivide);
}

// number at `at`, then %.
void RaiseBy(Reduce& r, int at) {
    const double n = r[at];
    if (!Within(r, n, -99, 2900, kPFormulaPercentage, r.At(at))) return;
    Register(r) = (n / 100 + 1) * Register(r);
    Write(r, n, PFormulaOp::kPercentage);
}

void LowerBy(Reduce& r) {
    const double n = r[2];
    if (!Within(r, -n, -99, 2900, kPFormulaPercentage, r.At(2))) return;
    Register(r) = (1 - n / 100) * Register(r);
    Write(r, -n, PFormulaOp::kPercentage);
}

// number at `at`, then &.
void MarginOf(Reduce& r, int at) {
    const double n = r[at];
    if (!Within(r, n, -2900, 99, kPFormulaMargin, r.At(at))) return;
    Register(r) = Register(r) / (1 - n / 100);
    Write(r, n, PFormulaOp::kMargin);
}

void NegativeMarginOf(Reduce& r) {
    const double n = r[2];
    if (!Within(r, -n, -2900, 99, kPFormulaMargin, r.At(2))) return;
    Register(r) = Register(r) / (n / 100 + 1);
    Write(r, -n, PFormulaOp::kMargin);
}

void Round(Reduce& r, PFormulaOp kind) {
    const double argument = r[3];
    const int32_t digits = TruncateToInt32(argument);
    if (digits < -3 || digits > 3) {
        Fail(r, kPFormulaRoundingDigits, r.At(3));
        return;
    }
    Register(r) = PFormulaRound(Register(r), digits, kind);
    Write(r, argument, kind);
}

// The productions with their actions. n is the number; the steps run in the
// order limit, register, write.
constexpr FormulaGrammar::Rule kRules[] = {
    {"formula: item"},
    {"formula: formula item"},
    {"item: addition"},
    {"item: assignment"},
    {"item: multiplication"},
    {"item: division"},
    {"item: percentage"},
    {"item: margin"},
    {"item: rounding"},
    {"assignment: '=' number", Assign},
    {"addition: number", [](Reduce& r) { Add(r, r[1]); }},
    {"addition: '+' number", [](Reduce& r) { Add(r, r[2]); }},
    {"addition: '-' number", [](Reduce& r) { Subtract(r, r[2]); }},
    {"multiplication: '*' number", Multiply},
    {"division: '/' number", Divide},
    {"percentage: number '%'", [](Reduce& r) { RaiseBy(r, 1); }},
    {"percentage: '+' number '%'", [](Reduce& r) { RaiseBy(r, 2); }},
    {"percentage: '-' number '%'", LowerBy},
    {"margin: number '&'", [](Reduce& r) { MarginOf(r, 1); }},
    {"margin: '+' number '&'", [](Reduce& r) { MarginOf(r, 2); }},
    {"margin: '-' number '&'", NegativeMarginOf},
    {"rounding: ROUND_COMMERCIAL '(' digits_argument ')'", [](Reduce& r) { Round(r, PFormulaOp::kRoundCommercial); }},
    {"rounding: ROUND_DOWN '(' digits_argument ')'", [](Reduce& r) { Round(r, PFormulaOp::kRoundDown); }},
    {"rounding: ROUND_UP '(' digits_argument ')'", [](Reduce& r) { Round(r, PFormulaOp::kRoundUp); }},
    {"number: INTEGER"},
    {"number: DECIMAL"},
    {"number: LONG_INTEGER", [](Reduce& r) { Fail(r, kPFormulaLongInteger, r.At(1)); }},
    {"number: LONG_DECIMAL", [](Reduce& r) { Fail(r, kPFormulaLongDecimal, r.At(1)); }},
    {"digits_argument: INTEGER"},
    {"digits_argument: '+' INTEGER", [](Reduce& r) { r.value = r[2]; }},
    {"digits_argument: '-' INTEGER", [](Reduce& r) { r.value = -r[2]; }},
};

void RecordSyntaxError(PFormulaRecord* record, const TokenLocation& at) {
    record->errorCode = kPFormulaSyntax;
    record->errorPosition = static_cast<uint32_t>(at.firstColumn);
    record->errorLength = static_cast<uint32_t>(at.lastColumn - at.firstColumn);
}

constexpr FormulaGrammar kGrammar{kTokens, {}, kRules, PFormulaNextToken, RecordSyntaxError};

using FormulaParser = Parser<kGrammar>;

}  // namespace

bool PFormulaPrepare() noexcept { return FormulaParser::Get() != nullptr && PFormulaScanner.Prepare(); }

int32_t PFormulaParse(PFormulaRecord* record) {
    const FormulaParser* parser = FormulaParser::Get();
    if (parser == nullptr) {
        record->errorCode = kPFormulaScanBuffer;
        return kParseSyntaxError;
    }
    return parser->Parse(record);
}

int PFormulaGrammarProblemCount() {
    const FormulaParser* parser = FormulaParser::Get();
    return parser != nullptr ? static_cast<int>(parser->Tables().problems.size()) : 1;
}

}  // namespace vrn
