// Percentage strings through both procedures, in every mode. Properties: a
// normalised text is canonical and fits its capacity, and reads back as
// itself where the rules make it so; PercStrNormalizeEvaluate is
// PercStrEvaluate of the text normalised into 20 bytes; the procedures
// answer as the engine does.
#include <algorithm>
#include <string>
#include <vector>

#include "frame/procedure.h"
#include "percstr/evaluate.h"
#include "percstr/normalize.h"
#include "tests/fuzz/fuzz.h"

namespace vrn::fuzz {
namespace {

constexpr uint32_t kProcedureCapacity = 22;  // what vrn_PercStrNormalize gives the normaliser
constexpr size_t kNormalizeMaxText = 21, kEvalMaxText = 20;

struct Normalized {
    std::string text;
    int32_t defects;
};

// Into a block of exactly `capacity` bytes, so that a write past it is a crash.
Normalized Normalize(const std::string& input, uint32_t capacity) {
    std::vector<char> output(capacity);
    uint32_t length = capacity;
    const int32_t defects = PercStrNormalizeText(input.c_str(), output.data(), &length);
    if (length >= std::max(capacity, 1u)) Broken("a normalised text longer than its capacity allows");
    return {std::string(output.data(), length), defects};
}

double Evaluate(const std::string& text, int32_t mode, int32_t* result) {
    double value = 0;
    const LockGuard lock(PercStrMutex, platform::kInfinite);
    *result = PercStrEvaluate(text.c_str(), &value, mode);
    return value;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Signed terms, the first one's sign optional: "0" or up to 3 digits without a
// leading zero, then maybe a point and 1 to 6 decimals. Also lists each term.
bool IsCanonical(const std::string& s, std::vector<std::string>* terms) {
    for (size_t i = 0; i < s.size();) {
        if (s[i] == '+' || s[i] == '-') ++i;
        else if (i > 0) return false;
        const size_t start = i;
        while (i < s.size() && IsDigit(s[i])) ++i;
        if (i == start || i - start > 3 || (i - start > 1 && s[start] == '0')) return false;
        if (i < s.size() && s[i] == '.') {
            const size_t point = ++i;
            while (i < s.size() && IsDigit(s[i])) ++i;
            if (i == point || i - point > 6) return false;
        }
        terms->push_back(s.substr(start, i - start));
    }
    return true;
}

void CheckNormaliser(const std::string& input) {
    for (uint32_t capacity = 0; capacity <= kProcedureCapacity; ++capacity) {
        const Normalized got = Normalize(input, capacity);
        std::vector<std::string> terms;
        if (!IsCanonical(got.text, &terms)) Broken("\"" + got.text + "\" isn't canonical");
        if (capacity < 5 && (!got.text.empty() || got.defects != 0)) Broken("a capacity below 5 gives a text");
    }
    // A normalised text reads back as itself unless the rules change it on a
    // second pass: a first term with a + (a later + replaced its -), which the
    // first + of a text never writes; or a bare 0 term (".+5" gives "0+5"), as
    // a 0 is dropped wherever it isn't the whole text. Each such pass brings
    // it nearer: within three it reads back as itself.
    std::string text = Normalize(input, kProcedureCapacity).text;
    for (int pass = 0;; ++pass) {
        const Normalized again = Normalize(text, kProcedureCapacity);
        std::vector<std::string> terms;
        (void)IsCanonical(text, &terms);
        const bool zeroTerm = text != "0" && std::find(terms.begin(), terms.end(), "0") != terms.end();
        if (!zeroTerm && (text.empty() || text[0] != '+')) {
            if (again.text != text || again.defects != 0) Broken("\"" + text + "\" normalises to \"" + again.text + "\"");
            break;
        }
        if (pass == 3) Broken("\"" + text + "\" still changes after three passes");
        text = again.text;
    }

    const std::string short20 = Normalize(input, 20).text;
    for (const int32_t mode : {0, 1, 2}) {
        double combined = 0;
        int32_t combinedResult = 0, separateResult = 0;
        {
            const LockGuard lock(PercStrMutex, platform::kInfinite);
            combinedResult = PercStrNormalizeEvaluate(input.c_str(), &combined, mode);
        }
        const double separate = Evaluate(short20, mode, &separateResult);
        if (combinedResult != separateResult || !SameValue(combined, separate)) Broken("NormalizeEvaluate \"" + short20 + "\"");
    }
}

void CheckNormalizeProcedure(const std::string& text, const std::string& input) {
    const host::CallResult result = Call(vrn_PercStrNormalize, {host::VarChar(text), host::Output(host::VarChar("", 30))});
    std::string output;
    if (!OutputText(result, 2, &output)) Broken("vrn_PercStrNormalize delivered nothing");
    if (text.size() > kNormalizeMaxText) {
        if (result.returnCode != 0 || !output.empty() || result.messages.size() != 1) Broken("a text beyond 21 taken");
        return;
    }
    const Normalized engine = Normalize(input, kProcedureCapacity);
    if (result.returnCode != engine.defects || output != engine.text || !result.messages.empty()) {
        Broken("vrn_PercStrNormalize answers \"" + output + "\", the engine \"" + engine.text + "\"");
    }
}

// Every mode word as the client may send it, NULL included.
void CheckEvalProcedure(const std::string& text) {
    const host::Param modes[] = {host::Int(0),       host::Int(1),     host::Int(2),    host::Int(-7),
                                 host::SmallInt(-1), host::TinyInt(1), host::Null(38, 4)};
    const int32_t modeWords[] = {0, 1, 2, -7, 65535, 1, 0};
    for (size_t i = 0; i < std::size(modes); ++i) {
        const host::CallResult result = Call(vrn_PercStrEval, {host::VarChar(text), host::Output(host::Float(-5)), modes[i]});
        double value = 0;
        if (result.returnCode != 0 || !OutputFloat(result, 2, &value)) Broken("vrn_PercStrEval refuses");
        double expected = PercStrStartingValue(modeWords[i]);
        int32_t evaluated = -1;
        const double engine = text.size() <= kEvalMaxText ? Evaluate(text.substr(0, text.find('\0')), modeWords[i], &evaluated) : 0;
        if (evaluated == kPercStrEvaluated) expected = engine;
        if (!SameValue(value, expected)) Broken("vrn_PercStrEval differs from the engine");
    }
}

}  // namespace

int RunOne(const std::string& text) {
    if (text.size() > 64) return -1;
    const std::string input = text.substr(0, text.find('\0'));
    CheckNormaliser(input);
    CheckNormalizeProcedure(text, input);
    CheckEvalProcedure(text);
    CheckEvalProcedure(Normalize(input, kProcedureCapacity).text);  // what a client then evaluates
    return 0;
}

}  // namespace vrn::fuzz
