// The job store's folder: one file per task, named by the task with ".job".
// Readers need no lock (a file is only ever replaced whole, by rename); every
// writer holds the folder's lock, and each temporary file its own while its
// writer lives.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tasks/job_record_posix.h"

namespace vrn::tasks::jobs {

inline constexpr int32_t kPathNotFound = static_cast<int32_t>(0x80070003u);
inline constexpr int32_t kNameTooLong = static_cast<int32_t>(0x800700CEu);
inline constexpr int32_t kNotInitialized = static_cast<int32_t>(0x800401F0u);
inline constexpr int32_t kTaskNotReady = static_cast<int32_t>(0x8004130Au);
inline constexpr int32_t kEventTrigger = 0x00041308;

// A failed system call's errno as the platform's HRESULT.
int32_t ErrnoResult(int error);

// $HOME, else the account's home folder.
std::string HomeFolder();
// $VRN_TASK_STORE, else $XDG_STATE_HOME/vrn/tasks, else ~/.local/state/vrn/tasks.
std::string DefaultFolder();

// The task's file name: the name, with ".job" unless it ends so in any case.
// kInvalidArgument for a null name or one that isn't a plain file name.
int32_t FileNameOf(const char16_t* name, std::string* fileName);

// The folder's write lock, held while it lives.
class StoreLock {
public:
    StoreLock() = default;
    ~StoreLock();
    StoreLock(const StoreLock&) = delete;
    StoreLock& operator=(const StoreLock&) = delete;
    int Descriptor() const { return fd_; }

private:
    friend class Store;
    int fd_ = -1;
};

class Store {
public:
    // The folder, made (0700, with its parents) when missing; kept as an
    // absolute path, since the processes watching runs leave the working folder.
    static int32_t Open(const std::string& folder, Store* store);
    const std::string& Folder() const { return folder_; }

    // Takes the folder's lock and removes what killed writers left.
    [[nodiscard]] int32_t Lock(StoreLock* lock) const;
    // The stored file of that name, exactly or in another letter case; kFileNotFound.
    [[nodiscard]] int32_t Resolve(const std::string& fileName, std::string* stored) const;
    // kFileNotFound, kInvalidTask for a damaged or foreign file, or a system failure.
    [[nodiscard]] int32_t Read(const std::string& fileName, Record* record) const;
    // The intact task files, in byte order of their names.
    [[nodiscard]] int32_t List(std::vector<std::string>* fileNames) const;
    // Under the lock: replaces the file whole, or leaves the old one.
    [[nodiscard]] int32_t Write(const std::string& fileName, const Record& record) const;
    [[nodiscard]] int32_t Remove(const std::string& fileName) const;

private:
    void SweepLeftovers() const;
    std::string folder_;
};

// ---- For the process that watches a run: no allocation, plain errno results.
// The folder's lock file, locked: a descriptor, or -1.
int LockFolder(const char* folder);
// Replaces folder/name with the bytes, through a temporary file, fsync and rename.
int WriteImage(const char* folder, const char* name, const uint8_t* data, size_t size);
// Records the end of the run of process `pid` when the file still holds that
// task (identity) and names that run; deletes the task instead when that run
// was marked its last.
void RecordRunEnd(const char* folder, const char* name, uint64_t identity, int32_t pid, uint32_t exitCode);

// Writes all of data, going on after interruptions; false when the descriptor fails.
[[nodiscard]] bool WriteAll(int fd, const void* data, size_t size);

}  // namespace vrn::tasks::jobs
