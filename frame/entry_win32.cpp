// The DLL's entry point. The platform's reason codes (1 process attach, 0 process
// detach, 2 and 3 for threads) are the ones LibraryEntry takes.
#include <windows.h>

#include <cstdint>

// Declared here rather than through frame/procedure.h: its srv.h types clash with
// <windows.h> (ULONG), and <windows.h> turns SendMessage into a macro.
namespace vrn {
int32_t LibraryEntry(uint32_t reason);
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    return vrn::LibraryEntry(reason) != 0 ? TRUE : FALSE;
}
