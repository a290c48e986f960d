// One task as the job store keeps it, and its file form.
//
// A file is a fixed header (magic, size, checksum, identity, the run state) and
// a body (the definition). The run state sits at fixed offsets so that the
// process watching a run can record its end without parsing the body or
// allocating memory (it runs in a forked child of a possibly threaded host).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tasks/scheduler.h"

namespace vrn::tasks::jobs {

// What a task is: set through the Task operations, stored by Save.
struct Definition {
    std::u16string application;
    std::u16string parameters;
    std::u16string workingDirectory;
    std::u16string comment;
    std::u16string creator;
    std::optional<std::u16string> account;  // none: never set
    bool passwordGiven = false;             // the password itself is never kept
    std::vector<uint8_t> workItemData;
    uint32_t flags = 0;
    uint32_t maxRunTime = kDefaultMaxRunTime;
    uint32_t priority = kNormalPriorityClass;
    uint16_t idleMinutes = kDefaultIdleMinutes;
    uint16_t deadlineMinutes = kDefaultDeadlineMinutes;
    std::vector<TASK_TRIGGER> triggers;
};

// Run flags.
inline constexpr uint32_t kRunStarted = 0x1;     // a start was tried: lastRun and startResult hold
inline constexpr uint32_t kRunRunning = 0x2;     // pid/pidStart name the running process group
inline constexpr uint32_t kRunTerminated = 0x4;  // the last run was stopped by Terminate
inline constexpr uint32_t kRunDeleteWhenDone = 0x8;  // the running one is the task's last: its end deletes it

// What happened when it last ran: written by Run, by Terminate and by the
// process that watches a run.
struct RunState {
    SystemTime lastRun{};
    uint32_t exitCode = 0;
    int32_t startResult = kOk;  // what starting the application gave
    uint32_t flags = 0;
    int32_t pid = 0;
    uint64_t pidStart = 0;  // the process's start time, so a reused pid isn't taken for it
};

struct Record {
    uint64_t identity = 0;  // tells a task from a later one of the same name
    RunState run;
    Definition definition;
};

// Files larger than this aren't ours.
inline constexpr size_t kMaxFileSize = size_t{16} << 20;

std::vector<uint8_t> Encode(const Record& record);
// None for anything that isn't a whole, intact file of this format.
std::optional<Record> Decode(const uint8_t* data, size_t size);

// ---- Header access on a raw file image; no allocation.
inline constexpr size_t kHeaderSize = 64;
// The identity of an intact image, 0 when the image isn't one.
uint64_t ImageIdentity(const uint8_t* data, size_t size);
RunState ImageRunState(const uint8_t* data);
// Writes the run state and seals the image (checksum) again.
void SetImageRunState(uint8_t* data, size_t size, const RunState& run);

// ---- Text: UTF-16 from the seam against UTF-8 for the file system.
// None for an unpaired surrogate.
std::optional<std::string> ToUtf8(std::u16string_view text);
// None for bytes that aren't UTF-8.
std::optional<std::u16string> ToUtf16(std::string_view text);

}  // namespace vrn::tasks::jobs
