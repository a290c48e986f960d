#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace vrn {
namespace {

using host::CallResult;
using host::Param;

// Two threads wait here for each other, round after round. Not std::barrier:
// in the Windows build its wait hung now and then.
class Meeting {
public:
    void Meet() {
        std::unique_lock<std::mutex> lock(mutex_);
        const uint64_t round = round_;
        if (++arrived_ == 2) {
            arrived_ = 0;
            ++round_;
            met_.notify_all();
            return;
        }
        met_.wait(lock, [&] { return round_ != round; });
    }

private:
    std::mutex mutex_;
    std::condition_variable met_;
    int arrived_ = 0;
    uint64_t round_ = 0;
};

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

// Two calls on two threads meet each time the host hands a value over or takes
// one back, so that each runs its normaliser between the other's reading and
// answering: a buffer the calls shared would hand one the other's text. Many
// threads on a busy machine seldom overlap inside so short a call.
TEST(VrnPercStrNormalize, CallsHeldSideBySideKeepTheirOwnText) {
    const host::Library lib(host::DefaultLibraryPath());
    const std::vector<std::string> texts[2] = {{"10,5+5", "1.2.3", "007", "abc1"}, {"1234+5", "-.5", "9 8 7", "5+0"}};
    // The return code and the normalised text, as one line to compare.
    const auto answer = [](const CallResult& r) {
        const host::OutputValue* out = r.OutputOf(2);
        return std::to_string(r.returnCode) + " " + (out ? std::string(out->value.begin(), out->value.end()) : "-");
    };
    std::vector<std::string> serial[2], together[2];
    for (int t = 0; t < 2; ++t) {
        for (const std::string& text : texts[t]) {
            serial[t].push_back(answer(lib.Call("vrn_PercStrNormalize", NormalizeCall(host::VarChar(text)))));
        }
    }
    Meeting meeting;
    host::CallOptions options;
    options.onValueTransfer = [&meeting] { meeting.Meet(); };
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&, t] {
            for (const std::string& text : texts[t]) {
                together[t].push_back(
                    answer(lib.Call("vrn_PercStrNormalize", NormalizeCall(host::VarChar(text)), options)));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (int t = 0; t < 2; ++t) EXPECT_EQ(together[t], serial[t]) << "thread " << t;
}

}  // namespace
}  // namespace vrn
