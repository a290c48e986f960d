// The server and domain facts from the network management calls.
#include <windows.h>
#include <dsgetdc.h>
#include <lm.h>

#include <new>

#include "utilities/server_info.h"

namespace vrn {

namespace {

constexpr ULONG kFlatNames = 0x80000000;  // DS_RETURN_FLAT_NAME

// Our record of one answer, over the system's buffer that its texts point into.
struct SystemAnswer : DomainControllerInfo {
    PDOMAIN_CONTROLLER_INFOA buffer;
};

class WindowsServerInfo final : public ServerInfoSource {
public:
    uint32_t ServerType(uint32_t* type) override {
        SERVER_INFO_101* info = nullptr;
        const NET_API_STATUS status = NetServerGetInfo(nullptr, 101, reinterpret_cast<LPBYTE*>(&info));
        if (status == NERR_Success && info != nullptr && type != nullptr) *type = info->sv101_type;
        if (info != nullptr) NetApiBufferFree(info);
        return status;
    }

    uint32_t DomainController(const DomainControllerInfo** info) override {
        PDOMAIN_CONTROLLER_INFOA buffer = nullptr;
        const DWORD status = DsGetDcNameA(nullptr, nullptr, nullptr, nullptr, kFlatNames, &buffer);
        if (status != ERROR_SUCCESS) {
            if (buffer != nullptr) NetApiBufferFree(buffer);
            return status;
        }
        auto* answer = new (std::nothrow) SystemAnswer{
            {buffer->DomainControllerName, buffer->DomainControllerAddress, buffer->DomainControllerAddressType,
             buffer->DomainName, buffer->DnsForestName, buffer->Flags, buffer->DcSiteName,
             buffer->ClientSiteName},
            buffer};
        if (answer == nullptr) {
            NetApiBufferFree(buffer);
            return ERROR_NOT_ENOUGH_MEMORY;
        }
        *info = answer;
        return ERROR_SUCCESS;
    }

    void ReleaseDomainController(const DomainControllerInfo* info) override {
        const auto* answer = static_cast<const SystemAnswer*>(info);
        NetApiBufferFree(answer->buffer);
        delete answer;
    }
};

}  // namespace

ServerInfoSource& SystemServerInfo() {
    static WindowsServerInfo system;
    return system;
}

}  // namespace vrn
