// The frame's operations over one call record of the host stand-in.
#include "frame/procedure.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "host/host.h"

namespace vrn {
namespace {

using host::Invoke;
namespace h = host;

TEST(GetParam, BeyondTheCountIsAllZeroAndAnEmptyValueIsNotNull) {
    ParamInfo beyond{}, empty{};
    char text[4] = "xyz";
    int beyondResult = 1;
    Invoke(
        [&](SRV_PROC* p) {
            beyond.type = 99;
            beyondResult = GetParam(p, 2, &beyond, nullptr);
            if (GetParam(p, 1, &empty, nullptr) == 1) ReadCharParam(p, 1, empty, text);
            return 0;
        },
        {h::VarChar("", 10)});
    EXPECT_NE(beyondResult, 1);
    EXPECT_EQ(std::make_tuple(beyond.type, beyond.maxLength, beyond.actualLength, beyond.isNull, beyond.isOutput),
              std::make_tuple(uint8_t{0}, 0u, 0u, 0, 0));
    EXPECT_EQ(empty.isNull, 0);
    EXPECT_EQ(empty.actualLength, 0u);
    EXPECT_EQ(text[0], '\0');
}

TEST(ReadIntegerParam, TakesTheLowBytesAndZeroForNull) {
    const std::pair<h::Param, uint32_t> cases[] = {
        {h::SmallInt(-1), 65535u}, {h::TinyInt(255), 255u}, {h::Int(-1), 0xFFFFFFFFu}, {h::Null(38, 4), 0u},
    };
    for (const auto& [param, expected] : cases) {
        uint32_t read = 7;
        Invoke([&](SRV_PROC* p) { return static_cast<int32_t>(read = ReadIntegerParam(p, 1)); }, {param});
        EXPECT_EQ(read, expected);
    }
}

TEST(JudgeParams, VerdictOfTheWholeCall) {
    using V = CallVerdict;
    const std::initializer_list<ParamRule> rules = {
        {IsCharType, kIn, 0, 0, 1, true},  // not NULL, not empty
        {.typeTest = IsFloatType, .direction = kOut, .maxLength = 8},
        {.typeTest = IsIntegerType, .direction = kAnyDirection, .minCapacity = 4, .optional = true},
    };
    const h::Param text = h::VarChar("10+5"), out = h::Output(h::Float(0));
    struct Case {
        std::vector<h::Param> params;
        V expected;
        const char* what;
        bool failParamInfo = false;
    };
    const Case cases[] = {
        {{text, out, h::Int(1)}, V::kAccepted, "right"},
        {{text, out}, V::kAccepted, "optional left out"},
        {{text, out, h::Output(h::Int(1))}, V::kAccepted, "any direction"},
        {{text}, V::kUnreadable, "one of two at least"},
        {{text, out, h::Int(1), h::Int(1)}, V::kUnreadable, "four of three"},
        {{text, out, h::Int(1)}, V::kUnreadable, "paraminfo fails", true},
        {{text, h::Output(h::Real(0)), h::Int(1)}, V::kRefused, "real OUTPUT"},
        {{text, h::Float(0), h::Int(1)}, V::kRefused, "float not OUTPUT"},
        {{h::Output(text), out}, V::kRefused, "text OUTPUT"},
        {{h::Null(SRVBIGVARCHAR, 5), out}, V::kRefused, "text NULL"},
        {{h::VarChar("", 5), out}, V::kRefused, "text empty"},
        {{text, out, h::SmallInt(1)}, V::kRefused, "smallint too narrow"},
        {{text, out, h::Bit(true)}, V::kRefused, "bit for int"},
    };
    for (const Case& c : cases) {
        V verdict = V::kAccepted;
        ParamInfo infos[3];
        h::CallOptions options;
        options.failParamInfo = c.failParamInfo;
        Invoke([&](SRV_PROC* p) { return static_cast<int32_t>(verdict = JudgeParams(p, rules, infos)); }, c.params,
               options);
        EXPECT_EQ(verdict, c.expected) << c.what;
        if (c.expected == V::kAccepted) {
            EXPECT_EQ(infos[1].maxLength, 8u);
        }
    }
}

// Information 1 and error 2001, both class 1 and state 0, each text at most 2047 characters.
TEST(SendMessage, TheLongestTextGoesOutWholeALongerOneEmpty) {
    for (const size_t length : {2047u, 2048u}) {
        const std::string text(length, 'm');
        const h::CallResult r = Invoke(
            [&](SRV_PROC* p) { return SendMessage(p, "%s", text.c_str()) + SendErrorMessage(p, "%s", text.c_str()); },
            {});
        ASSERT_EQ(r.messages.size(), 2u);
        for (const h::Message& m : r.messages) {
            EXPECT_EQ(m.text, length == 2047 ? text : "") << length;
            EXPECT_EQ(std::make_tuple(m.number, int{m.msgClass}, int{m.state}),
                      std::make_tuple(m.type == 1 ? 1 : 2001, 1, 0));
        }
        EXPECT_EQ(r.messages[1].type, 2);
    }
}

TEST(SendMessage, ConcurrentSendersEachSendTheirOwnText) {
    constexpr int kThreads = 8, kRounds = 5000;
    std::atomic<int> ready{0};
    std::vector<int> wrong(kThreads, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &wrong, &ready] {
            const std::string text = "vrn_T\n" + std::string(2000 - t * 100, static_cast<char>('a' + t));
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            for (int round = 0; round < kRounds; ++round) {
                const h::CallResult r = Invoke([&](SRV_PROC* p) { return SendMessage(p, "%s", text.c_str()), 0; }, {});
                if (r.messages.size() != 1 || r.messages[0].text != text) ++wrong[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
}

TEST(LibraryEntry, AttachCreatesTheLocksDetachClosesThem) {
    EXPECT_EQ(LibraryEntry(1), 1);
    const std::set<platform::LockHandle> locks = {PercStrSymbMutex, PercStrMutex, PFormulaMutex};
    EXPECT_EQ(locks.size(), 3u);
    EXPECT_EQ(locks.count(nullptr), 0u);
    for (uint32_t other : {2u, 3u}) EXPECT_EQ(LibraryEntry(other), 1);
    EXPECT_EQ(std::set<platform::LockHandle>({PercStrSymbMutex, PercStrMutex, PFormulaMutex}), locks);
    EXPECT_EQ(LibraryEntry(0), 1);
    EXPECT_EQ(std::set<platform::LockHandle>({PercStrSymbMutex, PercStrMutex, PFormulaMutex}),
              std::set<platform::LockHandle>{nullptr});
}

}  // namespace
}  // namespace vrn
