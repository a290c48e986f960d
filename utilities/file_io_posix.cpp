// File operations over POSIX descriptors. Exclusive use for the time of the
// call is an advisory lock on the open file description (flock), so it holds
// between threads of this process as well as between processes.
#include "utilities/file_io.h"

#include <fcntl.h>
#include <locale.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace vrn::fileio {

FileHandle OpenExclusive(const char* name, uint32_t* error) {
    int fd;
    do {
        fd = ::open(name, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        *error = static_cast<uint32_t>(errno);
        return kNoFile;
    }
    int locked;
    do {
        locked = ::flock(fd, LOCK_EX | LOCK_NB);
    } while (locked != 0 && errno == EINTR);
    if (locked != 0) {
        *error = static_cast<uint32_t>(errno);
        ::close(fd);
        return kNoFile;
    }
    return fd;
}

void SeekToEnd(FileHandle file) { (void)::lseek(static_cast<int>(file), 0, SEEK_END); }

void Write(FileHandle file, const char* data, uint32_t length) {
    // One request to the system may write less than asked; go on until all is
    // written or the system refuses.
    while (length > 0) {
        ssize_t written = ::write(static_cast<int>(file), data, length);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return;
        data += written;
        length -= static_cast<uint32_t>(written);
    }
}

void SetEndHere(FileHandle file) {
    int fd = static_cast<int>(file);
    off_t here = ::lseek(fd, 0, SEEK_CUR);
    if (here >= 0) (void)::ftruncate(fd, here);
}

void Close(FileHandle file) { ::close(static_cast<int>(file)); }

namespace {

// The texts are those of the C locale whatever the process's locale is.
locale_t CLocale() {
    static const locale_t c = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(0));
    return c;
}

}  // namespace

ErrorText::ErrorText(uint32_t error) : text_(nullptr) {
    int number = static_cast<int>(error);
    locale_t c = CLocale();
    const char* text = c != static_cast<locale_t>(0) ? ::strerror_l(number, c) : "Unknown error";
    text_ = ::strdup(text);
}

ErrorText::~ErrorText() { std::free(text_); }

}  // namespace vrn::fileio
