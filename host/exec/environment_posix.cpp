#include <stdlib.h>

#include "host/exec/environment.h"

namespace vrn::exec {

void SetProcessVariable(const std::string& name, const std::string& value) {
    (void)setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace vrn::exec
