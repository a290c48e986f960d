// Price formulas through both procedures. Properties: every text the
// normaliser accepts has a normal form that normalises to itself and that
// evaluates exactly as the formula does, from any starting value; no
// operation is ever lost for lack of room.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "formula/entry_points.h"
#include "formula/normal_form.h"
#include "frame/procedure.h"
#include "tests/fuzz/fuzz.h"

namespace vrn::fuzz {
namespace {

// What the procedure accepts: 1000 bytes with the two NULs it adds.
constexpr size_t kLongestText = 998;
constexpr uint32_t kOutputRoom = 8000;

bool IsFormulaError(int32_t rc) { return rc == -1 || rc == -4 || (rc <= -6 && rc >= -12); }

struct Normalized {
    int32_t rc;
    std::string normalForm;
};

Normalized Normalize(const std::string& text, const uint8_t* data, size_t size) {
    const host::CallResult result =
        Call(vrn_PFormula_Normalize, {host::VarChar(text), host::Output(host::VarChar("", kOutputRoom))});
    Normalized got{result.returnCode, {}};
    const bool delivered = OutputText(result, 2, &got.normalForm);
    if (got.rc == 0 && !delivered) Broken("normalised without an output", data, size);
    if (got.rc != 0 && (delivered || result.messages.size() != 1)) Broken("a refusal must be one message alone", data, size);
    if (got.rc != 0 && !IsFormulaError(got.rc)) Broken("normaliser code " + std::to_string(got.rc), data, size);
    return got;
}

// The parser's register after the formula, as the procedure scans it (a block with two NULs).
double Parsed(const std::string& text, double start, std::string* normalForm, const uint8_t* data, size_t size) {
    std::vector<char> block(text.begin(), text.end());
    block.resize(text.size() + 2, '\0');
    const uint32_t length = static_cast<uint32_t>(block.size());
    std::vector<char> room(PFormulaNormalFormRoom(length));
    double value = start;
    PFormulaCode code;
    {
        const LockGuard lock(PFormulaMutex, platform::kInfinite);
        code = PFormulaNormalizeBuffer(&value, block.data(), length, room.data(), static_cast<uint32_t>(room.size()));
    }
    if (code != 0) Broken("the entry point refuses what the procedure accepted", data, size);
    normalForm->assign(room.data());
    return value;
}

void CheckNormalForm(const std::string& text, const std::string& normalForm, const uint8_t* data, size_t size) {
    if (!normalForm.empty() && normalForm.back() != ' ') Broken("a normal form ends in a blank", data, size);

    const Normalized again = Normalize(normalForm, data, size);
    if (normalForm.empty()) {  // the procedure's one text without operations, "0" say, reads back as a syntax error
        if (again.rc != kPFormulaSyntax) Broken("the empty normal form must read back as a syntax error", data, size);
    } else if (normalForm.size() > kLongestText) {
        if (again.rc != kPFormulaTooLong) Broken("a normal form beyond the limit must be too long", data, size);
    } else if (again.rc != 0 || again.normalForm != normalForm) {
        Broken("normal form \"" + normalForm + "\" normalises to \"" + again.normalForm + "\", code " +
                   std::to_string(again.rc),
               data, size);
    }

    double tail = 0;
    if (size >= sizeof tail) std::memcpy(&tail, data + size - sizeof tail, sizeof tail);
    const double starts[] = {0.0, 100.0, -1234.5678, 2147483.647, 1e15, -0.0,
                             std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(), tail};
    for (const double start : starts) {
        std::string written;
        const double parsed = Parsed(text, start, &written, data, size);
        if (written != normalForm) Broken("entry point and procedure write different normal forms", data, size);
        const host::CallResult result =
            Call(vrn_PFormula_Eval, {host::VarChar(normalForm), host::Output(host::Float(start))});
        double read = 0;
        if (result.returnCode != 0 || !OutputFloat(result, 2, &read)) {
            Broken("Eval refuses the normal form \"" + normalForm + "\"", data, size);
        }
        if (!SameValue(read, parsed)) {
            Broken("normal form \"" + normalForm + "\" gives " + std::to_string(read) + ", the formula " +
                       std::to_string(parsed) + ", from " + std::to_string(start),
                   data, size);
        }
    }
}

// The raw text through the reader: it may refuse, but then with its one code.
void EvalRaw(const std::string& text, const uint8_t* data, size_t size) {
    const host::CallResult result = Call(vrn_PFormula_Eval, {host::VarChar(text), host::Output(host::Float(100))});
    double value = 0;
    const bool delivered = OutputFloat(result, 2, &value);
    if (result.returnCode == 0 ? !delivered : (result.returnCode != -1 || delivered)) {
        Broken("Eval of the raw text answers " + std::to_string(result.returnCode), data, size);
    }
}

int RunOne(const uint8_t* data, size_t size) {
    if (size > 1200) return -1;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Normalized normalized = Normalize(text, data, size);
    if (normalized.rc == 0) CheckNormalForm(text, normalized.normalForm, data, size);
    EvalRaw(text, data, size);
    return 0;
}

}  // namespace
}  // namespace vrn::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vrn::fuzz::StartLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return vrn::fuzz::RunOne(data, size); }
