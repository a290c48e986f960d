// Due tasks: what makes the job store a working scheduler when the machine's
// own scheduler (cron, a systemd timer) calls it every minute.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tasks/job_store_posix.h"
#include "tasks/trigger_schedule.h"

namespace vrn::tasks::jobs {

// Starts each enabled task that had a start time after the store's previous
// look and up to `now`, once however many it missed, and keeps `now` as the
// look. The first look only records the time; so does a clock that went back.
// A task still running from before isn't started again. `started` (may be
// null) gets the file names of the tasks it started.
int32_t RunDue(const Store& store, int64_t now, const TimeZone& zone, std::vector<std::string>* started);

}  // namespace vrn::tasks::jobs
