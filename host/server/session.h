// One client connection of vrn-server: pre-login, login, then requests until
// the client leaves. Every call of the connection runs on its thread, as the
// symbolic lock belongs to the thread that took it.
#pragma once

#include <cstdint>
#include <string>

#include "host/host.h"
#include "host/server/passwords.h"

namespace vrn::server {

class TlsContext;

struct ServerConfig {
    const host::Library* library = nullptr;
    const Users* users = nullptr;
    std::u16string serverName = u"VRN";
    std::optional<std::u16string> instanceName;
    std::string instanceUtf8;
    std::string serverNameUtf8 = "VRN";
    size_t maxRequestBytes = 64u << 20;  // one request, all its packets
    const TlsContext* tls = nullptr;     // none: the server can't encrypt
};

// One line to standard error, whole, whichever thread writes it.
void Log(const std::string& line);

// Serves the connection on fd until it closes; the caller closes fd. peer
// names the client in the log; spid is what @@SPID answers.
void ServeConnection(int fd, const ServerConfig& config, const std::string& peer, uint16_t spid);

}  // namespace vrn::server
