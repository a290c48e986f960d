#include "tasks/job_store_posix.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string_view>

#include "frame/convert.h"

namespace vrn::tasks::jobs {
namespace {

constexpr char kLockName[] = ".lock";
constexpr char kTempName[] = ".tmp-XXXXXX";
constexpr size_t kTempPrefix = 5;  // ".tmp-", then six letters or digits
// A save takes well under this; a writer alive holds its file's lock besides.
constexpr int64_t kLeftoverSeconds = 60;
constexpr char kSuffix[] = ".job";

bool EqualIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && EqualIgnoringAsciiCase(a.data(), b.data(), a.size());
}

bool IsTempName(std::string_view name) {
    return name.size() == sizeof kTempName - 1 && name.starts_with(std::string_view(kTempName, kTempPrefix)) &&
           std::all_of(name.begin() + kTempPrefix, name.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
           });
}

bool HasJobSuffix(const std::string& name) {
    return name.size() >= 4 && EqualIgnoringCase(name.substr(name.size() - 4), kSuffix);
}

// folder + "/" + name into out; false when it doesn't fit.
bool JoinPath(char (&out)[PATH_MAX], const char* folder, const char* name) {
    const size_t a = std::strlen(folder), b = std::strlen(name);
    if (a + 1 + b + 1 > sizeof out) return false;
    std::memcpy(out, folder, a);
    out[a] = '/';
    std::memcpy(out + a + 1, name, b + 1);
    return true;
}

int SyncFolder(const char* folder) {
    const int fd = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int error = fsync(fd) == 0 ? 0 : errno;
    close(fd);
    return error;
}

// mkdir -p, each new folder 0700.
int MakeFolders(const std::string& path) {
    for (size_t at = 1; at <= path.size(); ++at) {
        if (at != path.size() && path[at] != '/') continue;
        const std::string part = path.substr(0, at);
        if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) return errno;
    }
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return errno;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
}

}  // namespace

std::string HomeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
    struct passwd entry {};
    struct passwd* found = nullptr;
    char buffer[4096];
    if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found != nullptr) return found->pw_dir;
    return "/";
}

namespace {

// An open descriptor, closed on every way out.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return fd_; }

private:
    int fd_;
};

}  // namespace

int32_t ErrnoResult(int error) {
    switch (error) {
        case 0:
            return kOk;
        case ENOENT:
            return kFileNotFound;
        case ENOTDIR:
            return kPathNotFound;
        case EACCES:
        case EPERM:
        case EROFS:
            return kAccessDenied;
        case ENOMEM:
            return kOutOfMemory;
        case EEXIST:
            return kFileExists;
        case ENAMETOOLONG:
            return kNameTooLong;
        case EMFILE:
        case ENFILE:
            return static_cast<int32_t>(0x80070004u);  // too many open files
        case ENOSPC:
        case EDQUOT:
            return static_cast<int32_t>(0x80070070u);  // disk full
        default:
            return kFail;
    }
}

std::string DefaultFolder() {
    if (const char* store = std::getenv("VRN_TASK_STORE"); store != nullptr && *store != '\0') return store;
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && state[0] == '/') {
        return std::string(state) + "/vrn/tasks";
    }
    return HomeFolder() + "/.local/state/vrn/tasks";
}

int32_t FileNameOf(const char16_t* name, std::string* fileName) {
    if (name == nullptr) return kInvalidArgument;
    const std::u16string_view text(name);
    if (text.empty() || text == u"." || text == u"..") return kInvalidArgument;
    for (char16_t c : text) {
        if (c < 0x20 || std::u16string_view(u"\\/:*?\"<>|").find(c) != std::u16string_view::npos) {
            return kInvalidArgument;
        }
    }
    std::optional<std::string> utf8 = ToUtf8(text);
    if (!utf8) return kInvalidArgument;
    if (!HasJobSuffix(*utf8)) *utf8 += kSuffix;
    if (utf8->size() > NAME_MAX) return kNameTooLong;
    *fileName = std::move(*utf8);
    return kOk;
}

StoreLock::~StoreLock() {
    if (fd_ >= 0) {
        flock(fd_, LOCK_UN);  // a forked child may still hold a copy of the descriptor
        close(fd_);
    }
}

int32_t Store::Open(const std::string& folder, Store* store) {
    if (folder.empty()) return kPathNotFound;
    std::string path = folder;
    if (path[0] != '/') {
        char cwd[PATH_MAX];
        if (getcwd(cwd, sizeof cwd) == nullptr) return ErrnoResult(errno);
        path = std::string(cwd) + "/" + path;
    }
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (const int error = MakeFolders(path); error != 0) return ErrnoResult(error);
    store->folder_ = std::move(path);
    return kOk;
}

int32_t Store::Lock(StoreLock* lock) const {
    lock->fd_ = LockFolder(folder_.c_str());
    if (lock->fd_ < 0) return ErrnoResult(errno);
    SweepLeftovers();
    return kOk;
}

// A temporary file is a killed writer's when no one holds its lock and it is
// older than any save; a writer between making it and locking it is young.
void Store::SweepLeftovers() const {
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder_.c_str()), closedir);
    if (!dir) return;
    const time_t now = time(nullptr);
    while (const dirent* entry = readdir(dir.get())) {
        if (!IsTempName(entry->d_name)) continue;
        const std::string path = folder_ + "/" + entry->d_name;
        const Descriptor fd(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat st {};
        if (fd.Get() < 0 || flock(fd.Get(), LOCK_EX | LOCK_NB) != 0 || fstat(fd.Get(), &st) != 0) continue;
        if (S_ISREG(st.st_mode) && st.st_mtime <= now - kLeftoverSeconds) unlink(path.c_str());
    }
}

int32_t Store::Resolve(const std::string& fileName, std::string* stored) const {
    struct stat st {};
    if (lstat((folder_ + "/" + fileName).c_str(), &st) == 0) {
        *stored = fileName;
        return kOk;
    }
    if (errno != ENOENT) return ErrnoResult(errno);
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder_.c_str()), closedir);
    if (!dir) return ErrnoResult(errno);
    std::string best;
    while (const dirent* entry = readdir(dir.get())) {
        const std::string name = entry->d_name;
        if (EqualIgnoringCase(name, fileName) && (best.empty() || name < best)) best = name;
    }
    if (best.empty()) return kFileNotFound;
    *stored = std::move(best);
    return kOk;
}

int32_t Store::Read(const std::string& fileName, Record* record) const {
    const Descriptor fd(open((folder_ + "/" + fileName).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    if (fd.Get() < 0) return errno == ELOOP ? kInvalidTask : ErrnoResult(errno);
    struct stat st {};
    if (fstat(fd.Get(), &st) != 0) return ErrnoResult(errno);
    if (!S_ISREG(st.st_mode) || static_cast<uint64_t>(st.st_size) > kMaxFileSize) return kInvalidTask;
    std::vector<uint8_t> data(static_cast<size_t>(st.st_size) + 1);  // one more: a file that grew shows
    size_t got = 0;
    while (got < data.size()) {
        const ssize_t n = read(fd.Get(), data.data() + got, data.size() - got);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return ErrnoResult(errno);
        if (n == 0) break;
        got += static_cast<size_t>(n);
    }
    std::optional<Record> decoded = Decode(data.data(), got);
    if (!decoded) return kInvalidTask;
    *record = std::move(*decoded);
    return kOk;
}

int32_t Store::List(std::vector<std::string>* fileNames) const {
    fileNames->clear();
    std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(folder_.c_str()), closedir);
    if (!dir) return ErrnoResult(errno);
    std::vector<std::string> names;
    while (const dirent* entry = readdir(dir.get())) {
        std::string name = entry->d_name;
        if (HasJobSuffix(name) && ToUtf16(name)) names.push_back(std::move(name));
    }
    std::sort(names.begin(), names.end());
    for (std::string& name : names) {
        Record record;
        if (Read(name, &record) == kOk) fileNames->push_back(std::move(name));
    }
    return kOk;
}

int32_t Store::Write(const std::string& fileName, const Record& record) const {
    const std::vector<uint8_t> image = Encode(record);
    return ErrnoResult(WriteImage(folder_.c_str(), fileName.c_str(), image.data(), image.size()));
}

int32_t Store::Remove(const std::string& fileName) const {
    if (unlink((folder_ + "/" + fileName).c_str()) != 0) return ErrnoResult(errno);
    return ErrnoResult(SyncFolder(folder_.c_str()));
}

int LockFolder(const char* folder) {
    char path[PATH_MAX];
    if (!JoinPath(path, folder, kLockName)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return -1;
    while (flock(fd, LOCK_EX) != 0) {
        if (errno != EINTR) {
            const int error = errno;
            close(fd);
            errno = error;
            return -1;
        }
    }
    return fd;
}

int WriteImage(const char* folder, const char* name, const uint8_t* data, size_t size) {
    char temp[PATH_MAX], target[PATH_MAX];
    if (!JoinPath(temp, folder, kTempName) || !JoinPath(target, folder, name)) return ENAMETOOLONG;
    const int fd = mkostemp(temp, O_CLOEXEC);  // made 0600
    if (fd < 0) return errno;
    flock(fd, LOCK_EX | LOCK_NB);  // tells the sweep that its writer lives
    int error = 0;
    if (!WriteAll(fd, data, size)) {
        error = errno != 0 ? errno : EIO;
    } else if (fsync(fd) != 0) {
        error = errno;
    }
    if (close(fd) != 0 && error == 0) error = errno;
    if (error == 0 && rename(temp, target) != 0) error = errno;
    if (error != 0) {
        unlink(temp);
        return error;
    }
    return SyncFolder(folder);
}

void RecordRunEnd(const char* folder, const char* name, uint64_t identity, int32_t pid, uint32_t exitCode) {
    char path[PATH_MAX];
    if (!JoinPath(path, folder, name)) return;
    const int lock = LockFolder(folder);
    if (lock < 0) return;
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    struct stat st {};
    if (fd >= 0 && fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 &&
        static_cast<uint64_t>(st.st_size) <= kMaxFileSize) {
        const size_t size = static_cast<size_t>(st.st_size);
        // A private mapping is a copy to change without touching the heap.
        void* map = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE, fd, 0);
        if (map != MAP_FAILED) {
            uint8_t* image = static_cast<uint8_t*>(map);
            RunState run = ImageRunState(image);
            if (ImageIdentity(image, size) != identity || (run.flags & kRunRunning) == 0 || run.pid != pid) {
                // another task of that name, or another run: not ours to record
            } else if ((run.flags & kRunDeleteWhenDone) != 0) {
                if (unlink(path) == 0) SyncFolder(folder);
            } else {
                run.flags &= ~kRunRunning;
                run.exitCode = exitCode;
                SetImageRunState(image, size, run);
                WriteImage(folder, name, image, size);
            }
            munmap(map, size);
        }
    }
    if (fd >= 0) close(fd);
    flock(lock, LOCK_UN);
    close(lock);
}

bool WriteAll(int fd, const void* data, size_t size) {
    const auto* p = static_cast<const uint8_t*>(data);
    while (size > 0) {
        const ssize_t n = write(fd, p, size);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

}  // namespace vrn::tasks::jobs
