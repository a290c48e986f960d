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
#include <cstring>
#include <iostream>
#include <list>
#include <memory>
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
    "  --allow-plaintext   listen beyond loopback without TLS, logins and all in clear\n";

int stopPipe[2] = {-1, -1};

void OnStop(int) {
    const char byte = 1;
    (void)!write(stopPipe[1], &byte, 1);
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
    std::thread thread;
    std::atomic<bool> done{false};
};

}  // namespace

int main(int argc, char** argv) {
    std::string library, listen = "127.0.0.1:1433", usersFile, instance, serverName = "VRN", tlsCert, tlsKey;
    bool hashPassword = false, allowPlaintext = false;
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
    const std::optional<vrn::server::Users> users = vrn::server::ReadUsers(usersFile, error);
    if (!users) {
        std::cerr << "vrn-server: " << error << "\n";
        return 1;
    }
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
    config.users = &*users;
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
        ::listen(listener, 128) != 0) {
        std::cerr << "vrn-server: cannot listen on " << listen << ": " << std::strerror(errno) << "\n";
        if (listener >= 0) close(listener);
        return 1;
    }
    sockaddr_in bound{};
    socklen_t boundLength = sizeof bound;
    getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &boundLength);

    if (pipe2(stopPipe, O_CLOEXEC) != 0) return 1;
    struct sigaction stop {};
    stop.sa_handler = OnStop;
    sigaction(SIGTERM, &stop, nullptr);
    sigaction(SIGINT, &stop, nullptr);
    signal(SIGPIPE, SIG_IGN);

    if (tls) vrn::server::Log("clients encrypt, with the certificate " + tlsCert);
    vrn::server::Log("listening on " + Describe(bound));
    std::list<Client> clients;
    uint16_t nextSpid = 51;
    auto reap = [&](bool all) {
        for (auto it = clients.begin(); it != clients.end();) {
            if (all) shutdown(it->fd, SHUT_RDWR);
            if (all || it->done) {
                it->thread.join();
                close(it->fd);
                it = clients.erase(it);
            } else {
                ++it;
            }
        }
    };
    for (;;) {
        pollfd waits[2] = {{listener, POLLIN, 0}, {stopPipe[0], POLLIN, 0}};
        if (poll(waits, 2, 1000) < 0 && errno != EINTR) break;
        reap(false);
        if (waits[1].revents & POLLIN) break;
        if (!(waits[0].revents & POLLIN)) continue;
        sockaddr_in peer{};
        socklen_t peerLength = sizeof peer;
        const int fd = accept4(listener, reinterpret_cast<sockaddr*>(&peer), &peerLength, SOCK_CLOEXEC);
        if (fd < 0) continue;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
        const std::string name = Describe(peer);
        const uint16_t spid = nextSpid;
        nextSpid = static_cast<uint16_t>(nextSpid == 32767 ? 51 : nextSpid + 1);
        vrn::server::Log("connection from " + name + " opened");
        Client& client = clients.emplace_back();
        client.fd = fd;
        client.thread = std::thread([&config, &client, name, spid] {
            vrn::server::ServeConnection(client.fd, config, name, spid);
            vrn::server::Log("connection from " + name + " closed");
            client.done = true;
        });
    }
    close(listener);
    reap(true);
    vrn::server::Log("stopped");
    return 0;
}
