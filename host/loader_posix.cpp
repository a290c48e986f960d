#include <dlfcn.h>
#include <unistd.h>

#include <climits>

#include "host/loader.h"

namespace vrn::host::loader {

void* Open(const std::string& path, std::string& error) {
    // RTLD_LOCAL keeps two loaded libraries from resolving each other's exports.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        error = reason ? reason : "cannot load " + path;
    }
    return handle;
}

void* Find(void* handle, const char* name) {
    return handle && name ? dlsym(handle, name) : nullptr;
}

void Close(void* handle) {
    if (handle) dlclose(handle);
}

std::string ExecutableFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return {};
    std::string folder(path, static_cast<size_t>(length));
    const size_t slash = folder.rfind('/');
    return slash == std::string::npos ? std::string{} : folder.substr(0, slash);
}

const char* LibraryFileName() {
    return "libvrn.so";
}

}  // namespace vrn::host::loader
