// The file operations of vrn_StrToFile. The Windows build fills them with the
// system's calls (share mode 0, open-always); the portable one keeps the same
// promises: open or create without truncating, nobody else may open the file
// until it is closed, the position starts at 0.
#pragma once

#include <cstdint>

namespace vrn::fileio {

// A system file handle; kNoFile stands where the open failed.
using FileHandle = intptr_t;
inline constexpr FileHandle kNoFile = -1;

// Opens or creates name for writing, for this caller alone. On failure gives
// kNoFile and the system's error number in *error.
[[nodiscard]] FileHandle OpenExclusive(const char* name, uint32_t* error);
void SeekToEnd(FileHandle file);
// Writes all of data at the current position (the results aren't looked at:
// a full disk still lets the call succeed).
void Write(FileHandle file, const char* data, uint32_t length);
// Ends the file where the last write stopped.
void SetEndHere(FileHandle file);
void Close(FileHandle file);

// Owner of an open file: closed on every path out of its scope.
class FileOwner {
public:
    explicit FileOwner(FileHandle file) : file_(file) {}
    ~FileOwner() { Reset(); }
    FileOwner(const FileOwner&) = delete;
    FileOwner& operator=(const FileOwner&) = delete;
    [[nodiscard]] FileHandle Get() const { return file_; }
    void Reset() {
        if (file_ != kNoFile) Close(file_);
        file_ = kNoFile;
    }

private:
    FileHandle file_;
};

// The system's text for an error number, held until destruction.
class ErrorText {
public:
    explicit ErrorText(uint32_t error);
    ~ErrorText();
    ErrorText(const ErrorText&) = delete;
    ErrorText& operator=(const ErrorText&) = delete;
    // Never null.
    [[nodiscard]] const char* Get() const { return text_ != nullptr ? text_ : ""; }

private:
    char* text_;
};

}  // namespace vrn::fileio
