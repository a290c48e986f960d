// Price formulas through both procedures. Properties: every text the
// normaliser accepts has a normal form that normalises to itself and that
// evaluates exactly as the formula does, from any starting value; no
// operation is ever lost for lack of room.
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

constexpr size_t kLongestText = 998;  // what the procedure accepts: 1000 bytes with the two NULs it adds

struct Normalized {
    int32_t rc;
    std::string normalForm;
};

Normalized Normalize(const std::string& text) {
    const host::CallResult result =
        Call(vrn_PFormula_Normalize, {host::VarChar(text), host::Output(host::VarChar("", 8000))});
    Normalized got{result.returnCode, {}};
    const bool delivered = OutputText(result, 2, &got.normalForm);
    const bool known = got.rc == -1 || got.rc == -4 || (got.rc <= -6 && got.rc >= -12);
    if (got.rc == 0 ? !delivered : (delivered || result.messages.size() != 1 || !known)) {
        Broken("Normalize answers " + std::to_string(got.rc));
    }
    return got;
}

// The parser's register after the formula, scanned as the procedure scans it (a block with two NULs).
double Parsed(const std::string& text, double start, std::string* normalForm) {
    std::string block = text + std::string(2, '\0');
    const uint32_t length = static_cast<uint32_t>(block.size());
    std::vector<char> room(PFormulaNormalFormRoom(length));
    double value = start;
    const LockGuard lock(PFormulaMutex, platform::kInfinite);
    if (PFormulaNormalizeBuffer(&value, block.data(), length, room.data(), static_cast<uint32_t>(room.size())) != 0) {
        Broken("the entry point refuses what the procedure accepted");
    }
    normalForm->assign(room.data());
    return value;
}

void CheckNormalForm(const std::string& text, const std::string& normalForm) {
    if (!normalForm.empty() && normalForm.back() != ' ') Broken("a normal form ends in a blank");
    const Normalized again = Normalize(normalForm);
    if (normalForm.empty()) {  // the procedure's one text without operations, "0" say, reads back as a syntax error
        if (again.rc != kPFormulaSyntax) Broken("the empty normal form must read back as a syntax error");
    } else if (normalForm.size() > kLongestText) {
        if (again.rc != kPFormulaTooLong) Broken("a normal form beyond the limit must be too long");
    } else if (again.rc != 0 || again.normalForm != normalForm) {
        Broken("normal form \"" + normalForm + "\" normalises to \"" + again.normalForm + "\"");
    }

    double tail = 0;
    if (text.size() >= sizeof tail) std::memcpy(&tail, text.data() + text.size() - sizeof tail, sizeof tail);
    const double starts[] = {0.0, 100.0, -1234.5678, 2147483.647, 1e15, -0.0,
                             std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN(), tail};
    for (const double start : starts) {
        std::string written;
        const double parsed = Parsed(text, start, &written);
        if (written != normalForm) Broken("entry point and procedure write different normal forms");
        const host::CallResult result = Call(vrn_PFormula_Eval, {host::VarChar(normalForm), host::Output(host::Float(start))});
        double read = 0;
        if (result.returnCode != 0 || !OutputFloat(result, 2, &read)) Broken("Eval refuses \"" + normalForm + "\"");
        if (!SameValue(read, parsed)) Broken("normal form \"" + normalForm + "\" from " + std::to_string(start));
    }
}

}  // namespace

int RunOne(const std::string& text) {
    if (text.size() > 1200) return -1;
    const Normalized normalized = Normalize(text);
    if (normalized.rc == 0) CheckNormalForm(text, normalized.normalForm);
    // The raw text through the reader: it may refuse, but then with its one code.
    const host::CallResult result = Call(vrn_PFormula_Eval, {host::VarChar(text), host::Output(host::Float(100))});
    double value = 0;
    const bool delivered = OutputFloat(result, 2, &value);
    if (result.returnCode == 0 ? !delivered : (result.returnCode != -1 || delivered)) {
        Broken("Eval of the raw text answers " + std::to_string(result.returnCode));
    }
    return 0;
}

}  // namespace vrn::fuzz
