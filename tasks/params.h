// What the task procedures share: their parameter classes and reads, the one
// message of the family, and the instance name.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/platform.h"
#include "frame/procedure.h"
#include "tasks/scheduler.h"

namespace vrn::tasks {

// One element per parameter, in parameter order: element i describes parameter i + 1.
using ParamTable = ParamInfo*;

// Type classes of the family. Task creation also takes 31, a NULL of no type.
int IsWideTextType(uint8_t type);          // 231, 239
int IsWideTextOrVoidType(uint8_t type);    // 231, 239, 31
int IsNVarCharType(uint8_t type);          // 231 alone
int IsBinaryOrVoidType(uint8_t type);      // 45, 173, 165, 31
int IsTaskIntegerType(uint8_t type);       // 56, 38

// Describes parameter index + 1 into table[index], reading no value. GetParam's result.
[[nodiscard]] int ReadParam(SRV_PROC* srvproc, ParamTable table, int index);
// The value's bytes of a parameter whose element is filled (by the call's
// judgement) land in destination when they fit in size; a value longer than
// that isn't copied and the result is 0.
[[nodiscard]] int ReadParamValue(SRV_PROC* srvproc, ParamTable table, int index, void* destination, size_t size);
// An integer into a variable cleared first; a wider value than 32 bits is never written past it.
uint32_t ReadParamInteger(SRV_PROC* srvproc, ParamTable table, int index);

// A wide text the procedure owns, NUL-terminated; null when absent.
using WideText = platform::HeapPtr<char16_t>;
// Reads a wide-text parameter whose element is filled. A length of 0 is absent,
// unless keepEmpty and the value isn't NULL: then an empty text. An odd byte
// length loses its last byte.
[[nodiscard]] WideText ReadParamText(SRV_PROC* srvproc, ParamTable table, int index, bool keepEmpty);

// A cleared process-heap block; throws std::bad_alloc when none can be had.
[[nodiscard]] void* AllocateCleared(size_t bytes);

// The one message of the family, for any parameter that breaks its contract.
inline constexpr char kInvalidParameterText[] = "Error executing extended stored procedure: Invalid Parameter.";
void SendInvalidParameter(SRV_PROC* srvproc);

// The engine's instance name, or null on an engine without one. The host's; not freed.
const char16_t* InstanceName(SRV_PROC* srvproc);

// The export's catch-all: what can escape a call is a failed allocation.
template <class Call>
int32_t ShieldedTaskCall(Call call) {
    return Shielded(call, kOutOfMemory);
}

// minutes to milliseconds, wrapping in 32 bits as the scheduler's field does.
inline uint32_t MinutesToMilliseconds(uint32_t minutes) { return minutes * 60000u; }

}  // namespace vrn::tasks
