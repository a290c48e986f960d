#include <cstdlib>

#include "process.h"

namespace vrn::test {

// cmd.exe takes the whole line as one quoted argument when it starts with a quote.
int RunCommand(const std::string& commandLine) {
    return std::system(("\"" + commandLine + "\"").c_str());
}

}  // namespace vrn::test
