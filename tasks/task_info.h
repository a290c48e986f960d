// What the scheduler says of one task, gathered for one row of 20 columns.
#pragma once

#include <cstdint>

#include "frame/platform.h"
#include "frame/srv.h"
#include "tasks/scheduler.h"

namespace vrn::tasks {

using NarrowText = platform::HeapPtr<char>;  // null: absent

struct TaskInfo {
    NarrowText TaskName;
    NarrowText UdTask;
    NarrowText Ditta;
    NarrowText AccountInformation;
    NarrowText Comment;
    NarrowText Creator;
    uint32_t ExitCode;
    uint32_t Flags;
    uint16_t IdleMinutes;
    uint16_t DeadlineMinutes;
    SystemTime LastRun;
    SystemTime NextRun;
    int32_t Status;
    uint16_t TriggerCount;
    platform::HeapPtr<uint8_t> WorkItemData;
    uint16_t WorkItemDataLength;
    NarrowText ApplicationName;
    NarrowText Parameters;
    NarrowText WorkingDirectory;
    uint32_t MaxRunTime;  // milliseconds
    uint32_t Priority;
};

// Fills info from the named task: the first failing read ends it with that
// result, and what was read so far stays in the record.
[[nodiscard]] int32_t ReadTaskInfo(TaskInfo* info, Scheduler& scheduler, SchedulerSource& source,
                                   const char16_t* name);
// Frees every text and the data the record holds; the record's owner does it too.
void ReleaseTaskInfo(TaskInfo* info);
// describe: the 20 columns (info unused, may be null); otherwise info as one row.
void SendTaskRow(const TaskInfo* info, SRV_PROC* srvproc, bool describe);

// The scheduler's wide text as the client's narrow text; null for null. Throws
// std::bad_alloc when no block can be had.
[[nodiscard]] NarrowText NarrowCopy(const char16_t* text);

}  // namespace vrn::tasks
