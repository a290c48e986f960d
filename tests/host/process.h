// Running vrn-exec from a test: the system's shell and its exit status.
#pragma once

#include <string>

namespace vrn::test {

// Runs a command line with the system's shell; the program's exit code, or -1.
int RunCommand(const std::string& commandLine);

}  // namespace vrn::test
