// Narrow text is the system's ANSI code page (code page 0), as the server sees it.
#include <windows.h>

#include "frame/platform.h"

namespace vrn::platform {

static_assert(sizeof(wchar_t) == sizeof(char16_t));

int NarrowToWide(const char* text, char16_t* out, int outUnits) {
    return MultiByteToWideChar(0, 0, text, -1, reinterpret_cast<wchar_t*>(out), outUnits);
}

int WideToNarrow(const char16_t* text, char* out, int outBytes) {
    return WideCharToMultiByte(0, 0, reinterpret_cast<const wchar_t*>(text), -1, out, outBytes, nullptr, nullptr);
}

}  // namespace vrn::platform
