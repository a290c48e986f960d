#include "symbolic/symbols.h"

#include <cstring>

#include "percstr/engine/ascii.h"

namespace vrn {

PercStrSymbVar PercStrSymbVars[kPercStrSymbVarCount] = {
    {0, "Cliente", {}},
    {0, "ClienteFamiglia", {}},
    {0, "ClienteGruppo", {}},
    {0, "ClienteSottoGruppo", {}},
    {0, "ClienteCategoria", {}},
    {0, "ClienteClasse", {}},
    {0, "ClienteSottoClasse", {}},
    {0, "Articolo", {}},
    {0, "ArticoloFamiglia", {}},
    {0, "ArticoloGruppo", {}},
    {0, "ArticoloSottoGruppo", {}},
    {0, "ArticoloCategoria", {}},
    {0, "ArticoloClasse", {}},
    {0, "ArticoloSottoClasse", {}},
    {0, "Listino", {}},
    {0, "ListinoRevisione", {}},
    {0, "ListinoArticolo", {}},
    {0, "ListinoScaglione", {}},
    {0, "Agente1", {}},
    {0, "Agente2", {}},
    {0, "Pagamento", {}},
    {0, "Documento", {}},
    {0, "Cliente_ArticoloFamiglia", {}},
    {0, "Cliente_ArticoloGruppo", {}},
    {0, "Cliente_ArticoloSottogruppo", {}},
    {0, "Agente1_ArticoloFamiglia", {}},
    {0, "Agente1_ArticoloGruppo", {}},
    {0, "Agente1_ArticoloSottogruppo", {}},
    {0, "Agente2_ArticoloFamiglia", {}},
    {0, "Agente2_ArticoloGruppo", {}},
    {0, "Agente2_ArticoloSottogruppo", {}},
    {0, "Articolo_ClienteTutti", {}},
    {0, "Articolo_ClienteFamiglia", {}},
    {0, "Articolo_ClienteGruppo", {}},
    {0, "Articolo_ClienteSottogruppo", {}},
    {0, "Articolo_Cliente", {}},
    {0, "ArticoloFamiglia_ClienteTutti", {}},
    {0, "ArticoloFamiglia_ClienteFamiglia", {}},
    {0, "ArticoloFamiglia_ClienteGruppo", {}},
    {0, "ArticoloFamiglia_ClienteSottogruppo", {}},
    {0, "ArticoloGruppo_ClienteTutti", {}},
    {0, "ArticoloGruppo_ClienteFamiglia", {}},
    {0, "ArticoloGruppo_ClienteGruppo", {}},
    {0, "ArticoloGruppo_ClienteSottogruppo", {}},
    {0, "ArticoloSottogruppo_ClienteTutti", {}},
    {0, "ArticoloSottogruppo_ClienteFamiglia", {}},
    {0, "ArticoloSottogruppo_ClienteGruppo", {}},
    {0, "ArticoloSottogruppo_ClienteSottogruppo", {}},
    {0, "Sconto", {}},
    {0, "Provvigione1", {}},
    {0, "Fidelity", {}},
    {0, "Commessa", {}},
    {0, "SottoCommessa", {}},
};

int32_t PercStrSymbMode = 0;
PercStrSymbText PercStrSymbResult = {};
uint64_t PercStrSymbErrorPos = 0;
uint64_t PercStrSymbErrorLen = 0;

namespace {

// Only the ASCII capitals fold: an accented letter is compared as it is,
// whatever the locale says.
bool NamesEqual(const char* wanted, const char* name) {
    for (size_t i = 0;; ++i) {
        const auto a = LowerAscii(static_cast<unsigned char>(wanted[i]));
        const auto b = LowerAscii(static_cast<unsigned char>(name[i]));
        if (a != b) return false;
        if (a == 0) return true;
    }
}

PercStrSymbVar* LookUp(const char* name) {
    if (name == nullptr) return nullptr;
    for (auto& var : PercStrSymbVars) {
        if (NamesEqual(name, var.name)) return &var;
    }
    return nullptr;
}

}  // namespace

void PercStrSymbInitVars(int32_t mode) {
    PercStrSymbMode = (mode == 0 || mode == 1) ? mode : 2;
    for (auto& var : PercStrSymbVars) {
        var.isSet = 0;
        var.value.text[0] = '\0';
    }
}

int32_t PercStrSymbSetVarValue(const char* name, const char* value) {
    PercStrSymbVar* var = LookUp(name);
    if (var == nullptr) return 1;
    const size_t length = value == nullptr ? 0 : strnlen(value, kPercStrSymbTextMax);
    if (length > 0) memcpy(var->value.text, value, length);
    var->value.text[length] = '\0';
    var->isSet = 1;
    return 0;
}

const PercStrSymbVar* PercStrSymbFindVar(const char* name) {
    const PercStrSymbVar* var = LookUp(name);
    return (var != nullptr && var->isSet != 0) ? var : nullptr;
}

const PercStrSymbVar* PercStrSymbLookUpVar(const char* name) { return LookUp(name); }

void PercStrSymbGetErrorInfo(int32_t* position, int32_t* length) {
    *position = static_cast<int32_t>(static_cast<uint32_t>(PercStrSymbErrorPos));
    *length = static_cast<int32_t>(static_cast<uint32_t>(PercStrSymbErrorLen));
}

}  // namespace vrn
