// One client connection of vrn-server: pre-login, login, then requests until
// the client leaves. Every call of the connection runs on its thread, as the
// symbolic lock belongs to the thread that took it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>

#include "host/host.h"
#include "host/server/limits.h"
#include "host/server/passwords.h"

namespace vrn::server {

class TlsContext;

struct ServerConfig {
    const host::Library* library = nullptr;
    const UsersStore* users = nullptr;
    LoginThrottle* throttle = nullptr;  // none: failed logins aren't slowed down
    std::u16string serverName = u"VRN";
    std::optional<std::u16string> instanceName;
    std::string instanceUtf8;
    std::string serverNameUtf8 = "VRN";
    size_t maxRequestBytes = 64u << 20;  // one request, all its packets
    uint32_t maxConnections = 1000;       // what a refused login is told
    const TlsContext* tls = nullptr;     // none: the server can't encrypt
};

// What the accept loop and a connection's thread share: the loop closes a
// connection that hasn't sent its login in time, or has been idle too long,
// and on a stop waits for the calls in flight.
struct ConnectionControl {
    using Clock = std::chrono::steady_clock;
    std::string address;                // the client's, without its port
    bool refuse = false;                // over the connection limit: its login is answered with the error for it
    std::atomic<bool> loginRead{false};  // the login message is in
    std::atomic<bool> busy{false};       // a request is being answered
    std::atomic<Clock::rep> lastActive{Clock::now().time_since_epoch().count()};

    void Touch() { lastActive = Clock::now().time_since_epoch().count(); }
    [[nodiscard]] Clock::duration Quiet() const {
        return Clock::now().time_since_epoch() - Clock::duration(lastActive.load());
    }
};

// One line to standard error, whole, whichever thread writes it.
void Log(const std::string& line);

// Serves the connection on fd until it closes; the caller closes fd. peer
// names the client in the log; spid is what @@SPID answers.
void ServeConnection(int fd, const ServerConfig& config, const std::string& peer, uint16_t spid, ConnectionControl& control);

}  // namespace vrn::server
