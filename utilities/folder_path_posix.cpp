// Special folders on Linux. The user's folders follow the XDG variables with
// their usual defaults under the home folder; the machine's folders are fixed.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "frame/platform.h"
#include "utilities/folder_path.h"
#include "utilities/folder_path_posix.h"

namespace vrn::posixfolders {

namespace {

constexpr int32_t kFileNotFound = static_cast<int32_t>(0x80070002u);
constexpr int32_t kPathNotFound = static_cast<int32_t>(0x80070003u);
constexpr int32_t kAccessDenied = static_cast<int32_t>(0x80070005u);
constexpr int32_t kAlreadyExists = static_cast<int32_t>(0x800700B7u);
constexpr int32_t kNameTooLong = static_cast<int32_t>(0x800700CEu);
constexpr int32_t kFail = static_cast<int32_t>(0x80004005u);

constexpr int32_t kFlagCreate = 0x8000;
constexpr int32_t kFlagDontVerify = 0x4000;
// Flags that only matter to the Windows shell: accepted, no effect here.
constexpr int32_t kFlagsWithoutEffect = 0x2000 | 0x1000 | 0x0800;

enum class Base { Root, Home };

// A folder: the XDG variable that names it (an absolute value wins), else
// fallback under the base; then suffix below either.
struct FolderRule {
    int32_t csidl;
    const char* variable;
    Base base;
    const char* fallback;
    const char* suffix;
};

constexpr FolderRule kFolders[] = {
    {0x00, "XDG_DESKTOP_DIR", Base::Home, "Desktop", ""},          // DESKTOP
    {0x02, "XDG_DATA_HOME", Base::Home, ".local/share", "applications"},  // PROGRAMS
    {0x05, "XDG_DOCUMENTS_DIR", Base::Home, "Documents", ""},      // PERSONAL
    {0x07, "XDG_CONFIG_HOME", Base::Home, ".config", "autostart"},  // STARTUP
    {0x0D, "XDG_MUSIC_DIR", Base::Home, "Music", ""},              // MYMUSIC
    {0x0E, "XDG_VIDEOS_DIR", Base::Home, "Videos", ""},            // MYVIDEO
    {0x10, "XDG_DESKTOP_DIR", Base::Home, "Desktop", ""},          // DESKTOPDIRECTORY
    {0x14, nullptr, Base::Root, "/usr/share/fonts", ""},           // FONTS
    {0x15, "XDG_TEMPLATES_DIR", Base::Home, "Templates", ""},      // TEMPLATES
    {0x16, nullptr, Base::Root, "/usr/share/applications", ""},    // COMMON_STARTMENU
    {0x17, nullptr, Base::Root, "/usr/share/applications", ""},    // COMMON_PROGRAMS
    {0x18, nullptr, Base::Root, "/etc/xdg/autostart", ""},         // COMMON_STARTUP
    {0x1A, "XDG_CONFIG_HOME", Base::Home, ".config", ""},          // APPDATA
    {0x1C, "XDG_DATA_HOME", Base::Home, ".local/share", ""},       // LOCAL_APPDATA
    {0x20, "XDG_CACHE_HOME", Base::Home, ".cache", ""},            // INTERNET_CACHE
    {0x23, nullptr, Base::Root, "/var/lib", ""},                   // COMMON_APPDATA
    {0x24, nullptr, Base::Root, "/usr", ""},                       // WINDOWS
    {0x25, nullptr, Base::Root, "/usr/lib", ""},                   // SYSTEM
    {0x26, nullptr, Base::Root, "/opt", ""},                       // PROGRAM_FILES
    {0x27, "XDG_PICTURES_DIR", Base::Home, "Pictures", ""},        // MYPICTURES
    {0x28, nullptr, Base::Home, "", ""},                           // PROFILE
    {0x29, nullptr, Base::Root, "/usr/lib", ""},                   // SYSTEMX86
    {0x2A, nullptr, Base::Root, "/opt", ""},                       // PROGRAM_FILESX86
    {0x2B, nullptr, Base::Root, "/usr/local", ""},                 // PROGRAM_FILES_COMMON
    {0x2E, nullptr, Base::Root, "/usr/share/doc", ""},             // COMMON_DOCUMENTS
    {0x3E, nullptr, Base::Root, "/home", ""},                      // PROFILES
};

const FolderRule* FindFolder(int32_t folder) {
    for (const FolderRule& rule : kFolders) {
        if (rule.csidl == folder) return &rule;
    }
    return nullptr;
}

void AppendComponent(std::string& path, std::string_view component) {
    if (component.empty()) return;
    if (path.empty() || path.back() != '/') path += '/';
    path.append(component);
}

const char* NonEmpty(const char* text) { return text != nullptr && *text != '\0' ? text : nullptr; }

const char* AccountHome() {
    thread_local std::string home;
    struct passwd entry {};
    struct passwd* found = nullptr;
    std::vector<char> buffer(4096);
    while (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
           buffer.size() < 1u << 20) {
        buffer.resize(buffer.size() * 2);
    }
    if (found == nullptr || NonEmpty(found->pw_dir) == nullptr) return nullptr;
    home = found->pw_dir;
    return home.c_str();
}

const char* ProcessVariable(const char* name) {
    const char* value = NonEmpty(std::getenv(name));
    if (value == nullptr && std::strcmp(name, "HOME") == 0) return AccountHome();
    return value;
}

int32_t FromErrno(int error) {
    switch (error) {
        case ENOENT: return kFileNotFound;
        case ENOTDIR: return kPathNotFound;
        case EACCES:
        case EPERM:
        case EROFS: return kAccessDenied;
        case EEXIST: return kAlreadyExists;
        case ENAMETOOLONG: return kNameTooLong;
        default: return kFail;
    }
}

[[nodiscard]] int32_t CheckFolder(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return FromErrno(errno);
    return S_ISDIR(info.st_mode) ? kFolderOk : kPathNotFound;
}

// Creates the folder and its missing parents, private to the account as the
// user's folders are meant to be.
[[nodiscard]] int32_t CreateFolder(const std::string& path) {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        std::string part = path.substr(0, end);
        if (::mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return FromErrno(errno);
        if (end == std::string::npos) break;
    }
    return CheckFolder(path) == kFolderOk ? kFolderOk : kAlreadyExists;
}

[[nodiscard]] int32_t FolderOf(const FolderRule& rule, const FolderEnvironment& environment, std::string* path) {
    const char* named = rule.variable != nullptr ? NonEmpty(environment.variable(rule.variable)) : nullptr;
    if (named != nullptr && named[0] == '/') {
        *path = named;  // relative values of XDG variables are to be ignored
    } else if (rule.base == Base::Root) {
        *path = rule.fallback;
    } else {
        const char* home = NonEmpty(environment.variable("HOME"));
        if (home == nullptr) return kFileNotFound;
        *path = home;
        AppendComponent(*path, rule.fallback);
    }
    AppendComponent(*path, rule.suffix);
    return kFolderOk;
}

}  // namespace

const FolderEnvironment& ProcessEnvironment() {
    static const FolderEnvironment environment{&ProcessVariable};
    return environment;
}

int32_t ResolveFolderPath(int32_t csidl, const FolderEnvironment& environment, std::string* path) {
    path->clear();
    if (csidl < 0 || csidl > 0xFFFF) return kFolderInvalidArg;
    int32_t flags = csidl & 0xFF00;
    if ((flags & ~(kFlagCreate | kFlagDontVerify | kFlagsWithoutEffect)) != 0) return kFolderInvalidArg;
    const FolderRule* rule = FindFolder(csidl & 0xFF);
    if (rule == nullptr) return kFolderInvalidArg;

    int32_t result = FolderOf(*rule, environment, path);
    if (result == kFolderOk && (flags & kFlagDontVerify) == 0) {
        result = CheckFolder(*path);
        if (result != kFolderOk && (flags & kFlagCreate) != 0) result = CreateFolder(*path);
    }
    if (result != kFolderOk) path->clear();
    return result;
}

namespace {

// UTF-8 to UTF-16 with its terminator into out[units]; a byte that isn't
// UTF-8 becomes U+FFFD. False when it doesn't fit.
[[nodiscard]] bool Utf8ToWide(std::string_view text, char16_t* out, size_t units) {
    size_t used = 0;
    auto put = [&](char16_t unit) {
        if (used + 1 >= units) return false;
        out[used++] = unit;
        return true;
    };
    for (size_t i = 0; i < text.size();) {
        unsigned char lead = static_cast<unsigned char>(text[i]);
        int extra = lead < 0x80 ? 0 : lead >= 0xC2 && lead < 0xE0 ? 1 : lead >= 0xE0 && lead < 0xF0 ? 2
                  : lead >= 0xF0 && lead < 0xF5 ? 3 : -1;
        char32_t code = extra == 0 ? lead : extra == 1 ? lead & 0x1F : extra == 2 ? lead & 0x0F : lead & 0x07;
        bool valid = extra >= 0 && i + static_cast<size_t>(extra) < text.size();
        for (int k = 1; valid && k <= extra; ++k) {
            unsigned char next = static_cast<unsigned char>(text[i + static_cast<size_t>(k)]);
            valid = (next & 0xC0) == 0x80;
            code = (code << 6) | (next & 0x3F);
        }
        if (valid && ((extra == 2 && (code < 0x800 || (code >= 0xD800 && code < 0xE000))) ||
                      (extra == 3 && (code < 0x10000 || code > 0x10FFFF)))) {
            valid = false;
        }
        if (!valid) {
            code = 0xFFFD;
            extra = 0;
        }
        i += static_cast<size_t>(extra) + 1;
        if (code >= 0x10000) {
            code -= 0x10000;
            if (!put(static_cast<char16_t>(0xD800 + (code >> 10))) || !put(static_cast<char16_t>(0xDC00 + (code & 0x3FF)))) {
                return false;
            }
        } else if (!put(static_cast<char16_t>(code))) {
            return false;
        }
    }
    out[used] = u'\0';
    return true;
}

}  // namespace

}  // namespace vrn::posixfolders

namespace vrn {

int32_t GetFolderPathWide(int32_t csidl, char16_t* path) {
    std::string found;
    int32_t result = posixfolders::ResolveFolderPath(csidl, posixfolders::ProcessEnvironment(), &found);
    if (result < 0) return result;
    if (!posixfolders::Utf8ToWide(found, path, kFolderPathUnits)) return posixfolders::kNameTooLong;
    return result;
}

int32_t GetFolderPathNarrow(int32_t csidl, char* path) {
    char16_t wide[kFolderPathUnits];
    int32_t result = GetFolderPathWide(csidl, wide);
    if (result < 0) return result;
    if (platform::WideToNarrow(wide, path, static_cast<int>(kFolderPathUnits)) == 0) return posixfolders::kNameTooLong;
    return result;
}

}  // namespace vrn
