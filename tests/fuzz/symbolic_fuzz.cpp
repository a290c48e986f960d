// Symbolic percentage strings under the client's protocol: take the lock,
// choose the mode, set variables, reduce, ask where it failed, give the lock
// back. The input is lines: the mode's digit, then name=value lines for
// SetVar (a line without "=" sets NULL), and last the text to reduce.
#include <string>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace vrn::fuzz {

int RunOne(const std::string& input) {
    if (input.size() > 1200) return -1;
    std::vector<std::string> lines;
    for (size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
        end = input.find('\n', start);
        lines.push_back(input.substr(start, end == std::string::npos ? std::string::npos : end - start));
    }
    if (Call(vrn_PercStrSymb_GetMutex, {host::Int(1000)}).returnCode != 1) Broken("the lock is free");
    (void)Call(vrn_PercStrSymb_Init, {host::Int(lines[0].empty() ? 0 : lines[0][0] - '0')});  // 3 and up are refused
    for (size_t i = 1; i + 1 < lines.size(); ++i) {
        const size_t equals = lines[i].find('=');
        const host::Param value =
            equals == std::string::npos ? host::Null(167, 20) : host::VarChar(lines[i].substr(equals + 1));
        const int32_t rc = Call(vrn_PercStrSymb_SetVar, {host::VarChar(lines[i].substr(0, equals)), value}).returnCode;
        if (rc != 0 && rc != 1 && rc != -1) Broken("SetVar answers " + std::to_string(rc));
    }

    const host::CallResult result =
        Call(vrn_PercStrSymb_Eval, {host::VarChar(lines.back()), host::Output(host::VarChar("", 30))});
    std::string output;
    if (!OutputText(result, 2, &output)) Broken("Eval delivered nothing");
    const int32_t rc = result.returnCode;
    if ((rc != 0 && rc != -3 && rc != -5) || output.size() > 21 || (rc != 0 && !output.empty())) {
        Broken("Eval answers " + std::to_string(rc) + " with \"" + output + "\"");
    }
    if (rc == -3) {
        const host::CallResult info =
            Call(vrn_PercStrSymb_ErrorInfo, {host::Output(host::Int(-1)), host::Output(host::Int(-1))});
        const host::OutputValue* position = info.OutputOf(1);
        const host::OutputValue* length = info.OutputOf(2);
        if (info.returnCode != 0 || !position || !length || position->value.size() != 4 || length->value.size() != 4) {
            Broken("ErrorInfo after a failed reduction");
        }
    }
    if (Call(vrn_PercStrSymb_ReleaseMutex, {}).returnCode == 0) Broken("the lock was not given back");
    return 0;
}

}  // namespace vrn::fuzz
