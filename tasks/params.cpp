#include "tasks/params.h"

#include <cstring>
#include <new>

namespace vrn::tasks {

namespace {

constexpr uint8_t kVoidType = 31;

bool IsLetterOrDigit(char16_t c) {
    return (c >= u'0' && c <= u'9') || (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z');
}

// Only A to Z fold; every other character stands for itself.
char16_t Fold(char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c; }

bool EqualIgnoringCase(const char16_t* a, const char16_t* b, size_t count) {
    for (size_t i = 0; i < count; ++i) {
        if (Fold(a[i]) != Fold(b[i])) return false;
    }
    return true;
}

size_t WideLength(const char16_t* text) {
    size_t length = 0;
    if (text != nullptr) {
        while (text[length] != 0) ++length;
    }
    return length;
}

// The braced identifier: {8-4-4-4-12}, letters and digits between the hyphens.
constexpr size_t kCloseBrace = 37;
constexpr size_t kSeparator = 38;
constexpr size_t kCompanyStart = 39;
constexpr size_t kHyphens[] = {9, 14, 19, 24};
constexpr char16_t kSuffix[] = u".job";
constexpr size_t kSuffixLength = 4;

bool IsHyphenPosition(size_t position) {
    for (size_t hyphen : kHyphens) {
        if (position == hyphen) return true;
    }
    return false;
}

}  // namespace

int IsWideTextType(uint8_t type) { return type == SRVNVARCHAR || type == SRVNCHAR ? 1 : 0; }
int IsWideTextOrVoidType(uint8_t type) { return IsWideTextType(type) | (type == kVoidType ? 1 : 0); }
int IsNVarCharType(uint8_t type) { return type == SRVNVARCHAR ? 1 : 0; }
int IsBinaryOrVoidType(uint8_t type) {
    return type == SRVBINARY || type == SRVBIGBINARY || type == SRVBIGVARBINARY || type == kVoidType ? 1 : 0;
}
int IsTaskIntegerType(uint8_t type) { return type == SRVINT4 || type == SRVINTN ? 1 : 0; }

int ReadParam(SRV_PROC* srvproc, ParamTable table, int index) {
    return GetParam(srvproc, index + 1, &table[index], nullptr);
}

int ReadParamValue(SRV_PROC* srvproc, ParamTable table, int index, void* destination, size_t size) {
    const int described = ReadParam(srvproc, table, index);
    if (described != 1 || table[index].actualLength > size) return described != 1 ? described : 0;
    return GetParam(srvproc, index + 1, &table[index], destination);
}

uint32_t ReadParamInteger(SRV_PROC* srvproc, ParamTable table, int index) {
    unsigned char bytes[sizeof(uint32_t)] = {};
    (void)ReadParamValue(srvproc, table, index, bytes, sizeof bytes);
    uint32_t value;
    std::memcpy(&value, bytes, sizeof value);  // the host fills the low end
    return value;
}

WideText ReadParamText(SRV_PROC* srvproc, ParamTable table, int index, bool keepEmpty) {
    const ParamInfo& info = table[index];
    const uint32_t length = info.actualLength;
    if (length == 0 && (!keepEmpty || info.isNull)) return nullptr;
    WideText text(static_cast<char16_t*>(AllocateCleared(size_t{length} + 2)));
    (void)GetParam(srvproc, index + 1, nullptr, text.get());
    text.get()[length / 2] = 0;
    return text;
}

void* AllocateCleared(size_t bytes) {
    void* block = platform::HeapAllocCleared(bytes);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void SendInvalidParameter(SRV_PROC* srvproc) { SendMessage(srvproc, "%s", kInvalidParameterText); }

const char16_t* InstanceName(SRV_PROC* srvproc) {
    int length = 0;  // the text is NUL-terminated; its length isn't needed
    return static_cast<const char16_t*>(srv_pfieldex(srvproc, SRV_INSTANCENAME, &length));
}

int MatchTaskFileName(const char16_t* name, const char16_t* company, const char16_t* instance) {
    if (name == nullptr) return -1;
    const size_t length = WideLength(name);
    const size_t companyLength = WideLength(company);
    const size_t markLength = instance != nullptr ? WideLength(instance) + 1 : 0;
    // With a company, the company and the instance mark fill the name exactly,
    // so DITTA1 can't match the front of DITTA12.
    if (company != nullptr && length != kCompanyStart + companyLength + markLength + kSuffixLength) return -1;
    if (length < kSeparator || name[0] != u'{' || name[kCloseBrace] != u'}') return -2;
    for (size_t i = 1; i < kCloseBrace; ++i) {
        if (IsHyphenPosition(i) ? name[i] != u'-' : !IsLetterOrDigit(name[i])) return -2;
    }
    if (name[kSeparator] != u'-') return -3;
    if (company != nullptr && !EqualIgnoringCase(name + kCompanyStart, company, companyLength)) return -4;
    if (length < kSuffixLength || !EqualIgnoringCase(name + length - kSuffixLength, kSuffix, kSuffixLength)) {
        return -5;
    }
    if (instance != nullptr) {
        if (length < markLength + kSuffixLength || name[length - markLength - kSuffixLength] != u'$') return -6;
        if (!EqualIgnoringCase(name + length - markLength - kSuffixLength + 1, instance, markLength - 1)) return -7;
    } else {
        for (size_t i = 0; i < length; ++i) {
            if (name[i] == u'$') return -8;
        }
    }
    return 0;
}

}  // namespace vrn::tasks
