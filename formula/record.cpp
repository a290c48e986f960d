#include "formula/record.h"

namespace vrn {

namespace {

struct ErrorEntry {
    int32_t number;
    const char* text;
};

// Windows-1252 texts.
constexpr ErrorEntry kErrorTable[] = {
    {kPFormulaOk, "No error; parse ok"},
    {kPFormulaSyntax, "Errore di sintassi nella formula"},
    {kPFormulaScanBuffer, "YY Scan error: il buffer di input deve essere terminato con doppio 0"},
    {kPFormulaOutputTooShort, "Il buffer di output non \xE8 sufficientemente lungo"},
    {kPFormulaTooLong, "Espressione troppo lunga"},
    {kPFormulaRoundingSyntax,
     "Errore di sintassi nell'arrotondamento\n"
     "Puo' essere Commerciale AC(n), per Difetto AD(n) e per eccesso AE(n)"},
    {kPFormulaRoundingDigits,
     "L'arrotondamento deve essere compreso tra 3 (arrotonda al millesimo) e -3 (arrotonda alle migliaia)"},
    {kPFormulaPercentage, "La percentuale deve essere compresa tra -99% e +2900%"},
    {kPFormulaMargin, "Il margine deve essere compreso tra -2900& e +99&"},
    {kPFormulaMultiplication, "Moltiplicazione fuori rage; il valore deve essere compreso tra 000.1 e 300.0"},
    {kPFormulaDivision, "Divisione fuori rage; il valore deve essere compreso tra 000.1 e 100.0"},
    {kPFormulaLongDecimal,
     "La massima precisione gestita per i numeri con virgola e' di 8 cifre per la parte intera e 4 per la "
     "parte decimale"},
    {kPFormulaLongInteger, "La massima precisione gestita per i numeri interi e' di 8 cifre"},
};

}  // namespace

const char* PFormulaErrorText(int32_t number) {
    for (const ErrorEntry& entry : kErrorTable) {
        if (entry.number == number) return entry.text;
    }
    return "Unknown";
}

int32_t PFormulaErrorInfo(PFormulaCode code, uint32_t* position, uint32_t* length, const char** text) {
    const int32_t number = static_cast<int32_t>(code) >> 24;
    if (position) *position = code & 0xFFFFu;
    if (length) *length = (code >> 16) & 0xFFu;
    if (text) *text = PFormulaErrorText(number);
    return number;
}

}  // namespace vrn
