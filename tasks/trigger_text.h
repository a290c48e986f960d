// A trigger as a person reads it, in the style of the system's task list:
// "At 10:30 every Mon, Wed of every week, starting 1/1/2007".
#pragma once

#include <string>

#include "tasks/scheduler.h"

namespace vrn::tasks {

std::u16string TriggerText(const TASK_TRIGGER& trigger);

}  // namespace vrn::tasks
