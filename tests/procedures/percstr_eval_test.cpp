// vrn_PercStrEval through the loaded library: many threads at once, and the
// time-out of PercStrMutex.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <future>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "frame/platform.h"
#include "frame/procedure.h"
#include "host/host.h"

namespace vrn {
namespace {

using host::CallResult;

const host::Library& Lib() {
    static const host::Library library(host::DefaultLibraryPath());
    return library;
}

CallResult EvalCall(const std::string& text, int32_t mode) {
    return Lib().Call("vrn_PercStrEval", {host::VarChar(text, 20), host::Output(host::Float(42)), host::Int(mode)});
}

// Return code, delivered bytes and completions, compared whole.
std::string Summary(const CallResult& r) {
    std::string summary = std::to_string(r.returnCode) + " dones " + std::to_string(r.dones.size());
    for (const auto& m : r.messages) summary += " [" + m.text + "]";
    for (const auto& o : r.outputs) summary += " " + std::to_string(o.param) + ":" + std::string(o.value.begin(), o.value.end());
    return summary;
}

double OutputValue(const CallResult& r) {
    double value = -1;
    const host::OutputValue* output = r.OutputOf(2);
    if (output != nullptr && output->value.size() == sizeof value) std::memcpy(&value, output->value.data(), sizeof value);
    return value;
}

TEST(VrnPercStrEval, AnswersWithTheValueAndOneDone) {
    const CallResult r = EvalCall("10+5", 1);
    EXPECT_EQ(r.returnCode, 0);
    EXPECT_EQ(OutputValue(r), 0.855);
    ASSERT_EQ(r.dones.size(), 1u);
    EXPECT_EQ(r.dones[0].status, 0);
    EXPECT_TRUE(r.messages.empty());

    host::CallOptions failing;
    failing.failParamInfo = true;
    const CallResult refused =
        Lib().Call("vrn_PercStrEval", {host::VarChar("10"), host::Output(host::Float(0)), host::Int(0)}, failing);
    EXPECT_EQ(refused.returnCode, kInvalidArg);
    EXPECT_TRUE(refused.outputs.empty());
    EXPECT_EQ(refused.dones.size(), 1u);
}

TEST(VrnPercStrEval, ThreadsGetTheSerialResults) {
    const std::vector<std::string> texts = {"10+5-2", "10-(5+2)", "-(10+5)", "5--3", "1234", "10+",
                                            "(((((((5)))))))", "999.999999", "", " 1 + 2 + 3 ", "10,5"};
    struct Call {
        std::string text;
        int32_t mode;
        std::string expected;
    };
    std::vector<Call> calls;
    for (const std::string& text : texts) {
        for (int32_t mode : {0, 1, 2}) calls.push_back({text, mode, Summary(EvalCall(text, mode))});
    }

    constexpr int kThreads = 8;
    constexpr int kRounds = 100;
    std::latch start(kThreads);
    std::vector<std::vector<std::string>> mismatches(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            for (int round = 0; round < kRounds; ++round) {
                const Call& call = calls[(static_cast<size_t>(round) * 7 + static_cast<size_t>(t)) % calls.size()];
                const std::string got = Summary(EvalCall(call.text, call.mode));
                if (got != call.expected) mismatches[static_cast<size_t>(t)].push_back(call.text + ": " + got);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const auto& list : mismatches) EXPECT_TRUE(list.empty()) << list.front();
}

TEST(VrnPercStrEval, GivesUpAfterHalfASecondWithoutTheLock) {
    std::promise<void> held;
    std::promise<void> done;
    std::thread holder([&] {
        const LockGuard lock(PercStrMutex, platform::kInfinite);
        held.set_value();
        done.get_future().wait();
    });
    held.get_future().wait();

    const auto before = std::chrono::steady_clock::now();
    const CallResult refused = EvalCall("10", 0);
    const auto waited = std::chrono::steady_clock::now() - before;
    done.set_value();
    holder.join();

    EXPECT_EQ(refused.returnCode, 258);
    ASSERT_EQ(refused.messages.size(), 1u);
    EXPECT_EQ(refused.messages[0].text, "vrn_PercStrEval\nTimeout sul Mutex.");
    EXPECT_TRUE(refused.outputs.empty());
    EXPECT_TRUE(refused.dones.empty());
    EXPECT_GE(waited, std::chrono::milliseconds(450));
    EXPECT_LT(waited, std::chrono::milliseconds(5000));

    EXPECT_EQ(OutputValue(EvalCall("10", 0)), 0.1) << "the lock is free again";
}

}  // namespace
}  // namespace vrn
