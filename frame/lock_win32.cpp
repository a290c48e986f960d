// The process-wide locks are the system's mutexes: owner thread, recursion,
// time-outs and abandonment come with them.
#include <windows.h>

#include "frame/platform.h"

namespace vrn::platform {

LockHandle CreateLock() { return CreateMutexA(nullptr, FALSE, nullptr); }

uint32_t WaitLock(LockHandle lock, uint32_t milliseconds) { return WaitForSingleObject(lock, milliseconds); }

bool ReleaseLock(LockHandle lock) { return ReleaseMutex(lock) != FALSE; }

void CloseLock(LockHandle lock) {
    if (lock != nullptr) CloseHandle(lock);
}

}  // namespace vrn::platform
