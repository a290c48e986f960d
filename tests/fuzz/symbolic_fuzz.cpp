// Symbolic percentage strings under the client's protocol: take the lock,
// choose the mode, set variables, reduce, ask where it failed, give the lock
// back. The input is lines: the mode's digit, then name=value lines for
// SetVar, and last the text to reduce.
#include <string>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace vrn::fuzz {
namespace {

constexpr size_t kResultMax = 21;

std::vector<std::string> Lines(const std::string& input) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (;;) {
        const size_t end = input.find('\n', start);
        lines.push_back(input.substr(start, end == std::string::npos ? std::string::npos : end - start));
        if (end == std::string::npos) return lines;
        start = end + 1;
    }
}

void SetVariables(const std::vector<std::string>& lines, const uint8_t* data, size_t size) {
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        const size_t equals = lines[i].find('=');
        const std::string name = lines[i].substr(0, equals);
        const host::Param value = equals == std::string::npos ? host::Null(167, 20)
                                                              : host::VarChar(lines[i].substr(equals + 1));
        const int32_t rc = Call(vrn_PercStrSymb_SetVar, {host::VarChar(name), value}).returnCode;
        if (rc != 0 && rc != 1 && rc != -1) Broken("SetVar answers " + std::to_string(rc), data, size);
    }
}

void Reduce(const std::string& text, const uint8_t* data, size_t size) {
    const host::CallResult result =
        Call(vrn_PercStrSymb_Eval, {host::VarChar(text), host::Output(host::VarChar("", 30))});
    std::string output;
    if (!OutputText(result, 2, &output)) Broken("Eval delivered nothing", data, size);
    const int32_t rc = result.returnCode;
    if ((rc != 0 && rc != -3 && rc != -5) || output.size() > kResultMax || (rc != 0 && !output.empty())) {
        Broken("Eval answers " + std::to_string(rc) + " with \"" + output + "\"", data, size);
    }
    if (rc != -3) return;
    const host::CallResult info =
        Call(vrn_PercStrSymb_ErrorInfo, {host::Output(host::Int(-1)), host::Output(host::Int(-1))});
    const host::OutputValue* position = info.OutputOf(1);
    const host::OutputValue* length = info.OutputOf(2);
    if (info.returnCode != 0 || !position || !length || position->value.size() != 4 || length->value.size() != 4) {
        Broken("ErrorInfo after a failed reduction", data, size);
    }
}

int RunOne(const uint8_t* data, size_t size) {
    if (size > 1200) return -1;
    const std::vector<std::string> lines = Lines(std::string(reinterpret_cast<const char*>(data), size));
    if (Call(vrn_PercStrSymb_GetMutex, {host::Int(1000)}).returnCode != 1) Broken("the lock is free", data, size);
    const int32_t mode = lines[0].empty() ? 0 : lines[0][0] - '0';  // 3 and beyond are refused
    (void)Call(vrn_PercStrSymb_Init, {host::Int(mode)});
    SetVariables(lines, data, size);
    Reduce(lines.back(), data, size);
    if (Call(vrn_PercStrSymb_ReleaseMutex, {}).returnCode == 0) Broken("the lock was not given back", data, size);
    return 0;
}

}  // namespace
}  // namespace vrn::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vrn::fuzz::StartLibrary();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) { return vrn::fuzz::RunOne(data, size); }
