#include "tasks/params.h"

#include <cstring>
#include <new>

namespace vrn::tasks {

namespace {

constexpr uint8_t kVoidType = 31;

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
    return ReadParamBytes(srvproc, index + 1, table[index], destination, size);
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

}  // namespace vrn::tasks
