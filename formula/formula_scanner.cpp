#include "formula/formula_scanner.h"

namespace vrn {

const ScanAutomaton& PFormulaAutomaton() {
    static const ScanAutomaton automaton(kPFormulaScanRows);
    return automaton;
}

constinit ScannerEngine PFormulaScanner(PFormulaAutomaton);

}  // namespace vrn
