#include <windows.h>

#include <string>

#include "host/loader.h"

namespace vrn::host::loader {

namespace {

// The system's text for an error, without its line end; the number where it has none.
std::string SystemErrorText(DWORD error) {
    char* text = nullptr;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        error, 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string result = length > 0 && text ? std::string(text, length) : "error " + std::to_string(error);
    if (text) LocalFree(text);
    while (!result.empty() && (result.back() == '\n' || result.back() == '\r')) result.pop_back();
    return result;
}

}  // namespace

void* Open(const std::string& path, std::string& error) {
    HMODULE module = LoadLibraryA(path.c_str());
    if (!module) error = "cannot load " + path + ": " + SystemErrorText(GetLastError());
    return reinterpret_cast<void*>(module);
}

void* Find(void* handle, const char* name) {
    if (!handle || !name) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name));
}

void Close(void* handle) {
    if (handle) FreeLibrary(static_cast<HMODULE>(handle));
}

std::string ExecutableFolder() {
    char path[MAX_PATH];
    const DWORD length = GetModuleFileNameA(nullptr, path, sizeof path);
    if (length == 0 || length >= sizeof path) return {};
    std::string folder(path, length);
    const size_t separator = folder.find_last_of("\\/");
    return separator == std::string::npos ? std::string{} : folder.substr(0, separator);
}

const char* LibraryFileName() { return "vrn.dll"; }

}  // namespace vrn::host::loader
