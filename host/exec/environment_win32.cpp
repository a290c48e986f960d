#include <stdlib.h>

#include "host/exec/environment.h"

namespace vrn::exec {

void SetProcessVariable(const std::string& name, const std::string& value) {
    (void)_putenv_s(name.c_str(), value.c_str());
}

}  // namespace vrn::exec
