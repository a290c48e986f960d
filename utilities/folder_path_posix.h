// How Linux answers a CSIDL: the mapping onto its folders, apart from the
// process's environment so that tests can give their own.
#pragma once

#include <cstdint>
#include <string>

namespace vrn::posixfolders {

struct FolderEnvironment {
    // The value of an environment variable, or null when it isn't set.
    const char* (*variable)(const char* name);
};

// The process's own environment; HOME falls back to the account's home.
const FolderEnvironment& ProcessEnvironment();

// The folder of csidl as a file-system path (bytes as the system keeps them),
// checked for existence or created as the flag bits ask. Result as the
// system's call gives it: 0 or a negative failure code.
[[nodiscard]] int32_t ResolveFolderPath(int32_t csidl, const FolderEnvironment& environment, std::string* path);

}  // namespace vrn::posixfolders
