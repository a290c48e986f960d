#include <stdlib.h>

#include "host/exec/environment.h"

namespace vrn::exec {

bool SetEnvironment(const char* name, const char* value) { return _putenv_s(name, value) == 0; }

}  // namespace vrn::exec
