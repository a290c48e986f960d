// The frame's operations over one call record of the host stand-in.
#include "frame/procedure.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace vrn {
namespace {

using host::Invoke;
namespace h = host;

TEST(TypeTests, MatchTheTypeTableOverAllCodes) {
    struct Case {
        int (*test)(uint8_t);
        std::set<int> codes;
        const char* name;
    };
    const Case cases[] = {
        {IsCharType, {39, 47, 167, 175}, "IsCharType"},
        {IsCharOrTextType, {35, 39, 47, 167, 175}, "IsCharOrTextType"},
        {IsIntegerType, {38, 48, 52, 56}, "IsIntegerType"},
        {IsDecimalType, {55, 63, 106, 108}, "IsDecimalType"},
        {IsFloatType, {59, 62, 109}, "IsFloatType"},
        {IsBitType, {50, 104}, "IsBitType"},
    };
    for (const Case& c : cases) {
        for (int code = 0; code < 256; ++code) {
            EXPECT_EQ(c.test(static_cast<uint8_t>(code)), c.codes.count(code) ? 1 : 0) << c.name << " " << code;
        }
    }
}

TEST(GetParam, DescribesAndReads) {
    ParamInfo beyond{}, empty{}, real{};
    char text[4] = "xyz";
    Invoke(
        [&](SRV_PROC* p) {
            beyond.type = 99;
            EXPECT_NE(GetParam(p, 3, &beyond, nullptr), 1);
            EXPECT_NE(GetParam(p, 0, nullptr, nullptr), 1);
            EXPECT_EQ(GetParam(p, 1, &empty, nullptr), 1);
            ReadCharParam(p, 1, empty, text);
            EXPECT_EQ(GetParam(p, 2, &real, nullptr), 1);
            return 0;
        },
        {h::VarChar("", 10), h::Output(h::Real(1.5f))});
    EXPECT_EQ(beyond.type, 0);
    EXPECT_EQ(beyond.maxLength, 0u);
    EXPECT_EQ(beyond.actualLength, 0u);
    EXPECT_EQ(beyond.isNull, 0);
    EXPECT_EQ(beyond.isOutput, 0);
    EXPECT_EQ(empty.isNull, 0);
    EXPECT_EQ(empty.actualLength, 0u);
    EXPECT_EQ(empty.isOutput, 0);
    EXPECT_EQ(text[0], '\0');
    EXPECT_EQ(real.maxLength, 4u);
    EXPECT_EQ(real.isOutput, 1);
}

TEST(ReadIntegerParam, TakesTheLowBytesAndZeroForNull) {
    const std::pair<h::Param, uint32_t> cases[] = {
        {h::SmallInt(-1), 65535u}, {h::TinyInt(255), 255u},     {h::Int(-1), 0xFFFFFFFFu},
        {h::Int(1234567), 1234567u}, {h::Null(38, 4), 0u},
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
        {IsCharType, kIn, 0, 0, 1, true},                                   // not NULL, not empty
        {.typeTest = IsFloatType, .direction = kOut, .maxLength = 8},
        {.typeTest = IsIntegerType, .direction = kAnyDirection, .minCapacity = 4, .optional = true},
    };
    struct Case {
        std::vector<h::Param> params;
        bool failParamInfo;
        V expected;
        const char* what;
    };
    const Case cases[] = {
        {{h::VarChar("10+5"), h::Output(h::Float(0)), h::Int(1)}, false, V::kAccepted, "right"},
        {{h::VarChar("10+5"), h::Output(h::Float(0))}, false, V::kAccepted, "optional left out"},
        {{h::VarChar("10+5"), h::Output(h::Float(0)), h::Output(h::Int(1))}, false, V::kAccepted, "any direction"},
        {{h::VarChar("10+5")}, false, V::kUnreadable, "one of two at least"},
        {{h::VarChar("a"), h::Output(h::Float(0)), h::Int(1), h::Int(1)}, false, V::kUnreadable, "four of three"},
        {{h::VarChar("10+5"), h::Output(h::Float(0)), h::Int(1)}, true, V::kUnreadable, "paraminfo fails"},
        {{h::VarChar("10+5"), h::Output(h::Real(0)), h::Int(1)}, false, V::kRefused, "real OUTPUT"},
        {{h::VarChar("10+5"), h::Float(0), h::Int(1)}, false, V::kRefused, "float not OUTPUT"},
        {{h::Output(h::VarChar("x")), h::Output(h::Float(0))}, false, V::kRefused, "text OUTPUT"},
        {{h::Null(SRVBIGVARCHAR, 5), h::Output(h::Float(0))}, false, V::kRefused, "text NULL"},
        {{h::VarChar("", 5), h::Output(h::Float(0))}, false, V::kRefused, "text empty"},
        {{h::VarChar("10+5"), h::Output(h::Float(0)), h::SmallInt(1)}, false, V::kRefused, "smallint too narrow"},
        {{h::VarChar("10+5"), h::Output(h::Float(0)), h::Bit(true)}, false, V::kRefused, "bit for int"},
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

TEST(Deliveries, OutputsAndCompletion) {
    const h::CallResult result = Invoke(
        [](SRV_PROC* p) {
            SetOutputText(p, 1, "10.5+5", 6);
            SetOutputFloat(p, 2, 0.25);
            CompleteCall(p);
            return 0;
        },
        {h::Output(h::VarChar("", 30)), h::Output(h::Float(0))});
    ASSERT_NE(result.OutputOf(1), nullptr);
    ASSERT_NE(result.OutputOf(2), nullptr);
    EXPECT_EQ(result.OutputOf(1)->value, h::Bytes({'1', '0', '.', '5', '+', '5'}));
    double value = 0;
    ASSERT_EQ(result.OutputOf(2)->value.size(), 8u);
    std::memcpy(&value, result.OutputOf(2)->value.data(), 8);
    EXPECT_EQ(value, 0.25);
    ASSERT_EQ(result.dones.size(), 1u);
    EXPECT_EQ(result.dones[0].status, 0);
    EXPECT_EQ(result.dones[0].info, 0);
    EXPECT_EQ(result.dones[0].count, 0);
}

TEST(Messages, CarryTheValuesOfTheirKind) {
    const h::CallResult result = Invoke(
        [](SRV_PROC* p) {
            SendMessage(p, "vrn_X\n%s %d", "Errore", 7);
            SendErrorMessage(p, "e\xE8");
            return 0;
        },
        {});
    ASSERT_EQ(result.messages.size(), 2u);
    struct Expected {
        int type;
        int32_t number;
        const char* text;
    };
    const Expected expected[] = {{1, 1, "vrn_X\nErrore 7"}, {2, 2001, "e\xE8"}};
    for (size_t i = 0; i < 2; ++i) {
        const h::Message& m = result.messages[i];
        EXPECT_EQ(m.type, expected[i].type);
        EXPECT_EQ(m.number, expected[i].number);
        EXPECT_EQ(m.msgClass, 1);
        EXPECT_EQ(m.state, 0);
        EXPECT_TRUE(m.rpcNameNull);
        EXPECT_EQ(m.rpcNameLength, 0);
        EXPECT_EQ(m.lineNumber, 0);
        EXPECT_EQ(m.length, -1);
        EXPECT_EQ(m.text, expected[i].text);
    }
}

TEST(Messages, LongestTextGoesOutWholeLongerOneEmpty) {
    const std::pair<size_t, std::string> cases[] = {{2047, std::string(2047, 'm')}, {2048, ""}};
    for (const auto& [length, sent] : cases) {
        const std::string text(length, 'm');
        const h::CallResult result = Invoke([&](SRV_PROC* p) { return SendMessage(p, "%s", text.c_str()), 0; }, {});
        ASSERT_EQ(result.messages.size(), 1u);
        EXPECT_EQ(result.messages[0].text, sent) << length;
    }
}

TEST(Messages, ConcurrentSendersEachSendTheirOwnText) {
    constexpr int kThreads = 8, kRounds = 10000;
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    std::vector<int> wrong(kThreads, 0);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &wrong, &ready] {
            const std::string text = "vrn_T\n" + std::string(2000 - t * 100, static_cast<char>('a' + t));
            ++ready;
            while (ready < kThreads) std::this_thread::yield();
            for (int round = 0; round < kRounds; ++round) {
                const h::CallResult result =
                    Invoke([&](SRV_PROC* p) { return SendMessage(p, "%s", text.c_str()), 0; }, {});
                if (result.messages.size() != 1 || result.messages[0].text != text) ++wrong[t];
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(wrong[t], 0) << "thread " << t;
}

TEST(LibraryEntry, AttachCreatesTheLocksDetachClosesThem) {
    EXPECT_EQ(LibraryEntry(1), 1);
    const std::set<platform::LockHandle> locks = {PercStrSymbMutex, PercStrMutex, PFormulaMutex};
    EXPECT_EQ(locks.size(), 3u);
    EXPECT_EQ(locks.count(nullptr), 0u);
    for (uint32_t other : {2u, 3u, 0xFFFFFFFFu}) EXPECT_EQ(LibraryEntry(other), 1);
    EXPECT_EQ(std::set<platform::LockHandle>({PercStrSymbMutex, PercStrMutex, PFormulaMutex}), locks);
    {
        LockGuard guard(PercStrMutex, 500);
        EXPECT_TRUE(guard.Obtained());
    }
    EXPECT_EQ(LibraryEntry(0), 1);
    EXPECT_EQ(PercStrSymbMutex, nullptr);
    EXPECT_EQ(PercStrMutex, nullptr);
    EXPECT_EQ(PFormulaMutex, nullptr);
}

}  // namespace
}  // namespace vrn
