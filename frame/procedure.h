// The procedure frame: what every exported procedure stands on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "frame/platform.h"
#include "frame/srv.h"

#if defined(_WIN32)
#define VRN_EXPORT extern "C" __declspec(dllexport)
#else
#define VRN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace vrn {

// Return codes shared by several procedures.
inline constexpr int32_t kDone = 0;
inline constexpr int32_t kInvalidArg = static_cast<int32_t>(0x80070057u);
inline constexpr int32_t kLockTimeout = 258;
inline constexpr int32_t kXpVersion = 0x07000000;

struct ParamInfo {
    uint8_t type;
    uint32_t maxLength;
    uint32_t actualLength;
    int32_t isNull;
    int32_t isOutput;
};

// srv_paraminfo's result unchanged (1 = success); info is filled only on 1 and
// otherwise left all zero. data may be null to describe without reading.
[[nodiscard]] int GetParam(SRV_PROC* srvproc, int n, ParamInfo* info, void* data);
int IsOutputParam(SRV_PROC* srvproc, int n);

int IsCharType(uint8_t type);
int IsCharOrTextType(uint8_t type);
int IsIntegerType(uint8_t type);
int IsDecimalType(uint8_t type);
int IsFloatType(uint8_t type);
int IsBitType(uint8_t type);

// One parameter as a procedure expects it. maxLength 0: any.
struct ParamRule {
    int (*typeTest)(uint8_t type);
    bool output;
    uint32_t maxLength = 0;
};

// Describes the whole call once (no value is read) and judges it: the exact
// count, every srv_paraminfo result 1, type, direction and required maxLength.
// infos[i] receives parameter i+1 as far as it could be described.
[[nodiscard]] bool JudgeCall(SRV_PROC* srvproc, std::initializer_list<ParamRule> rules, ParamInfo* infos);

// A 32-bit integer read into a variable set to 0 first: the host fills its low
// bytes, so smallint -1 reads as 65535 and NULL reads as 0.
uint32_t ReadIntegerParam(SRV_PROC* srvproc, int n);
// Reads a char value of info.actualLength bytes into buffer and writes the NUL behind it.
// The buffer holds at least actualLength + 1 bytes.
void ReadCharParam(SRV_PROC* srvproc, int n, const ParamInfo& info, char* buffer);

// Deliveries to OUTPUT parameters: text without terminator; a float with length 8.
void SetOutputText(SRV_PROC* srvproc, int n, const char* text, uint32_t length);
void SetOutputFloat(SRV_PROC* srvproc, int n, double value);

// One message: at most 2047 characters and the NUL. A text that doesn't fit goes
// out empty. Formatting is in the C locale; concurrent senders each send their own text.
inline constexpr size_t kMessageBufferSize = 2048;
int SendMessage(SRV_PROC* srvproc, const char* format, ...) __attribute__((format(printf, 2, 3)));
int SendErrorMessage(SRV_PROC* srvproc, const char* format, ...) __attribute__((format(printf, 2, 3)));

// srv_senddone(srvproc, 0, 0, 0): the final done, no count.
void CompleteCall(SRV_PROC* srvproc);

// The three process-wide locks, created at load in this order and closed at unload.
extern platform::LockHandle PercStrSymbMutex;
extern platform::LockHandle PercStrMutex;
extern platform::LockHandle PFormulaMutex;

// Holds a lock for one scope. Only the time-out counts as not obtained;
// an abandoned lock is held like any other.
class LockGuard {
public:
    LockGuard(platform::LockHandle lock, uint32_t milliseconds);
    ~LockGuard();
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;
    [[nodiscard]] bool Obtained() const { return obtained_; }

private:
    platform::LockHandle lock_;
    bool obtained_;
};

// Library entry point: reason 1 (process attach) creates the locks, 0 (process
// detach) closes them, every other reason does nothing. Always returns 1.
int32_t LibraryEntry(uint32_t reason);

}  // namespace vrn
