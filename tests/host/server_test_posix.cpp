// vrn-server as its clients meet it, through vrn-exec's own client: logins,
// qualified names, a connection per thread and the symbolic lock going with
// its connection, and a stranger's bytes that close only the stranger.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>

#include "host/tds/client.h"
#include "host/tds/protocol.h"

namespace vrn::tds {
namespace {

class ServerTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        const char *server = std::getenv("VRN_SERVER"), *library = std::getenv("VRN_LIB");
        if (!server || !*server || !library) return;
        folder_ = testing::TempDir() + "vrn_server_test";
        std::system(("rm -rf '" + folder_ + "' && mkdir -p '" + folder_ + "'").c_str());
        const std::string users = folder_ + "/users", log = folder_ + "/log";
        std::system(("printf 'golden:' >'" + users + "' && printf golden | '" + server + "' --hash-password >>'" + users + "'").c_str());
        pid_ = fork();
        if (pid_ == 0) {
            const int err = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(err, 2);
            execl(server, server, "--lib", library, "--listen", "127.0.0.1:0", "--users", users.c_str(), "--task-store",
                  (folder_ + "/tasks").c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        for (int i = 0; i < 100 && port_.empty(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            std::ifstream in(log);
            const std::string text(std::istreambuf_iterator<char>(in), {});
            const size_t at = text.find("listening on 127.0.0.1:");
            if (at != std::string::npos) port_ = text.substr(at + 23, text.find('\n', at) - at - 23);
        }
    }

    static void TearDownTestSuite() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            int status = 0;
            waitpid(pid_, &status, 0);
        }
    }

    void SetUp() override {
        if (port_.empty()) GTEST_SKIP() << "VRN_SERVER and VRN_LIB name vrn-server and the library";
    }

    static std::unique_ptr<exec::Procedures> Connect(const std::string& password = "golden") {
        return ConnectProcedures({"127.0.0.1:" + port_, "golden", password, kTds74});
    }

    static host::CallResult Call(exec::Procedures& p, const std::string& name, std::vector<host::Param> params) {
        exec::Procedures::Call call;
        call.procedure = name;
        call.params = std::move(params);
        const std::optional<host::CallResult> result = p.Execute(call);
        if (!result) throw std::runtime_error("no procedure " + name);
        return *result;
    }

    static int32_t IntOutput(const host::CallResult& r, int n) {
        int32_t v = 0;
        const host::OutputValue* o = r.OutputOf(n);
        if (o && o->value.size() == 4) std::memcpy(&v, o->value.data(), 4);
        return v;
    }

    static inline std::string folder_, port_;
    static inline pid_t pid_ = -1;
};

TEST_F(ServerTest, LoginsAndQualifiedNames) {
    try {
        (void)Connect("wrong");
        ADD_FAILURE() << "a wrong password was taken";
    } catch (const exec::ScriptError& e) {
        EXPECT_STREQ(e.what(), "Login failed for user 'golden'.");
    }
    const auto p = Connect();
    for (const char* name : {"vrn_CountBitsOn", "master.dbo.vrn_CountBitsOn", "[master]..[vrn_CountBitsOn]", "dbo.vrn_CountBitsOn"}) {
        EXPECT_EQ(IntOutput(Call(*p, name, {host::VarBinary({0x0F, 0x07}), host::Output(host::Int(0))}), 2), 7) << name;
    }
    exec::Procedures::Call unknown;
    unknown.procedure = "master.dbo.vrn_Nothing";
    EXPECT_FALSE(p->Execute(unknown));
}

// The lock belongs to the connection that took it, across its calls, until it
// closes: then the next client gets it, abandoned.
TEST_F(ServerTest, TheSymbolicLockGoesWithItsConnection) {
    auto holder = Connect();
    const auto other = Connect();
    EXPECT_EQ(Call(*holder, "vrn_PercStrSymb_GetMutex", {host::Int(100)}).returnCode, 1);
    EXPECT_EQ(Call(*holder, "vrn_PercStrSymb_Init", {host::Int(1)}).returnCode, 0);
    EXPECT_EQ(Call(*other, "vrn_PercStrSymb_GetMutex", {host::Int(100)}).returnCode, 0);
    holder.reset();
    EXPECT_EQ(Call(*other, "vrn_PercStrSymb_GetMutex", {host::Int(5000)}).returnCode, 1);
    EXPECT_EQ(Call(*other, "vrn_PercStrSymb_ReleaseMutex", {}).returnCode, 1);
}

TEST_F(ServerTest, ConnectionsAtOnceEachGetTheirAnswers) {
    std::vector<std::thread> threads;
    std::vector<int> wrong(8, -1);
    for (size_t t = 0; t < wrong.size(); ++t) {
        threads.emplace_back([&, t] {
            const auto p = Connect();
            wrong[t] = 0;
            for (int i = 0; i < 100; ++i) {
                const auto bits = static_cast<uint16_t>(t * 1000 + static_cast<size_t>(i));
                const host::Bytes value = {static_cast<uint8_t>(bits), static_cast<uint8_t>(bits >> 8)};
                wrong[t] += IntOutput(Call(*p, "vrn_CountBitsOn", {host::VarBinary(value), host::Output(host::Int(0))}), 2) !=
                            __builtin_popcount(bits);
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(wrong, std::vector<int>(8, 0));
}

TEST_F(ServerTest, AStrangersBytesCloseOnlyItsConnection) {
    const auto p = Connect();
    for (const std::string& garbage : {std::string("GET / HTTP/1.1\r\n\r\n"), std::string("\x12\x01\xFF\xFF", 4) + std::string(64, 'x'),
                                      std::string("\x10\x01\x00\x09\x00\x00\x01\x00\x00", 9)}) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(static_cast<uint16_t>(std::stoi(port_)));
        inet_pton(AF_INET, "127.0.0.1", &a.sin_addr);
        ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
        (void)send(fd, garbage.data(), garbage.size(), MSG_NOSIGNAL);
        timeval wait{5, 0};
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        char byte;
        // Closed: an end of stream, or a reset when the server left bytes unread.
        const ssize_t got = recv(fd, &byte, 1, 0);
        EXPECT_TRUE(got == 0 || (got < 0 && errno == ECONNRESET)) << "the server kept a connection that sent " << garbage.substr(0, 4);
        close(fd);
    }
    EXPECT_EQ(IntOutput(Call(*p, "vrn_CountBitsOn", {host::VarBinary({3}), host::Output(host::Int(0))}), 2), 2);
}

}  // namespace
}  // namespace vrn::tds
