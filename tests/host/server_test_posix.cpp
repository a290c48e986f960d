// vrn-server as its clients meet it, through vrn-exec's own client: logins,
// qualified names, a connection per thread and the symbolic lock going with
// its connection, and a stranger's bytes that close only the stranger.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "host/tds/client.h"
#include "host/tds/protocol.h"
#include "tests/host/server_process.h"

namespace vrn::tds {
namespace {

class ServerTest : public testing::Test {
protected:
    static void SetUpTestSuite() { server_ = new testing_server::ServerProcess("server_test"); }
    static void TearDownTestSuite() {
        delete server_;
        server_ = nullptr;
    }
    void SetUp() override {
        if (!server_->started()) GTEST_SKIP() << "VRN_SERVER and VRN_LIB name vrn-server and the library";
        port_ = server_->port();
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

    static inline testing_server::ServerProcess* server_ = nullptr;
    static inline std::string port_;
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
        testing_server::RawClient raw(port_);
        ASSERT_TRUE(raw.connected());
        raw.Send(garbage);
        // Closed: an end of stream, or a reset when the server left bytes unread.
        EXPECT_TRUE(raw.Closed(std::chrono::seconds(5))) << "the server kept a connection that sent " << garbage.substr(0, 4);
    }
    EXPECT_EQ(IntOutput(Call(*p, "vrn_CountBitsOn", {host::VarBinary({3}), host::Output(host::Int(0))}), 2), 2);
}

}  // namespace
}  // namespace vrn::tds
