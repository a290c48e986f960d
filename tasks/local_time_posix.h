// The machine's clock and time zone (TZ, else the system's zone).
#pragma once

#include <cstdint>

#include "tasks/scheduler.h"
#include "tasks/trigger_schedule.h"

namespace vrn::tasks {

const TimeZone& SystemTimeZone();
int64_t NowInstant();
// An instant as the zone's wall-clock time, with its day of the week.
SystemTime ToSystemTime(int64_t instant, const TimeZone& zone);

}  // namespace vrn::tasks
