// Percentage strings through both procedures, in every mode. Properties: the
// procedures answer as the engine does; PercStrNormalizeEvaluate is
// PercStrEvaluate of the text normalised into 20 bytes; and normalising is
// stable where its rules make it so.
#include <string>

#include "frame/procedure.h"
#include "percstr/evaluate.h"
#include "percstr/normalize.h"
#include "tests/fuzz/fuzz.h"

namespace vrn::fuzz {
namespace {

constexpr uint32_t kNormalizeCapacity = 22;  // what the procedure gives the normaliser
constexpr size_t kNormalizeMaxText = 21;
constexpr size_t kEvalMaxText = 20;

struct Normalized {
    std::string text;
    int32_t defects;
};

Normalized NormalizeText(const char* input, uint32_t capacity) {
    char output[kNormalizeCapacity]{};
    uint32_t length = capacity;
    const int32_t defects = PercStrNormalizeText(input, output, &length);
    return {std::string(output, length), defects};
}

double Evaluated(const char* text, int32_t mode, int32_t* result) {
    double value = 0;
    const LockGuard lock(PercStrMutex, platform::kInfinite);
    *result = PercStrEvaluate(text, &value, mode);
    return value;
}

// A normalised text reads back as itself unless the rules change it on a
// second pass: a first term with a + (a later + replaced its -), which the
// first + of a text never writes; or a bare 0 term (a point with no decimals,
// as in ".+5" giving "0+5"), as a 0 is dropped wherever it isn't the whole text.
bool ReadsBackAsItself(const std::string& text) {
    if (!text.empty() && text[0] == '+') return false;
    if (text == "0") return true;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find_first_of("+-", start);
        if (end == std::string::npos) end = text.size();
        if (text.compare(start, end - start, "0") == 0) return false;
        start = end + 1;
    }
    return true;
}

void CheckNormaliser(const char* input, const uint8_t* data, size_t size) {
    // Every pass that changes the text brings it nearer: within three it reads back as itself.
    std::string text = NormalizeText(input, kNormalizeCapacity).text;
    for (int pass = 0;; ++pass) {
        const Normalized again = NormalizeText(text.c_str(), kNormalizeCapacity);
        if (ReadsBackAsItself(text)) {
            if (again.text != text || again.defects != 0) {
                Broken("\"" + text + "\" normalises to \"" + again.text + "\"", data, size);
            }
            break;
        }
        if (pass == 3) Broken("\"" + text + "\" still changes after three passes", data, size);
        text = again.text;
    }

    const Normalized short20 = NormalizeText(input, 20);
    for (const int32_t mode : {0, 1, 2, 7, -1}) {
        double combined = 0;
        int32_t combinedResult;
        {
            const LockGuard lock(PercStrMutex, platform::kInfinite);
            combinedResult = PercStrNormalizeEvaluate(input, &combined, mode);
        }
        int32_t separateResult;
        const double separate = Evaluated(short20.text.c_str(), mode, &separateResult);
        if (combinedResult != separateResult || !SameValue(combined, separate)) {
            Broken("PercStrNormalizeEvaluate differs from PercStrEvaluate of \"" + short20.text + "\" in mode " +
                       std::to_string(mode),
                   data, size);
        }
    }
}

void CheckNormalizeProcedure(const std::string& text, const char* input, const uint8_t* data, size_t size) {
    const host::CallResult result =
        Call(vrn_PercStrNormalize, {host::VarChar(text), host::Output(host::VarChar("", 30))});
    std::string output;
    if (!OutputText(result, 2, &output)) Broken("vrn_PercStrNormalize delivered nothing", data, size);
    if (text.size() > kNormalizeMaxText) {
        if (result.returnCode != 0 || !output.empty() || result.messages.size() != 1) {
            Broken("a text beyond 21 must be refused with its message", data, size);
        }
        return;
    }
    const Normalized engine = NormalizeText(input, kNormalizeCapacity);
    if (result.returnCode != engine.defects || output != engine.text || !result.messages.empty()) {
        Broken("vrn_PercStrNormalize answers \"" + output + "\" " + std::to_string(result.returnCode) +
                   ", the engine \"" + engine.text + "\" " + std::to_string(engine.defects),
               data, size);
    }
}

// Every mode word as the client may send it, NULL included.
void CheckEvalProcedure(const std::string& text, const uint8_t* data, size_t size) {
    const std::string input = text.substr(0, text.find('\0'));
    const host::Param modes[] = {host::Int(0),   host::Int(1),          host::Int(2),
                                 host::Int(-7),  host::SmallInt(-1),    host::TinyInt(1),
                                 host::Null(38, 4)};
    const int32_t modeWords[] = {0, 1, 2, -7, 65535, 1, 0};
    for (size_t i = 0; i < std::size(modes); ++i) {
        const host::CallResult result =
            Call(vrn_PercStrEval, {host::VarChar(text), host::Output(host::Float(-5)), modes[i]});
        double value = 0;
        if (result.returnCode != 0 || !OutputFloat(result, 2, &value)) {
            Broken("vrn_PercStrEval answers " + std::to_string(result.returnCode), data, size);
        }
        double expected = PercStrStartingValue(modeWords[i]);
        if (text.size() <= kEvalMaxText) {
            int32_t evaluated;
            const double engine = Evaluated(input.c_str(), modeWords[i], &evaluated);
            if (evaluated == kPercStrEvaluated) expected = engine;
        }
        if (!SameValue(value, expected)) Broken("vrn_PercStrEval differs from the engine", data, size);
    }
}

int RunOne(const uint8_t* data, size_t size) {
    if (size > 64) return -1;
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string input = text.substr(0, text.find('\0'));
    CheckNormaliser(input.c_str(), data, size);
    CheckNormalizeProcedure(text, input.c_str(), data, size);
    CheckEvalProcedure(text, data, size);
    // The normalised text is what a client then evaluates.
    CheckEvalProcedure(NormalizeText(input.c_str(), kNormalizeCapacity).text, data, size);
    return 0;
}

}  // namespace
}  // namespace vrn::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vrn::fuzz::StartLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return vrn::fuzz::RunOne(data, size); }
