// The platform seam of the host stand-in: loading a shared library and finding
// the running program. loader_posix.cpp uses dlopen; a Windows build would use
// LoadLibrary and GetModuleFileName.
#pragma once

#include <string>

namespace vrn::host::loader {

// The handle, or null with a readable reason in error.
void* Open(const std::string& path, std::string& error);
void* Find(void* handle, const char* name);
void Close(void* handle);

// Folder of the running executable, without a trailing separator; empty if unknown.
std::string ExecutableFolder();
// File name of the library in a build folder.
const char* LibraryFileName();

}  // namespace vrn::host::loader
