#include <windows.h>

#include "utilities/debug_output.h"

namespace vrn {

void SystemDebugOutput(const char* text) { OutputDebugStringA(text); }

}  // namespace vrn
