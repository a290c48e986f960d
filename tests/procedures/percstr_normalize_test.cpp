#include <gtest/gtest.h>

#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace vrn {
namespace {

using host::CallResult;
using host::Param;

// What a client sees of one call, in a form that compares whole.
struct Seen {
    int32_t returnCode;
    std::vector<std::string> messages;
    std::vector<std::string> outputs;  // "n:bytes" or "n:NULL"
    size_t dones;

    bool operator==(const Seen&) const = default;
};

Seen SeenOf(const CallResult& r) {
    Seen seen{r.returnCode, {}, {}, r.dones.size()};
    for (const auto& m : r.messages) seen.messages.push_back(m.text);
    for (const auto& o : r.outputs) {
        seen.outputs.push_back(std::to_string(o.param) + ":" +
                               (o.isNull ? "NULL" : std::string(o.value.begin(), o.value.end())));
    }
    return seen;
}

std::vector<Param> NormalizeCall(Param text, uint32_t resultSize = 30) {
    return {std::move(text), host::Output(host::VarChar("", resultSize))};
}

TEST(VrnPercStrNormalize, AnswersCarryExactBytesAndOneDone) {
    const host::Library lib(host::DefaultLibraryPath());

    const CallResult tooLong = lib.Call("vrn_PercStrNormalize", NormalizeCall(host::VarChar("1234567890123456789012")));
    ASSERT_EQ(tooLong.messages.size(), 1u);
    EXPECT_EQ(tooLong.messages[0].text, "vrn_PercStrNormalize\nIl primo parametro \xE8" " troppo lungo: 22 (max 21).");
    EXPECT_EQ(tooLong.messages[0].type, 1);
    ASSERT_NE(tooLong.OutputOf(2), nullptr);
    EXPECT_FALSE(tooLong.OutputOf(2)->isNull);  // the empty text, not NULL
    EXPECT_TRUE(tooLong.OutputOf(2)->value.empty());
    ASSERT_EQ(tooLong.dones.size(), 1u);
    EXPECT_EQ(tooLong.dones[0].status, 0);
    EXPECT_EQ(tooLong.returnCode, 0);
    // The message goes out before the answer, and the done closes the call.
    const std::vector<host::EventKind> order{host::EventKind::Message, host::EventKind::Output, host::EventKind::Done};
    EXPECT_EQ(tooLong.order, order);

    const CallResult wrong = lib.Call("vrn_PercStrNormalize", {host::VarChar("10")});
    ASSERT_EQ(wrong.messages.size(), 1u);
    EXPECT_EQ(wrong.messages[0].text,
              "vrn_PercStrNormalize\nErrore nei parametri: devono essere Char/VarChar, Char/VarChar OUTPUT.");
    EXPECT_TRUE(wrong.outputs.empty());
    EXPECT_EQ(wrong.dones.size(), 1u);
    EXPECT_EQ(wrong.returnCode, -1);
}

TEST(VrnPercStrNormalize, ConcurrentCallsGetTheSerialResults) {
    const host::Library lib(host::DefaultLibraryPath());
    const std::vector<std::vector<Param>> calls{
        NormalizeCall(host::VarChar("10,5+5")),
        NormalizeCall(host::VarChar("1234+5")),
        NormalizeCall(host::VarChar("abc")),
        NormalizeCall(host::VarChar("111+222+333+444+555+6")),
        NormalizeCall(host::VarChar("1234567890123456789012")),
        NormalizeCall(host::VarChar(".55"), 3),
        NormalizeCall(host::VarChar("12345"), 3),
        NormalizeCall(host::Char("-7,25", 10)),
        NormalizeCall(host::Null(167, 30)),
        {host::VarChar("10")},
    };
    std::vector<Seen> serial;
    for (const auto& params : calls) serial.push_back(SeenOf(lib.Call("vrn_PercStrNormalize", params)));
    ASSERT_EQ(serial[0].outputs, std::vector<std::string>{"2:10.5+5"});
    ASSERT_EQ(serial[1].returnCode, 1);

    constexpr int kThreads = 8;
    constexpr int kRounds = 2000;
    std::latch start(kThreads);
    std::vector<int> mismatches(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int round = 0; round < kRounds; ++round) {
                const size_t i = static_cast<size_t>(t + round) % calls.size();
                if (!(SeenOf(lib.Call("vrn_PercStrNormalize", calls[i])) == serial[i])) ++mismatches[t];
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(mismatches[t], 0) << "thread " << t;
}

}  // namespace
}  // namespace vrn
