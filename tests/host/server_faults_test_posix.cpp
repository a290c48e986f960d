// vrn-server against clients that misbehave: each fault ends with the server
// still answering everyone else, its threads back to the accept loop's, and,
// at the stop, a clean exit (under ASan: nothing leaked).
#include <gtest/gtest.h>

#include "host/tds/client.h"
#include "tests/host/server_process.h"

namespace vrn::tds {
namespace {

using namespace testing_server;

class ServerFaultTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        server_ = new ServerProcess("faults");
        if (server_->started()) idleThreads_ = server_->Threads();
    }
    static void TearDownTestSuite() {
        if (server_->started()) {
            EXPECT_EQ(server_->Stop(), 0) << server_->Log();
        }
        delete server_;
    }
    void SetUp() override {
        if (!server_->started()) GTEST_SKIP() << "VRN_SERVER and VRN_LIB name vrn-server and the library";
    }

    static std::unique_ptr<exec::Procedures> Connect() { return ConnectProcedures({server_->address(), "golden", "golden", kTds74}); }

    // A well-behaved client's call gets its right answer.
    static void ExpectAnswers(exec::Procedures& p, uint8_t bits = 0x0F) {
        exec::Procedures::Call call;
        call.procedure = "vrn_CountBitsOn";
        call.params = {host::VarBinary({bits}), host::Output(host::Int(0))};
        const std::optional<host::CallResult> r = p.Execute(call);
        ASSERT_TRUE(r);
        const host::OutputValue* o = r->OutputOf(2);
        ASSERT_TRUE(o && o->value.size() == 4);
        int32_t n = 0;
        std::memcpy(&n, o->value.data(), 4);
        EXPECT_EQ(n, __builtin_popcount(bits));
    }

    // Every thread but the accept loop's and those of the connections still open has ended.
    static void ExpectThreadsEnded(long open) {
        EXPECT_TRUE(server_->AwaitThreads(idleThreads_ + open)) << "threads: " << server_->Threads();
    }

    static inline ServerProcess* server_ = nullptr;
    static inline long idleThreads_ = 0;
};

// Gone in the middle of a call, in its wait, or before its answer was read,
// with a goodbye or a reset: the call ends, and so does its thread.
TEST_F(ServerFaultTest, AClientThatVanishesMidCall) {
    const auto other = Connect();
    struct Case {
        const char* batch;
        bool reset;
    };
    for (const Case& c : {Case{"WAITFOR DELAY '00:00:05'", false}, Case{"WAITFOR DELAY '00:00:05'", true},
                          Case{"DECLARE @n int EXEC vrn_CountBitsOn 0x0F07, @n OUTPUT", true},
                          Case{"EXEC vrn_PercStrSymb_GetMutex 100 WAITFOR DELAY '00:00:05'", true}}) {
        {
            RawClient raw(server_->port());
            ASSERT_TRUE(raw.Login());
            ASSERT_TRUE(raw.SendMessage(kSqlBatch, RawClient::BatchPayload(c.batch)));
            std::this_thread::sleep_for(200ms);
            if (c.reset) raw.Vanish();
        }
        ExpectAnswers(*other);
        ExpectThreadsEnded(1);
    }
    // The one that vanished holding the symbolic lock left it to the next.
    const auto next = Connect();
    exec::Procedures::Call take;
    take.procedure = "vrn_PercStrSymb_GetMutex";
    take.params = {host::Int(5000)};
    EXPECT_EQ(next->Execute(take)->returnCode, 1);
    take.procedure = "vrn_PercStrSymb_ReleaseMutex";
    take.params.clear();
    EXPECT_EQ(next->Execute(take)->returnCode, 1);
}

// After a good login: bytes that aren't TDS, a packet that lies about its
// length, a message type a client doesn't send, or an RPC that doesn't read.
// The first three close the connection; the RPC is framed right, so it gets
// its error and the connection goes on.
TEST_F(ServerFaultTest, GarbageAfterALogin) {
    const auto other = Connect();
    for (const std::string& garbage : {std::string("GET / HTTP/1.1\r\nHost: x\r\n\r\n"), std::string("\x01\x01\x00\x04\x00\x00\x01\x00", 8),
                                      std::string("\x55\x01\x00\x0C\x00\x00\x01\x00\x01\x02\x03\x04", 12),
                                      std::string("\x03\x01\xFF\xFF\x00\x00\x01\x00", 8) + std::string(100, '\xEE')}) {
        RawClient raw(server_->port());
        ASSERT_TRUE(raw.Login());
        raw.Send(garbage);
        EXPECT_TRUE(raw.Closed()) << "kept a connection that sent " << testing::PrintToString(garbage.substr(0, 4));
        ExpectAnswers(*other);
    }
    RawClient raw(server_->port());
    ASSERT_TRUE(raw.Login());
    ASSERT_TRUE(raw.SendMessage(kRpc, Bytes{0x16, 0, 0, 0, 0x12, 0, 0, 0, 0x02, 0, 0xFF, 0xFF, 0xFF}));
    const std::optional<Bytes> answer = raw.Receive();
    ASSERT_TRUE(answer);
    EXPECT_TRUE(HasError(*answer, 8009));
    const std::optional<Bytes> next = raw.Batch("PRINT 'still here'");
    ASSERT_TRUE(next);
    EXPECT_TRUE(HasText(*next, "still here"));
    ExpectAnswers(*other);
}

// Half a packet, then nothing for a while: the others are served meanwhile,
// and the rest, when it comes, completes the request.
TEST_F(ServerFaultTest, APacketCutInHalf) {
    const auto other = Connect();
    RawClient raw(server_->port());
    ASSERT_TRUE(raw.Login());
    Bytes packet;
    AppendPackets(packet, kSqlBatch, RawClient::BatchPayload("PRINT 'whole at last'"), kDefaultPacketSize);
    const size_t half = packet.size() / 2;
    for (size_t cut : {size_t{3}, half}) {  // inside the header, inside the body
        ASSERT_TRUE(raw.Send(Bytes(packet.begin(), packet.begin() + static_cast<ptrdiff_t>(cut))));
        std::this_thread::sleep_for(300ms);
        for (int i = 0; i < 3; ++i) ExpectAnswers(*other, static_cast<uint8_t>(i * 37));
        ASSERT_TRUE(raw.Send(Bytes(packet.begin() + static_cast<ptrdiff_t>(cut), packet.end())));
        const std::optional<Bytes> answer = raw.Receive();
        ASSERT_TRUE(answer);
        EXPECT_TRUE(HasText(*answer, "whole at last"));
    }
}

// An attention during a long call: a task's program started (it goes on
// running: the call that started it is over) and a WAITFOR that is cut short.
// The call's output is dropped, the attention acknowledged, and the connection goes on.
TEST_F(ServerFaultTest, AttentionDuringALongCall) {
    const auto other = Connect();
    RawClient raw(server_->port());
    ASSERT_TRUE(raw.Login());
    const std::string task = "N'{00000000-0000-0000-0000-0000000000F1}-DITTA1'";
    ASSERT_TRUE(raw.Batch("EXEC vrn_Wts_TaskCreate " + task + ", NULL, N'/bin/sleep', N'', NULL, NULL, N'30', NULL, 1, 0, 0"));
    for (const std::string& batch : {std::string("WAITFOR DELAY '00:00:30'"), "EXEC vrn_Wts_TaskRun " + task + " WAITFOR DELAY '00:00:30'"}) {
        ASSERT_TRUE(raw.SendMessage(kSqlBatch, RawClient::BatchPayload(batch)));
        std::this_thread::sleep_for(300ms);
        const auto sent = std::chrono::steady_clock::now();
        ASSERT_TRUE(raw.SendMessage(kAttention, {}));
        // The request's answer, its output dropped, then the acknowledgement.
        const std::vector<Bytes> answers = raw.ReceiveUntilAttention();
        ASSERT_EQ(answers.size(), 2u) << batch;
        EXPECT_FALSE(EndsWithAttention(answers[0])) << batch;
        EXPECT_TRUE(EndsWithAttention(answers[1])) << batch;
        EXPECT_LT(std::chrono::steady_clock::now() - sent, 10s);
        ExpectAnswers(*other);
        const std::optional<Bytes> next = raw.Batch("PRINT 'after the attention'");
        ASSERT_TRUE(next);
        EXPECT_TRUE(HasText(*next, "after the attention"));
    }
    ASSERT_TRUE(raw.Batch("EXEC vrn_Wts_TaskTerminate " + task + " EXEC vrn_Wts_TaskDelete " + task));
}

}  // namespace
}  // namespace vrn::tds
