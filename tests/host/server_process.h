// Test helpers for vrn-server: a server of the test's own (a temporary folder,
// a free port of 127.0.0.1, stopped on every way out) and a raw client that
// speaks TDS byte by byte, for the clients that misbehave.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/tds/protocol.h"
#include "host/tds/requests.h"

namespace vrn::tds::testing_server {

using namespace std::chrono_literals;

// Whether done() comes true within limit, looked at every 20 ms.
template <typename Done>
bool Await(Done done, std::chrono::milliseconds limit) {
    for (const auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;) {
        if (done()) return true;
        std::this_thread::sleep_for(20ms);
    }
    return done();
}

inline std::string ReadText(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A field of /proc/PID/status (VmRSS in kB, Threads); -1 when it can't be read.
inline long ProcStatus(pid_t pid, const std::string& field) {
    const std::string text = ReadText("/proc/" + std::to_string(pid) + "/status");
    const size_t at = text.find("\n" + field + ":");
    return at == std::string::npos ? -1 : std::atol(text.c_str() + at + field.size() + 2);
}

// NAME:HASH, a users file's line, made by the server itself.
inline std::string UserLine(const std::string& name, const std::string& password) {
    const std::string out = ::testing::TempDir() + "vrn_hash_" + std::to_string(getpid());
    (void)std::system(("printf '%s' '" + password + "' | '" + std::getenv("VRN_SERVER") + "' --hash-password >'" + out + "'").c_str());
    std::string hash = ReadText(out);
    std::remove(out.c_str());
    return name + ":" + hash;
}

class ServerProcess {
public:
    static bool Available() {
        const char *server = std::getenv("VRN_SERVER"), *library = std::getenv("VRN_LIB");
        return server && *server && library && *library;
    }

    // usersText: the users file (default: golden with password golden).
    ServerProcess(const std::string& name, const std::vector<std::string>& options = {}, std::string usersText = {}) {
        if (!Available()) return;
        const std::string server = std::getenv("VRN_SERVER");
        folder_ = ::testing::TempDir() + "vrn_" + name + "_" + std::to_string(getpid());
        (void)std::system(("rm -rf '" + folder_ + "' && mkdir -p '" + folder_ + "/tasks'").c_str());
        users_ = folder_ + "/users";
        log_ = folder_ + "/log";
        std::ofstream(users_) << (usersText.empty() ? UserLine("golden", "golden") : usersText);
        std::vector<std::string> args = {server, "--lib", std::getenv("VRN_LIB"), "--listen", "127.0.0.1:0", "--users", users_,
                                          "--task-store", folder_ + "/tasks"};
        args.insert(args.end(), options.begin(), options.end());
        pid_ = fork();
        if (pid_ == 0) {
            const int err = open(log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(err, 2);
            std::vector<char*> argv;
            for (std::string& a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        (void)Await([&] {
            const std::string text = Log();
            const size_t at = text.find("listening on 127.0.0.1:");
            if (at != std::string::npos) port_ = text.substr(at + 23, text.find('\n', at) - at - 23);
            return !port_.empty();
        }, 10s);
    }
    ~ServerProcess() {
        if (pid_ > 0 && !stopped_) (void)Stop(SIGTERM, 10s);
    }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    [[nodiscard]] bool started() const { return !port_.empty(); }
    [[nodiscard]] const std::string& port() const { return port_; }
    [[nodiscard]] std::string address() const { return "127.0.0.1:" + port_; }
    [[nodiscard]] pid_t pid() const { return pid_; }
    [[nodiscard]] const std::string& folder() const { return folder_; }
    [[nodiscard]] const std::string& usersFile() const { return users_; }
    [[nodiscard]] std::string Log() const { return ReadText(log_); }

    // Waits until the log has `text`, up to `limit`.
    bool AwaitLog(const std::string& text, std::chrono::milliseconds limit = 10s) const {
        return Await([&] { return Log().find(text) != std::string::npos; }, limit);
    }

    // Sends signal and waits up to limit: the exit code, or -1 (killed then).
    int Stop(int signal = SIGTERM, std::chrono::milliseconds limit = 60s) {
        if (pid_ <= 0 || stopped_) return -1;
        kill(pid_, signal);
        return Wait(limit);
    }
    int Wait(std::chrono::milliseconds limit) {
        int status = 0;
        if (!Await([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, limit)) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
            status = -1;
        }
        stopped_ = true;
        return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // The server's threads: the accept loop's alone when no one is connected.
    [[nodiscard]] long Threads() const { return ProcStatus(pid_, "Threads"); }
    bool AwaitThreads(long count, std::chrono::milliseconds limit = 10s) const {
        return Await([&] { return Threads() == count; }, limit);
    }

private:
    std::string folder_, users_, log_, port_;
    pid_t pid_ = -1;
    bool stopped_ = false;
};

// A client that sends what the test says, well formed or not.
class RawClient {
public:
    explicit RawClient(const std::string& port) {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(std::stoi(port)));
        inet_pton(AF_INET, "127.0.0.1", &a.sin_addr);
        if (connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    ~RawClient() {
        if (fd_ >= 0) close(fd_);
    }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    [[nodiscard]] bool connected() const { return fd_ >= 0; }

    bool Send(const Bytes& bytes) {
        return fd_ >= 0 && send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
    }
    bool Send(const std::string& bytes) { return Send(Bytes(bytes.begin(), bytes.end())); }
    bool SendMessage(uint8_t type, const Bytes& payload, uint32_t packetSize = kDefaultPacketSize) {
        Bytes packets;
        AppendPackets(packets, type, payload, packetSize);
        return Send(packets);
    }

    // One whole answer; nullopt when the server closed or said nothing in time.
    std::optional<Bytes> Receive(std::chrono::milliseconds limit = 10s) {
        Bytes payload;
        for (;;) {
            uint8_t header[kHeaderSize];
            if (!Read(header, sizeof header, limit)) return std::nullopt;
            const PacketHeader h = ReadPacketHeader(header);
            if (h.length < kHeaderSize) return std::nullopt;
            const size_t at = payload.size();
            payload.resize(at + h.length - kHeaderSize);
            if (!Read(payload.data() + at, h.length - kHeaderSize, limit)) return std::nullopt;
            if (h.status & kStatusEndOfMessage) return payload;
        }
    }

    // Whether the server closed the connection (an end or a reset) within limit.
    bool Closed(std::chrono::milliseconds limit = 10s) {
        uint8_t byte;
        for (const auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;) {
            pollfd p{fd_, POLLIN, 0};
            if (poll(&p, 1, 50) <= 0) continue;
            const ssize_t got = recv(fd_, &byte, 1, 0);
            if (got == 0 || (got < 0 && errno == ECONNRESET)) return true;
        }
        return false;
    }

    // After an attention: the answers up to its acknowledgement, which the last one ends with.
    std::vector<Bytes> ReceiveUntilAttention(std::chrono::milliseconds limit = 10s) {
        std::vector<Bytes> answers;
        while (answers.size() < 4) {
            std::optional<Bytes> answer = Receive(limit);
            if (!answer) break;
            answers.push_back(std::move(*answer));
            const Bytes& a = answers.back();
            if (a.size() >= 13 && a[a.size() - 13] == kTokenDone && (a[a.size() - 12] & kDoneAttention)) break;
        }
        return answers;
    }

    // PRELOGIN and LOGIN7; the login's answer.
    std::optional<Bytes> Login(const std::string& user = "golden", const std::string& password = "golden",
                               uint32_t packetSize = kDefaultPacketSize) {
        PreLogin hello;
        hello.version = 0x07000000;
        if (!SendMessage(kPreLogin, BuildPreLogin(hello)) || !Receive()) return std::nullopt;
        Login7 login;
        login.version = kTds74;
        login.packetSize = packetSize;
        login.userName = Utf16OfUtf8(user);
        login.hostName = login.appName = login.libraryName = u"raw";
        login.database = u"master";
        std::string utf16;
        for (char16_t c : Utf16OfUtf8(password)) utf16 += static_cast<char>(c), utf16 += static_cast<char>(c >> 8);
        if (!SendMessage(kLogin7, BuildLogin7(login, utf16))) return std::nullopt;
        return Receive();
    }

    // A batch's answer; nullopt when none came.
    std::optional<Bytes> Batch(const std::string& sql, std::chrono::milliseconds limit = 10s) {
        return SendMessage(kSqlBatch, BatchPayload(sql)) ? Receive(limit) : std::nullopt;
    }

    // Gone without a goodbye: a reset instead of an orderly close.
    void Vanish() {
        linger abrupt{1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &abrupt, sizeof abrupt);
        close(fd_);
        fd_ = -1;
    }

    // ALL_HEADERS (a transaction descriptor) and the text in UTF-16.
    static Bytes BatchPayload(const std::string& sql) {
        Writer w;
        w.U32(22);
        w.U32(18);
        w.U16(2);
        w.U64(0);
        w.U32(1);
        w.Utf16(Utf16OfUtf8(sql));
        return w.bytes();
    }

private:
    bool Read(uint8_t* data, size_t n, std::chrono::milliseconds limit) {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (n > 0) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            pollfd p{fd_, POLLIN, 0};
            if (left.count() <= 0 || poll(&p, 1, static_cast<int>(left.count())) <= 0) return false;
            const ssize_t got = recv(fd_, data, n, 0);
            if (got <= 0) return false;
            data += got;
            n -= static_cast<size_t>(got);
        }
        return true;
    }
    int fd_ = -1;
};

// What an answer holds, looked for in its bytes.
inline bool HasText(const Bytes& answer, const std::string& ascii) {
    Bytes utf16;
    for (char c : ascii) utf16.push_back(static_cast<uint8_t>(c)), utf16.push_back(0);
    return std::search(answer.begin(), answer.end(), utf16.begin(), utf16.end()) != answer.end();
}
inline bool HasError(const Bytes& answer, int32_t number) {
    for (size_t i = 0; i + 7 <= answer.size(); ++i) {
        int32_t n;
        std::memcpy(&n, &answer[i + 3], 4);
        if (answer[i] == kTokenError && n == number) return true;
    }
    return false;
}
// The answer's last token: its final DONE (7.2 and later: 13 bytes).
inline bool EndsWithAttention(const Bytes& answer) {
    return answer.size() >= 13 && answer[answer.size() - 13] == kTokenDone && (answer[answer.size() - 12] & kDoneAttention);
}

}  // namespace vrn::tds::testing_server
