// The path of a special folder, named by its CSIDL number (with the flag bits
// in 0xFF00, 0x8000 asking to create the folder). Windows answers with the
// shell's folders; Linux maps the numbers onto its usual places.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrn {

// Size of the path buffer in units, terminator included.
inline constexpr size_t kFolderPathUnits = 260;

// Result codes of the system (HRESULT): below 0 is a failure, and then the
// path buffer isn't to be read.
inline constexpr int32_t kFolderOk = 0;
inline constexpr int32_t kFolderInvalidArg = static_cast<int32_t>(0x80070057u);

// Writes the path with its terminator into path[kFolderPathUnits]: narrow in
// the system code page, or wide.
[[nodiscard]] int32_t GetFolderPathNarrow(int32_t csidl, char* path);
[[nodiscard]] int32_t GetFolderPathWide(int32_t csidl, char16_t* path);

}  // namespace vrn
