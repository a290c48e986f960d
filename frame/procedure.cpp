#include "frame/procedure.h"

#include <array>
#include <cstdarg>
#include <cstring>

#include "frame/convert.h"

namespace vrn {

platform::LockHandle PercStrSymbMutex = nullptr;
platform::LockHandle PercStrMutex = nullptr;
platform::LockHandle PFormulaMutex = nullptr;

namespace {

// ---- Type codes: one bit per test.
enum TypeClass : uint8_t {
    kCharClass = 1 << 0,
    kTextClass = 1 << 1,
    kIntegerClass = 1 << 2,
    kDecimalClass = 1 << 3,
    kFloatClass = 1 << 4,
    kBitClass = 1 << 5,
};

struct TypeCodes {
    TypeClass typeClass;
    std::array<uint8_t, 4> codes;  // unused slots repeat the first code
};

constexpr TypeCodes kTypeCodes[] = {
    {kCharClass, {SRVVARCHAR, SRVCHAR, SRVBIGVARCHAR, SRVBIGCHAR}},
    {kTextClass, {SRVTEXT, SRVTEXT, SRVTEXT, SRVTEXT}},
    {kIntegerClass, {SRVINTN, SRVINT1, SRVINT2, SRVINT4}},
    {kDecimalClass, {SRVDECIMAL, SRVNUMERIC, SRVDECIMALN, SRVNUMERICN}},
    {kFloatClass, {SRVFLT4, SRVFLT8, SRVFLTN, SRVFLTN}},
    {kBitClass, {SRVBIT, SRVBITN, SRVBITN, SRVBITN}},
};

constexpr std::array<uint8_t, 256> kTypeClasses = [] {
    std::array<uint8_t, 256> classes{};
    for (const TypeCodes& entry : kTypeCodes) {
        for (uint8_t code : entry.codes) classes[code] |= entry.typeClass;
    }
    return classes;
}();

int HasClass(uint8_t type, uint8_t classes) { return (kTypeClasses[type] & classes) != 0 ? 1 : 0; }

// ---- Messages.
struct MessageKind {
    int type;
    DBINT number;
    DBTINYINT msgClass;
    DBTINYINT state;
};

constexpr MessageKind kInformation{SRV_MSG_INFO, 1, 1, 0};
constexpr MessageKind kError{SRV_MSG_ERROR, 2001, 1, 0};

// One per thread: the text a caller formats is the text its client gets, even
// when other threads send at the same moment.
thread_local char MessageBuffer[kMessageBufferSize];

int SendFormatted(SRV_PROC* srvproc, const MessageKind& kind, const char* format, va_list arguments) {
    (void)VFormatBounded(MessageBuffer, sizeof MessageBuffer, format, arguments);
    return srv_sendmsg(srvproc, kind.type, kind.number, kind.msgClass, kind.state, nullptr, 0, 0, MessageBuffer,
                       -1);
}

// ---- Library entry.
constexpr uint32_t kProcessDetach = 0;
constexpr uint32_t kProcessAttach = 1;

// Created and closed in this order.
platform::LockHandle* const kProcessLocks[] = {&PercStrSymbMutex, &PercStrMutex, &PFormulaMutex};

bool Satisfies(const ParamInfo& info, const ParamRule& rule) {
    const bool direction = rule.direction == kAnyDirection || (info.isOutput != 0) == (rule.direction == kOut);
    return rule.typeTest != nullptr && rule.typeTest(info.type) != 0 && direction &&
           (rule.maxLength == 0 || info.maxLength == rule.maxLength) && info.maxLength >= rule.minCapacity &&
           info.actualLength >= rule.minLength && !(rule.notNull && info.isNull);
}

}  // namespace

int GetParam(SRV_PROC* srvproc, int n, ParamInfo* info, void* data) {
    if (info != nullptr) *info = ParamInfo{};
    ParamInfo described{};
    const int result = srv_paraminfo(srvproc, n, &described.type, &described.maxLength, &described.actualLength,
                                     static_cast<BYTE*>(data), &described.isNull);
    if (result == 1 && info != nullptr) {
        described.isOutput = IsOutputParam(srvproc, n);
        *info = described;
    }
    return result;
}

int IsOutputParam(SRV_PROC* srvproc, int n) { return (srv_paramstatus(srvproc, n) & 1) != 0 ? 1 : 0; }

int IsCharType(uint8_t type) { return HasClass(type, kCharClass); }
int IsCharOrTextType(uint8_t type) { return HasClass(type, kCharClass | kTextClass); }
int IsIntegerType(uint8_t type) { return HasClass(type, kIntegerClass); }
int IsDecimalType(uint8_t type) { return HasClass(type, kDecimalClass); }
int IsFloatType(uint8_t type) { return HasClass(type, kFloatClass); }
int IsBitType(uint8_t type) { return HasClass(type, kBitClass); }

CallVerdict JudgeParams(SRV_PROC* srvproc, std::initializer_list<ParamRule> rules, ParamInfo* infos,
                        ExtraParams extra) {
    return JudgeParams(srvproc, rules.begin(), rules.size(), infos, extra);
}

CallVerdict JudgeParams(SRV_PROC* srvproc, const ParamRule* rules, size_t ruleCount, ParamInfo* infos,
                        ExtraParams extra) {
    for (size_t i = 0; i < ruleCount; ++i) infos[i] = ParamInfo{};
    size_t required = 0;
    while (required < ruleCount && !rules[required].optional) ++required;
    int count = srv_rpcparams(srvproc);
    if (count > static_cast<int>(ruleCount) && extra == ExtraParams::kIgnored) count = static_cast<int>(ruleCount);
    if (count < static_cast<int>(required) || count > static_cast<int>(ruleCount)) return CallVerdict::kUnreadable;
    for (int n = 1; n <= count; ++n) {
        if (GetParam(srvproc, n, &infos[n - 1], nullptr) != 1) return CallVerdict::kUnreadable;
    }
    for (int n = 1; n <= count; ++n) {
        if (!Satisfies(infos[n - 1], rules[n - 1])) return CallVerdict::kRefused;
    }
    return CallVerdict::kAccepted;
}

bool JudgeCall(SRV_PROC* srvproc, std::initializer_list<ParamRule> rules, ParamInfo* infos, ExtraParams extra) {
    return JudgeParams(srvproc, rules, infos, extra) == CallVerdict::kAccepted;
}

int ReadParamBytes(SRV_PROC* srvproc, int n, const ParamInfo& info, void* destination, size_t size) {
    // The host copies actualLength bytes: only a value that fits is read.
    if (info.actualLength > size) return 0;
    return GetParam(srvproc, n, nullptr, destination);
}

uint32_t ReadIntegerParam(SRV_PROC* srvproc, int n, const ParamInfo& info) {
    unsigned char bytes[8] = {};
    if (!info.isNull) (void)ReadParamBytes(srvproc, n, info, bytes, sizeof bytes);
    uint32_t value;
    std::memcpy(&value, bytes, sizeof value);  // the low end on a little-endian host
    return value;
}

void ReadCharParam(SRV_PROC* srvproc, int n, const ParamInfo& info, char* buffer) {
    if (buffer == nullptr) return;
    const bool read = GetParam(srvproc, n, nullptr, buffer) == 1;
    buffer[read ? info.actualLength : 0] = '\0';
}

void SetOutputBytes(SRV_PROC* srvproc, int n, const void* data, uint32_t length) {
    (void)srv_paramsetoutput(srvproc, n, static_cast<BYTE*>(const_cast<void*>(data)), length, 0);
}

void SetOutputText(SRV_PROC* srvproc, int n, const char* text, uint32_t length) {
    SetOutputBytes(srvproc, n, text, length);
}

void SetOutputFloat(SRV_PROC* srvproc, int n, double value) { SetOutputBytes(srvproc, n, &value, sizeof value); }

void SetOutputInteger(SRV_PROC* srvproc, int n, int32_t value) { SetOutputBytes(srvproc, n, &value, sizeof value); }

int SendMessage(SRV_PROC* srvproc, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = SendFormatted(srvproc, kInformation, format, arguments);
    va_end(arguments);
    return result;
}

int SendErrorMessage(SRV_PROC* srvproc, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = SendFormatted(srvproc, kError, format, arguments);
    va_end(arguments);
    return result;
}

void CompleteCall(SRV_PROC* srvproc) { (void)srv_senddone(srvproc, SRV_DONE_FINAL, 0, 0); }

void CompleteCounted(SRV_PROC* srvproc, int32_t count) {
    (void)srv_senddone(srvproc, SRV_DONE_COUNT | SRV_DONE_MORE, 0, count);
}

LockGuard::LockGuard(platform::LockHandle lock, uint32_t milliseconds)
    : lock_(lock), obtained_(platform::WaitLock(lock, milliseconds) != platform::kWaitTimeout) {}

LockGuard::~LockGuard() {
    if (obtained_) (void)platform::ReleaseLock(lock_);
}

int32_t LibraryEntry(uint32_t reason) {
    if (reason == kProcessAttach) {
        // A lock that can't be created stays null: waits on it fail, and only a
        // time-out stops a procedure, so the library still works unguarded.
        for (platform::LockHandle* lock : kProcessLocks) {
            if (*lock == nullptr) *lock = platform::CreateLock();
        }
    } else if (reason == kProcessDetach) {
        for (platform::LockHandle* lock : kProcessLocks) {
            platform::CloseLock(*lock);
            *lock = nullptr;
        }
    }
    return 1;
}

}  // namespace vrn
