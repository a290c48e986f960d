#include "percstr/percstr_scanner.h"

namespace vrn {

namespace {

const ScanAutomaton& PercStrAutomaton() {
    static const ScanAutomaton automaton(kPercStrScanRows);
    return automaton;
}

}  // namespace

constinit ScannerEngine PercStrScanner(PercStrAutomaton);

}  // namespace vrn
