// vrn-server: the library's procedures over TDS, for any client of that protocol.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <list>
#include <memory>
#include <optional>
#include <thread>

#include "host/exec/command_line.h"
#include "host/exec/environment.h"
#include "host/server/passwords.h"
#include "host/server/session.h"
#include "host/server/tls.h"
#include "host/tds/requests.h"

namespace {

constexpr const char* kUsage =
    "usage: vrn-server [--lib PATH] [--listen ADDR:PORT] --users FILE [--instance NAME] [--task-store DIR]\n"
    "                  [--server-name NAME] [--tls-cert FILE --tls-key FILE | --allow-plaintext]\n"
    "                  [--max-connections N] [--max-request-bytes N] [--login-timeout SECONDS]\n"
    "                  [--idle-timeout SECONDS] [--stop-timeout SECONDS]\n"
    "       vrn-server --hash-password   (reads a password from standard input, prints its hash)\n"
    "Serves the library's procedures to TDS clients.\n"
    "  --lib PATH          the library to load (default: $VRN_LIB, else libvrn.so of the build)\n"
    "  --listen ADDR:PORT  where to listen (default 127.0.0.1:1433; port 0: any free one)\n"
    "  --users FILE        NAME:HASH lines, one per login (required)\n"
    "  --instance NAME     the instance name the host gives the procedures\n"
    "  --task-store DIR    the folder of the scheduled tasks (sets VRN_TASK_STORE)\n"
    "  --server-name NAME  the name messages and @@SERVERNAME give (default VRN)\n"
    "  --tls-cert FILE     the server's certificate (PEM, its chain after it): clients then encrypt\n"
    "  --tls-key FILE      the certificate's private key (PEM)\n"
    "  --allow-plaintext   listen beyond loopback without TLS, logins and all in clear\n"
    "  --max-connections N       connections at once; a login beyond them is refused (default 1000)\n"
    "  --max-request-bytes N     the largest request, all its packets (default 67108864)\n"
    "  --login-timeout SECONDS   a connection that hasn't sent its login by then is closed (default 5)\n"
    "  --idle-timeout SECONDS    a connection quiet for that long between requests is closed (default 0: never)\n"
    "  --stop-timeout SECONDS    on SIGTERM, how long calls in flight may take to finish (default 30)\n"
    "SIGTERM or SIGINT stop it (a second one at once); SIGHUP re-reads the users file.\n";

// The signal handlers' news, for the accept loop: one byte per signal.
int signalPipe[2] = {-1, -1};
constexpr char kStopByte = 's', kReloadByte = 'h';

void OnStop(int) {
    const char byte = kStopByte;
    (void)!write(signalPipe[1], &byte, 1);
}

void OnReload(int) {
    const char byte = kReloadByte;
    (void)!write(signalPipe[1], &byte, 1);
}

int UsageError(const std::string& why) {
    std::cerr << "vrn-server: " << why << "\n" << kUsage;
    return 2;
}

int HashFromInput() {
    std::string password;
    std::getline(std::cin, password);
    if (!password.empty() && password.back() == '\r') password.pop_back();
    const std::string hash = vrn::server::HashPassword(password);
    std::fill(password.begin(), password.end(), '\0');
    if (hash.empty()) {
        std::cerr << "vrn-server: the hash could not be made\n";
        return 1;
    }
    std::cout << hash << "\n";
    return 0;
}

struct Address {
    sockaddr_in socket{};
};

bool ParseAddress(const std::string& text, Address& a) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    a.socket.sin_family = AF_INET;
    if (inet_pton(AF_INET, text.substr(0, colon).c_str(), &a.socket.sin_addr) != 1) return false;
    try {
        size_t used = 0;
        const unsigned long port = std::stoul(text.substr(colon + 1), &used);
        if (port > 65535 || used != text.size() - colon - 1) return false;
        a.socket.sin_port = htons(static_cast<uint16_t>(port));
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

std::string Describe(const sockaddr_in& a) {
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &a.sin_addr, text, sizeof text);
    return std::string(text) + ":" + std::to_string(ntohs(a.sin_port));
}

// A connection's thread and socket; the accept loop joins it once it is done.
struct Client {
    int fd = -1;
    std::string name;
    std::thread thread;
    std::atomic<bool> done{false};
    bool closing = false;  // the loop has shut its socket down
    vrn::server::ConnectionControl control;
    vrn::server::ConnectionControl::Clock::time_point opened = vrn::server::ConnectionControl::Clock::now();
};

// Beyond the connection limit a few more are let in to hear why; past them
// a connection is closed at once.
constexpr size_t kMostRefusing = 16;

// A whole number of at most `most` from an option's value.
bool ParseCount(const std::string& text, uint64_t most, uint64_t& out) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 12) return false;
    out = std::stoull(text);
    return out <= most;
}

// Connections whose time is up: no login in time, or quiet too long.
void CloseLate(std::list<Client>& clients, std::chrono::seconds loginTimeout, std::chrono::seconds idleTimeout) {
    const auto now = vrn::server::ConnectionControl::Clock::now();
    for (Client& c : clients) {
        if (c.closing || c.done) continue;
        std::string why;
        if (!c.control.loginRead && now - c.opened > loginTimeout) {
            why = "no login within " + std::to_string(loginTimeout.count()) + " s";
        } else if (idleTimeout.count() > 0 && c.control.loginRead && !c.control.busy && c.control.Quiet() > idleTimeout) {
            why = "idle for " + std::to_string(idleTimeout.count()) + " s";
        }
        if (why.empty()) continue;
        vrn::server::Log("closing " + c.name + ": " + why);
        shutdown(c.fd, SHUT_RDWR);
        c.closing = true;
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::string library, listen = "127.0.0.1:1433", usersFile, instance, serverName = "VRN", tlsCert, tlsKey;
    bool hashPassword = false, allowPlaintext = false;
    uint64_t maxConnections = 1000, maxRequestBytes = 64u << 20, loginTimeout = 5, idleTimeout = 0, stopTimeout = 30;
    vrn::exec::CommandLine line(argc, argv);
    while (line.Next()) {
        const std::string& arg = line.arg();
        auto value = [&](const char* option) { return line.Value(option); };
        if (arg == "-h" || arg == "--help") {
            std::cout << kUsage;
            return 0;
        } else if (arg == "--hash-password") {
            hashPassword = true;
        } else if (auto v = value("--lib")) {
            library = *v;
        } else if (auto v = value("--listen")) {
            listen = *v;
        } else if (auto v = value("--users")) {
            usersFile = *v;
        } else if (auto v = value("--instance")) {
            instance = *v;
        } else if (auto v = value("--server-name")) {
            serverName = *v;
        } else if (arg == "--allow-plaintext") {
            allowPlaintext = true;
        } else if (auto v = value("--tls-cert")) {
            tlsCert = *v;
        } else if (auto v = value("--tls-key")) {
            tlsKey = *v;
        } else if (auto v = value("--max-connections")) {
            if (!ParseCount(*v, 32767, maxConnections) || maxConnections == 0) return UsageError("--max-connections takes 1 to 32767");
        } else if (auto v = value("--max-request-bytes")) {
            if (!ParseCount(*v, uint64_t{1} << 31, maxRequestBytes) || maxRequestBytes < 4096) {
                return UsageError("--max-request-bytes takes 4096 to 2147483648");
            }
        } else if (auto v = value("--login-timeout")) {
            if (!ParseCount(*v, 3600, loginTimeout) || loginTimeout == 0) return UsageError("--login-timeout takes 1 to 3600 seconds");
        } else if (auto v = value("--idle-timeout")) {
            if (!ParseCount(*v, 30u * 86400, idleTimeout)) return UsageError("--idle-timeout takes 0 (never) to 2592000 seconds");
        } else if (auto v = value("--stop-timeout")) {
            if (!ParseCount(*v, 86400, stopTimeout)) return UsageError("--stop-timeout takes 0 to 86400 seconds");
        } else if (auto v = value("--task-store")) {
            if (v->empty() || !vrn::exec::SetEnvironment("VRN_TASK_STORE", v->c_str())) return UsageError("--task-store needs a folder");
        } else {
            return UsageError("unknown argument " + arg);
        }
        if (line.missing()) return UsageError(arg + " needs a value");
    }
    if (hashPassword) return HashFromInput();
    if (usersFile.empty()) return UsageError("--users is required: no one could log in");
    Address address;
    if (!ParseAddress(listen, address)) return UsageError("--listen takes ADDR:PORT, e.g. 127.0.0.1:1433");
    if (tlsCert.empty() != tlsKey.empty()) return UsageError("--tls-cert and --tls-key go together");
    const bool loopback = (ntohl(address.socket.sin_addr.s_addr) >> 24) == 127;
    if (tlsCert.empty() && !loopback && !allowPlaintext) {
        std::cerr << "vrn-server: will not listen on " << listen
                  << " without TLS: passwords would cross the network in clear; give --tls-cert and --tls-key, "
                     "or --allow-plaintext if that network is private\n";
        return 1;
    }
    std::unique_ptr<vrn::server::TlsContext> tls;
    if (!tlsCert.empty()) {
        std::string why;
        tls = vrn::server::TlsContext::Load(tlsCert, tlsKey, why);
        if (!tls) {
            std::cerr << "vrn-server: " << why << "\n";
            return 1;
        }
    }

    std::string error;
    std::optional<vrn::server::Users> firstUsers = vrn::server::ReadUsers(usersFile, error);
    if (!firstUsers) {
        std::cerr << "vrn-server: " << error << "\n";
        return 1;
    }
    vrn::server::UsersStore users(std::move(*firstUsers));
    vrn::server::LoginThrottle throttle;
    std::unique_ptr<vrn::host::Library> lib;
    try {
        lib = std::make_unique<vrn::host::Library>(library.empty() ? vrn::host::DefaultLibraryPath() : library);
    } catch (const std::exception& e) {
        std::cerr << "vrn-server: cannot load the library: " << e.what() << "\n";
        return 1;
    }
    // The server asks the library's version right after loading it.
    if (lib->Has("__GetXpVersion")) (void)lib->CallNoArgs("__GetXpVersion");

    vrn::server::ServerConfig config;
    config.library = lib.get();
    config.users = &users;
    config.throttle = &throttle;
    config.maxConnections = static_cast<uint32_t>(maxConnections);
    config.maxRequestBytes = maxRequestBytes;
    config.serverNameUtf8 = serverName;
    config.serverName = vrn::tds::Utf16OfUtf8(serverName);
    config.tls = tls.get();
    if (!instance.empty()) {
        config.instanceUtf8 = instance;
        config.instanceName = vrn::tds::Utf16OfUtf8(instance);
    }

    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int yes = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    if (listener < 0 || bind(listener, reinterpret_cast<sockaddr*>(&address.socket), sizeof address.socket) != 0 ||
        ::listen(listener, SOMAXCONN) != 0) {
        std::cerr << "vrn-server: cannot listen on " << listen << ": " << std::strerror(errno) << "\n";
        if (listener >= 0) close(listener);
        return 1;
    }
    sockaddr_in bound{};
    socklen_t boundLength = sizeof bound;
    getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &boundLength);

    if (pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) return 1;
    struct sigaction stop {};
    stop.sa_handler = OnStop;
    sigaction(SIGTERM, &stop, nullptr);
    sigaction(SIGINT, &stop, nullptr);
    struct sigaction reload {};
    reload.sa_handler = OnReload;
    sigaction(SIGHUP, &reload, nullptr);
    signal(SIGPIPE, SIG_IGN);

    if (tls) vrn::server::Log("clients encrypt, with the certificate " + tlsCert);
    vrn::server::Log("listening on " + Describe(bound));
    std::list<Client> clients;
    uint16_t nextSpid = 51;
    auto reap = [&] {
        for (auto it = clients.begin(); it != clients.end();) {
            if (it->done) {
                it->thread.join();
                close(it->fd);
                it = clients.erase(it);
            } else {
                ++it;
            }
        }
    };
    auto reloadUsers = [&] {
        std::string why;
        if (std::optional<vrn::server::Users> next = vrn::server::ReadUsers(usersFile, why)) {
            const size_t count = next->hashes.size();
            users.Set(std::move(*next));
            vrn::server::Log("users re-read from " + usersFile + ": " + std::to_string(count) + " logins");
        } else {
            vrn::server::Log("users not re-read, the old ones stay: " + why);
        }
    };
    // The signals that came since the last look: whether a stop was among them.
    auto takeSignals = [&] {
        bool stopAsked = false;
        char bytes[16];
        for (ssize_t n; (n = read(signalPipe[0], bytes, sizeof bytes)) > 0;) {
            for (ssize_t i = 0; i < n; ++i) {
                if (bytes[i] == kStopByte) stopAsked = true;
                if (bytes[i] == kReloadByte) reloadUsers();
            }
        }
        return stopAsked;
    };
    const std::chrono::seconds loginLimit(loginTimeout), idleLimit(idleTimeout);
    for (;;) {
        pollfd waits[2] = {{listener, POLLIN, 0}, {signalPipe[0], POLLIN, 0}};
        if (poll(waits, 2, 1000) < 0 && errno != EINTR) break;
        reap();
        CloseLate(clients, loginLimit, idleLimit);
        if ((waits[1].revents & POLLIN) && takeSignals()) break;
        if (!(waits[0].revents & POLLIN)) continue;
        sockaddr_in peer{};
        socklen_t peerLength = sizeof peer;
        const int fd = accept4(listener, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_CLOEXEC);
        if (fd < 0) continue;
        size_t refusing = 0;
        for (const Client& c : clients) refusing += c.control.refuse;
        const bool refuse = clients.size() - refusing >= maxConnections;
        if (refuse && refusing >= kMostRefusing) {
            close(fd);
            continue;
        }
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const uint16_t spid = nextSpid;
        nextSpid = static_cast<uint16_t>(nextSpid == 32767 ? 51 : nextSpid + 1);
        Client& client = clients.emplace_back();
        client.fd = fd;
        client.name = Describe(peer);
        char host[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &peer.sin_addr, host, sizeof host);
        client.control.address = host;
        client.control.refuse = refuse;
        vrn::server::Log("connection from " + client.name + " opened");
        client.thread = std::thread([&config, &client, spid] {
            vrn::server::ServeConnection(client.fd, config, client.name, spid, client.control);
            vrn::server::Log("connection from " + client.name + " closed");
            client.done = true;
        });
    }
    close(listener);

    // The stop: no new connections; a connection between requests is closed
    // now, one in a call once its answer has gone, until the bound.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(stopTimeout);
    for (bool first = true;; first = false) {
        for (Client& c : clients) {
            // Reading stops, writing doesn't: an answer being written still goes out whole.
            if (!c.done && !c.control.busy) shutdown(c.fd, SHUT_RD);
        }
        // Said once the idle ones are shut, so a request after the line never gets an answer.
        if (first) {
            vrn::server::Log("stopping: " + std::to_string(clients.size()) +
                             " connections, calls in flight get up to " + std::to_string(stopTimeout) + " s");
        }
        reap();
        if (clients.empty()) break;
        if (std::chrono::steady_clock::now() >= deadline || takeSignals()) {
            // Threads still inside a call can't be joined: the process ends around them.
            vrn::server::Log("stopped with " + std::to_string(clients.size()) + " connections still in a call");
            std::_Exit(1);
        }
        pollfd wait{signalPipe[0], POLLIN, 0};
        (void)poll(&wait, 1, 50);
    }
    vrn::server::Log("stopped");
    return 0;
}
