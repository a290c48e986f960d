#include <sys/wait.h>

#include <cstdlib>

#include "process.h"

namespace vrn::test {

int RunCommand(const std::string& commandLine) {
    const int status = std::system(commandLine.c_str());
    return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace vrn::test
