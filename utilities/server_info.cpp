#include "utilities/server_info.h"

#include <atomic>

namespace vrn {

namespace {
std::atomic<ServerInfoSource*> replacedSource{nullptr};
}

ServerInfoSource& CurrentServerInfo() {
    ServerInfoSource* source = replacedSource.load(std::memory_order_acquire);
    return source != nullptr ? *source : SystemServerInfo();
}

ServerInfoSource* SetServerInfoSource(ServerInfoSource* source) {
    return replacedSource.exchange(source, std::memory_order_acq_rel);
}

}  // namespace vrn
