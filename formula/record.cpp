#include "formula/record.h"

namespace vrn {

namespace {

struct ErrorEntry {
    int32_t number;
    const char* text;    // Windows-1252
    const char* reason;  // English
};

constexpr ErrorEntry kErrorTable[] = {
    {kPFormulaOk, "No error; parse ok", "no error"},
    {kPFormulaSyntax, "Errore di sintassi nella formula", "syntax error"},
    {kPFormulaScanBuffer, "YY Scan error: il buffer di input deve essere terminato con doppio 0",
     "the input must end in two NUL bytes"},
    {kPFormulaOutputTooShort, "Il buffer di output non \xE8 sufficientemente lungo", "the normal form is too long"},
    {kPFormulaTooLong, "Espressione troppo lunga", "the formula is too long"},
    {kPFormulaRoundingSyntax,
     "Errore di sintassi nell'arrotondamento\n"
     "Puo' essere Commerciale AC(n), per Difetto AD(n) e per eccesso AE(n)",
     "a rounding is AC(n), AD(n) or AE(n)"},
    {kPFormulaRoundingDigits,
     "L'arrotondamento deve essere compreso tra 3 (arrotonda al millesimo) e -3 (arrotonda alle migliaia)",
     "a rounding must lie between -3 and 3 digits"},
    {kPFormulaPercentage, "La percentuale deve essere compresa tra -99% e +2900%",
     "a percentage must lie between -99% and +2900%"},
    {kPFormulaMargin, "Il margine deve essere compreso tra -2900& e +99&", "a margin must lie between -2900& and +99&"},
    {kPFormulaMultiplication, "Moltiplicazione fuori rage; il valore deve essere compreso tra 000.1 e 300.0",
     "multiplication out of range: the factor must lie between 0.1 and 300"},
    {kPFormulaDivision, "Divisione fuori rage; il valore deve essere compreso tra 000.1 e 100.0",
     "division out of range: the divisor must lie between 0.1 and 100"},
    {kPFormulaLongDecimal,
     "La massima precisione gestita per i numeri con virgola e' di 8 cifre per la parte intera e 4 per la "
     "parte decimale",
     "a decimal number has at most 8 integer digits and 4 decimals"},
    {kPFormulaLongInteger, "La massima precisione gestita per i numeri interi e' di 8 cifre",
     "an integer has at most 8 digits"},
};

const ErrorEntry* EntryOf(int32_t number) {
    for (const ErrorEntry& entry : kErrorTable) {
        if (entry.number == number) return &entry;
    }
    return nullptr;
}

}  // namespace

const char* PFormulaErrorText(int32_t number) {
    const ErrorEntry* entry = EntryOf(number);
    return entry != nullptr ? entry->text : "Unknown";
}

const char* PFormulaErrorReason(int32_t number) {
    const ErrorEntry* entry = EntryOf(number);
    return entry != nullptr ? entry->reason : "error";
}

int32_t PFormulaErrorInfo(PFormulaCode code, uint32_t* position, uint32_t* length, const char** text) {
    const int32_t number = static_cast<int32_t>(code) >> 24;
    if (position) *position = code & 0xFFFFu;
    if (length) *length = (code >> 16) & 0xFFu;
    if (text) *text = PFormulaErrorText(number);
    return number;
}

}  // namespace vrn
