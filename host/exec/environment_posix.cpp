#include <stdlib.h>

#include "host/exec/environment.h"

namespace vrn::exec {

bool SetEnvironment(const char* name, const char* value) { return setenv(name, value, 1) == 0; }

}  // namespace vrn::exec
