// vrn_StrToFile's file operations as the system's calls, with the arguments
// its callers have always passed.
#include <windows.h>

#include "utilities/file_io.h"

namespace vrn::fileio {

namespace {

constexpr DWORD kWriteAccess = 0x40000000;        // GENERIC_WRITE
constexpr DWORD kShareNone = 0;                   // exclusive for the call
constexpr DWORD kOpenAlways = 4;                  // open, or create if missing
constexpr DWORD kNormalSequential = 0x08000080;  // FILE_FLAG_SEQUENTIAL_SCAN | FILE_ATTRIBUTE_NORMAL
constexpr DWORD kFromEnd = 2;                     // FILE_END
// FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS
constexpr DWORD kSystemTextFlags = 0x1300;
constexpr DWORD kUserDefaultLanguage = 0x400;

HANDLE AsHandle(FileHandle file) { return reinterpret_cast<HANDLE>(file); }

}  // namespace

FileHandle OpenExclusive(const char* name, uint32_t* error) {
    HANDLE file = CreateFileA(name, kWriteAccess, kShareNone, nullptr, kOpenAlways, kNormalSequential, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        if (error != nullptr) *error = GetLastError();
        return kNoFile;
    }
    return reinterpret_cast<FileHandle>(file);
}

void SeekToEnd(FileHandle file) { (void)SetFilePointer(AsHandle(file), 0, nullptr, kFromEnd); }

void Write(FileHandle file, const char* data, uint32_t length) {
    DWORD written = 0;
    (void)WriteFile(AsHandle(file), data, length, &written, nullptr);
}

void SetEndHere(FileHandle file) { (void)SetEndOfFile(AsHandle(file)); }

void Close(FileHandle file) { CloseHandle(AsHandle(file)); }

// The system allocates the text (LocalAlloc); without one for the number it stays null.
ErrorText::ErrorText(uint32_t error) : text_(nullptr) {
    if (FormatMessageA(kSystemTextFlags, nullptr, error, kUserDefaultLanguage, reinterpret_cast<char*>(&text_), 0,
                       nullptr) == 0) {
        text_ = nullptr;
    }
}

ErrorText::~ErrorText() {
    if (text_ != nullptr) LocalFree(text_);
}

}  // namespace vrn::fileio
