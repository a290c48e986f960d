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

// One parameter as a procedure expects it. Fields after the first may be left
// out, or named: {.typeTest = IsCharType, .direction = kOut, .notNull = true}.
enum ParamDirection : uint8_t { kIn, kOut, kAnyDirection };

struct ParamRule {
    int (*typeTest)(uint8_t type);
    ParamDirection direction = kIn;
    uint32_t maxLength = 0;    // the declared length it must have; 0: any
    uint32_t minCapacity = 0;  // the least declared length it may have
    uint32_t minLength = 0;    // the least actual length of its value
    bool notNull = false;
    bool optional = false;     // may be left out, together with every parameter behind it
};

// How a call measures up to its rules.
enum class CallVerdict {
    kAccepted,
    kUnreadable,  // a count outside the rules, or a parameter the host can't describe
    kRefused,     // every parameter described, and one breaks its rule
};

// Describes every parameter of the call first (no value is read), then judges
// them all. infos (one per rule) is required; infos[i] receives parameter i+1 as far as it could be described;
// an optional parameter left out stays all zero.
// Parameters behind the last rule are refused, or ignored where a procedure says so.
enum class ExtraParams { kRefused, kIgnored };
[[nodiscard]] CallVerdict JudgeParams(SRV_PROC* srvproc, std::initializer_list<ParamRule> rules, ParamInfo* infos,
                                      ExtraParams extra = ExtraParams::kRefused);
// The same over count rules chosen at run time.
[[nodiscard]] CallVerdict JudgeParams(SRV_PROC* srvproc, const ParamRule* rules, size_t count, ParamInfo* infos,
                                      ExtraParams extra = ExtraParams::kRefused);
// The verdict as most procedures need it: accepted or not.
[[nodiscard]] bool JudgeCall(SRV_PROC* srvproc, std::initializer_list<ParamRule> rules, ParamInfo* infos,
                             ExtraParams extra = ExtraParams::kRefused);

// The readers take the ParamInfo the call's judgement filled: a value costs
// one host call, with no second description.
// The value's bytes into destination when they fit in size: GetParam's
// result; 0 when the value is longer than size, and nothing is copied.
[[nodiscard]] int ReadParamBytes(SRV_PROC* srvproc, int n, const ParamInfo& info, void* destination, size_t size);
// A 32-bit integer read into a variable set to 0 first: the host fills its low
// bytes, so smallint -1 reads as 65535 and NULL reads as 0.
uint32_t ReadIntegerParam(SRV_PROC* srvproc, int n, const ParamInfo& info);
// Reads a char value of info.actualLength bytes into buffer and writes the NUL behind it.
// The buffer holds at least actualLength + 1 bytes.
void ReadCharParam(SRV_PROC* srvproc, int n, const ParamInfo& info, char* buffer);

// Deliveries to OUTPUT parameters: bytes or text without terminator; a float
// with length 8; an integer with length 4, whatever integer type was declared.
void SetOutputBytes(SRV_PROC* srvproc, int n, const void* data, uint32_t length);
void SetOutputText(SRV_PROC* srvproc, int n, const char* text, uint32_t length);
void SetOutputFloat(SRV_PROC* srvproc, int n, double value);
void SetOutputInteger(SRV_PROC* srvproc, int n, int32_t value);

// One message: at most 2047 characters and the NUL. A text that doesn't fit goes
// out empty. Formatting is in the C locale; concurrent senders each send their own text.
inline constexpr size_t kMessageBufferSize = 2048;
int SendMessage(SRV_PROC* srvproc, const char* format, ...) __attribute__((format(printf, 2, 3)));
int SendErrorMessage(SRV_PROC* srvproc, const char* format, ...) __attribute__((format(printf, 2, 3)));

// A row set's column: srv_describe's name, types and widths.
struct ColumnShape {
    const char* name;
    int32_t destType;
    int32_t destWidth;
    int32_t srcType;
    int32_t srcWidth;
};
// srv_describe of the next column.
inline void DescribeColumn(SRV_PROC* srvproc, const ColumnShape& c) {
    (void)srv_describe(srvproc, 0, const_cast<char*>(c.name), -1, c.destType, c.destWidth, c.srcType, c.srcWidth,
                       nullptr);
}

// srv_senddone(srvproc, 0, 0, 0): the final done, no count.
void CompleteCall(SRV_PROC* srvproc);
// srv_senddone(srvproc, SRV_DONE_COUNT | SRV_DONE_MORE, 0, count): a row set's count.
void CompleteCounted(SRV_PROC* srvproc, int32_t count);

// Ends the call with the final done when it goes out of scope, whichever way
// the procedure leaves; its place among the other owners gives the order.
class ScopedCompletion {
public:
    explicit ScopedCompletion(SRV_PROC* srvproc) : srvproc_(srvproc) {}
    ~ScopedCompletion() { CompleteCall(srvproc_); }
    ScopedCompletion(const ScopedCompletion&) = delete;
    ScopedCompletion& operator=(const ScopedCompletion&) = delete;

private:
    SRV_PROC* srvproc_;
};

// The export's catch-all: nothing may escape into the host. An exception that
// gets this far (a failed allocation) has already run the clean-up of the
// scopes it left; the call answers with failure.
template <class Body>
int32_t Shielded(Body body, int32_t failure) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

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
