// The platform seams of the frame: locks, heap, narrow/wide text, time.
// Linux builds *_posix.cpp behind these; the Windows build fills them with
// the system's calls (*_win32.cpp). Nothing above this header knows which.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace vrn::platform {

// ---- Locks: thread-owned, re-entrant by the owner, waits with a time-out.
using LockHandle = void*;

inline constexpr uint32_t kWaitObject0 = 0;           // obtained
inline constexpr uint32_t kWaitAbandoned = 0x80;      // obtained; the last owner ended holding it
inline constexpr uint32_t kWaitTimeout = 258;         // not obtained
inline constexpr uint32_t kWaitFailed = 0xFFFFFFFFu;  // bad handle
inline constexpr uint32_t kInfinite = 0xFFFFFFFFu;    // wait forever

LockHandle CreateLock();                                          // unnamed, not owned; null on failure
[[nodiscard]] uint32_t WaitLock(LockHandle lock, uint32_t milliseconds);
[[nodiscard]] bool ReleaseLock(LockHandle lock);                  // false when the caller isn't the owner
void CloseLock(LockHandle lock);

// ---- Process heap: cleared blocks.
void* HeapAllocCleared(size_t bytes);  // null on failure
void HeapRelease(void* block);

struct HeapDeleter {
    void operator()(void* block) const { HeapRelease(block); }
};
// Owner of a process-heap block: released on every path out of its scope.
template <class T>
using HeapPtr = std::unique_ptr<T, HeapDeleter>;

// ---- Narrow text is the system code page (Windows-1252 here).
// Same contract as MultiByteToWideChar / WideCharToMultiByte with code page 0,
// flags 0, length -1: converts through the terminator, returns the number of
// units written including it, 0 when the output is too small; an output size
// of 0 asks for the size needed.
int NarrowToWide(const char* text, char16_t* out, int outUnits);
int WideToNarrow(const char16_t* text, char* out, int outBytes);

// ---- Time: SYSTEMTIME to 100-ns units since 1601-01-01.
struct SystemTime {
    uint16_t year, month, dayOfWeek, day, hour, minute, second, milliseconds;
};
uint64_t SystemTimeToFileTime(const SystemTime& time);

// ---- Formatting: vsnprintf's contract, in the C locale whatever the process chose.
int FormatInCLocale(char* buffer, size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

}  // namespace vrn::platform
