// Running a stored task for real: its application with its parameters, in its
// working folder, detached from the caller and watched by a process of its own
// that records how it ended.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tasks/job_store_posix.h"
#include "tasks/trigger_schedule.h"

namespace vrn::tasks::jobs {

// The arguments of a command line as the Windows C runtime splits it: blanks
// separate, double quotes group, 2n backslashes before a quote give n and the
// quote groups, 2n+1 give n and a literal quote, "" inside quotes is a quote.
std::vector<std::u16string> SplitCommandLine(std::u16string_view line);

// The start time of a live process (clock ticks after boot); none when it is
// gone or a zombie.
std::optional<uint64_t> ProcessStart(int32_t pid);
// The run state names a process that still lives.
bool IsRunning(const RunState& run);

// Starts the stored task unless a run of it still lives (kOk all the same),
// and records the run: time, process, and what starting it gave. *after gets
// the stored record as it now is.
int32_t RunStoredTask(const Store& store, const std::string& fileName, int64_t now, Record* after);
// Marks a running task with the delete-when-done flag and no start left after
// `now` so that its run's end deletes it; clears the mark otherwise.
void MarkLastRun(Record* record, int64_t now);
// The task has the delete-when-done flag, its run ended, and no start is left
// after `now`: it is to be deleted.
bool IsDoneForGood(const Record& record, int64_t now, const TimeZone& zone);

// Stops the running process group of the stored task; kTaskNotRunning when none.
int32_t TerminateStoredTask(const Store& store, const std::string& fileName, Record* after);

}  // namespace vrn::tasks::jobs
