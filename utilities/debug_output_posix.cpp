#include <syslog.h>

#include "utilities/debug_output.h"

namespace vrn {

// No openlog: the identity and facility of the log are the host process's.
void SystemDebugOutput(const char* text) { ::syslog(LOG_DEBUG, "%s", text); }

}  // namespace vrn
