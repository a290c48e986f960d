// The shell's special folders: no window, no access token, the current path.
#include <windows.h>
#include <shlobj.h>

#include "utilities/folder_path.h"

namespace vrn {

static_assert(kFolderPathUnits == MAX_PATH);

int32_t GetFolderPathNarrow(int32_t csidl, char* path) {
    return SHGetFolderPathA(nullptr, csidl, nullptr, 0, path);
}

int32_t GetFolderPathWide(int32_t csidl, char16_t* path) {
    return SHGetFolderPathW(nullptr, csidl, nullptr, 0, reinterpret_cast<wchar_t*>(path));
}

}  // namespace vrn
