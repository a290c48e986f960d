// The runtime's C99 formatter rather than the system's: %zu, two-digit exponents
// and the rest as on every other platform. Its decimal point is the C runtime's
// locale, which is "C" unless something in the process calls setlocale: the
// system's own regional settings don't reach it.
#include <cstdio>

#include "frame/platform.h"

namespace vrn::platform {

int FormatInCLocale(char* buffer, size_t size, const char* format, va_list arguments) {
    return __mingw_vsnprintf(buffer, size, format, arguments);
}

}  // namespace vrn::platform
