// vrn-server's limits and its stop: each case on a server of its own, started
// with the flags it tries, and the failed logins' slowdown with a clock of its own.
#include <gtest/gtest.h>

#include "host/server/limits.h"
#include "host/tds/client.h"
#include "tests/host/server_process.h"

namespace vrn {
namespace {

using namespace tds::testing_server;
using server::LoginThrottle;
using Ms = LoginThrottle::Duration;

TEST(LoginThrottle, FailuresQueueGrowAndFade) {
    LoginThrottle throttle;
    const auto t0 = LoginThrottle::Clock::now();
    EXPECT_EQ(throttle.Admit("10.0.0.1", t0), Ms(0));
    throttle.Failed("10.0.0.1", t0);
    EXPECT_EQ(throttle.Admit("10.0.0.1", t0), Ms(250));
    EXPECT_EQ(throttle.Admit("10.0.0.2", t0), Ms(0)) << "another address pays nothing";
    // Failures at once queue behind each other: parallel guesses gain nothing.
    throttle.Failed("10.0.0.1", t0);
    throttle.Failed("10.0.0.1", t0);
    EXPECT_EQ(throttle.Admit("10.0.0.1", t0), Ms(250 + 500 + 1000));
    EXPECT_EQ(throttle.Admit("10.0.0.1", t0 + Ms(1750)), Ms(0));
    // Steps stop growing at 8 s; a wait beyond 30 s is refused unchecked.
    for (int i = 0; i < 4; ++i) throttle.Failed("10.0.0.1", t0);
    EXPECT_EQ(throttle.Admit("10.0.0.1", t0), Ms(1750 + 2000 + 4000 + 8000 + 8000));
    throttle.Failed("10.0.0.1", t0);
    EXPECT_EQ(throttle.Admit("10.0.0.1", t0), std::nullopt);
    // Quiet minutes halve the penalty: after four, the next failure costs 1 s.
    const auto later = t0 + Ms(31750) + std::chrono::minutes(4);
    EXPECT_EQ(throttle.Admit("10.0.0.1", later), Ms(0));
    throttle.Failed("10.0.0.1", later);
    EXPECT_EQ(throttle.Admit("10.0.0.1", later), Ms(1000));
}

TEST(LoginThrottle, KeepsAtMostItsCapacity) {
    LoginThrottle::Settings settings;
    settings.capacity = 3;
    LoginThrottle throttle(settings);
    const auto t0 = LoginThrottle::Clock::now();
    for (int i = 0; i < 3; ++i) throttle.Failed("10.0.0." + std::to_string(i), t0 + Ms(i));
    throttle.Failed("10.0.0.9", t0 + Ms(3));
    EXPECT_EQ(throttle.size(), 3u);
    EXPECT_EQ(throttle.Admit("10.0.0.0", t0 + Ms(3)), Ms(0)) << "the one whose wait ended first went";
    EXPECT_EQ(throttle.Admit("10.0.0.9", t0 + Ms(3)), Ms(250));
}

class ServerLimitTest : public testing::Test {
protected:
    void SetUp() override {
        if (!ServerProcess::Available()) GTEST_SKIP() << "VRN_SERVER and VRN_LIB name vrn-server and the library";
    }
    static std::unique_ptr<exec::Procedures> Connect(const ServerProcess& s, const std::string& user = "golden",
                                                     const std::string& password = "golden") {
        return tds::ConnectProcedures({s.address(), user, password, tds::kTds74});
    }
    static bool Answers(exec::Procedures& p) {
        exec::Procedures::Call call;
        call.procedure = "vrn_CountBitsOn";
        call.params = {host::VarBinary({0x0F}), host::Output(host::Int(0))};
        try {
            const std::optional<host::CallResult> r = p.Execute(call);
            return r && r->OutputOf(2) && r->OutputOf(2)->value == host::Bytes{4, 0, 0, 0};
        } catch (const exec::ScriptError&) {
            return false;
        }
    }
    // The login error's text, or empty when the login was taken.
    static std::string LoginRefusal(const ServerProcess& s, const std::string& user, const std::string& password) {
        try {
            (void)Connect(s, user, password);
            return {};
        } catch (const exec::ScriptError& e) {
            return e.what();
        }
    }
};

TEST_F(ServerLimitTest, ALoginOrAnIdleConnectionOutOfTimeIsClosed) {
    ServerProcess s("timeouts", {"--login-timeout", "1", "--idle-timeout", "2"});
    ASSERT_TRUE(s.started()) << s.Log();
    RawClient silent(s.port()), preLoginOnly(s.port()), idle(s.port());
    ASSERT_TRUE(idle.Login());
    tds::PreLogin hello;
    ASSERT_TRUE(preLoginOnly.SendMessage(tds::kPreLogin, tds::BuildPreLogin(hello)));
    const auto busy = Connect(s);
    // The busy one keeps calling, more often than the idle time.
    for (int i = 0; i < 6; ++i) {
        std::this_thread::sleep_for(500ms);
        EXPECT_TRUE(Answers(*busy));
    }
    EXPECT_TRUE(silent.Closed(3s));
    EXPECT_TRUE(preLoginOnly.Closed(3s));
    EXPECT_TRUE(idle.Closed(3s));
    EXPECT_TRUE(Answers(*busy));
    EXPECT_NE(s.Log().find("no login within 1 s"), std::string::npos);
    EXPECT_NE(s.Log().find("idle for 2 s"), std::string::npos);
    EXPECT_EQ(s.Stop(), 0);
}

TEST_F(ServerLimitTest, ConnectionsBeyondTheLimitAreRefusedWithTheServersError) {
    ServerProcess s("connections", {"--max-connections", "2"});
    ASSERT_TRUE(s.started()) << s.Log();
    auto first = Connect(s);
    const auto second = Connect(s);
    RawClient third(s.port());
    const std::optional<tds::Bytes> answer = third.Login();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(HasError(*answer, 17809));
    EXPECT_TRUE(HasText(*answer, "maximum number of '2' user connections"));
    EXPECT_TRUE(third.Closed());
    EXPECT_TRUE(Answers(*second));
    first.reset();
    // Its place is free once its thread has gone.
    bool taken = false;
    for (int i = 0; i < 40 && !taken; ++i) {
        std::this_thread::sleep_for(100ms);
        taken = LoginRefusal(s, "golden", "golden").empty();
    }
    EXPECT_TRUE(taken);
    EXPECT_EQ(s.Stop(), 0);
}

TEST_F(ServerLimitTest, ARequestOverItsSizeClosesAndPacketsStayWithinTheProtocol) {
    ServerProcess s("sizes", {"--max-request-bytes", "4096"});
    ASSERT_TRUE(s.started()) << s.Log();
    RawClient small(s.port()), large(s.port());
    const std::optional<tds::Bytes> login = small.Login("golden", "golden", 100000);
    ASSERT_TRUE(login);
    EXPECT_TRUE(HasText(*login, "32767")) << "the packet size the client is told";
    const std::optional<tds::Bytes> answer = small.Batch("PRINT '" + std::string(1000, 'x') + "'");
    ASSERT_TRUE(answer);
    EXPECT_TRUE(HasText(*answer, "xxxx"));
    ASSERT_TRUE(large.Login());
    ASSERT_TRUE(large.SendMessage(tds::kSqlBatch, RawClient::BatchPayload("PRINT '" + std::string(3000, 'x') + "'"), 512));
    EXPECT_TRUE(large.Closed());
    EXPECT_TRUE(small.Batch("PRINT 'fine'"));
    EXPECT_EQ(s.Stop(), 0);
}

TEST_F(ServerLimitTest, AFailedLoginSlowsTheNextFromItsAddress) {
    ServerProcess s("throttle");
    ASSERT_TRUE(s.started()) << s.Log();
    EXPECT_EQ(LoginRefusal(s, "golden", "wrong"), "Login failed for user 'golden'.");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(LoginRefusal(s, "golden", "golden"), "");
    EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms);
    EXPECT_EQ(s.Stop(), 0);
}

TEST_F(ServerLimitTest, SighupRereadsTheUsersAndABadFileKeepsTheOld) {
    ServerProcess s("reload");
    ASSERT_TRUE(s.started()) << s.Log();
    std::ofstream(s.usersFile()) << UserLine("second", "other");
    kill(s.pid(), SIGHUP);
    ASSERT_TRUE(s.AwaitLog("users re-read"));
    EXPECT_EQ(LoginRefusal(s, "second", "other"), "");
    EXPECT_EQ(LoginRefusal(s, "golden", "golden"), "Login failed for user 'golden'.");
    std::ofstream(s.usersFile()) << "second:not a hash\n";
    kill(s.pid(), SIGHUP);
    ASSERT_TRUE(s.AwaitLog("users not re-read, the old ones stay"));
    EXPECT_EQ(LoginRefusal(s, "second", "other"), "");
    EXPECT_EQ(s.Stop(), 0);
}

// SIGTERM: no new connections, an idle one closed, the call in flight answered whole, exit 0.
TEST_F(ServerLimitTest, SigtermLetsTheCallInFlightFinish) {
    ServerProcess s("stop");
    ASSERT_TRUE(s.started()) << s.Log();
    RawClient calling(s.port());
    ASSERT_TRUE(calling.Login());
    const auto idle = Connect(s);
    ASSERT_TRUE(calling.SendMessage(tds::kSqlBatch, RawClient::BatchPayload("WAITFOR DELAY '00:00:02' PRINT 'finished'")));
    std::this_thread::sleep_for(300ms);
    kill(s.pid(), SIGTERM);
    ASSERT_TRUE(s.AwaitLog("stopping"));
    EXPECT_FALSE(RawClient(s.port()).connected()) << "a connection taken after the stop";
    EXPECT_FALSE(Answers(*idle));
    const std::optional<tds::Bytes> answer = calling.Receive();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(HasText(*answer, "finished"));
    EXPECT_FALSE(EndsWithAttention(*answer));
    EXPECT_EQ(s.Wait(10s), 0) << s.Log();
    EXPECT_NE(s.Log().find("stopped\n"), std::string::npos);
}

// A call longer than the stop's bound, or a second SIGTERM: the server goes
// at once, with 1 for the calls it cut.
TEST_F(ServerLimitTest, TheStopsBoundAndASecondSigtermEndItAtOnce) {
    for (const bool second : {false, true}) {
        ServerProcess s("stopnow", second ? std::vector<std::string>{} : std::vector<std::string>{"--stop-timeout", "1"});
        ASSERT_TRUE(s.started()) << s.Log();
        RawClient calling(s.port());
        ASSERT_TRUE(calling.Login());
        ASSERT_TRUE(calling.SendMessage(tds::kSqlBatch, RawClient::BatchPayload("WAITFOR DELAY '00:01:00'")));
        std::this_thread::sleep_for(300ms);
        kill(s.pid(), SIGTERM);
        if (second) {
            ASSERT_TRUE(s.AwaitLog("stopping"));
            kill(s.pid(), SIGTERM);
        }
        EXPECT_EQ(s.Wait(5s), 1) << s.Log();
        EXPECT_NE(s.Log().find("stopped with 1 connections still in a call"), std::string::npos) << s.Log();
    }
}

}  // namespace
}  // namespace vrn
