#include <windows.h>

#include "frame/platform.h"

namespace vrn::platform {

// The result isn't looked at: a refused date leaves the cleared FILETIME, 0.
uint64_t SystemTimeToFileTime(const SystemTime& time) {
    const SYSTEMTIME system{time.year,   time.month,  time.dayOfWeek, time.day,
                            time.hour,   time.minute, time.second,    time.milliseconds};
    FILETIME file{};
    (void)::SystemTimeToFileTime(&system, &file);
    return (uint64_t{file.dwHighDateTime} << 32) | file.dwLowDateTime;
}

}  // namespace vrn::platform
