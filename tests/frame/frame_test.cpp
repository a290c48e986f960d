// The frame's operations over one call record of the host stand-in, where no
// procedure shows them. The judging of calls is tested through the procedures.
#include "frame/procedure.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <tuple>

#include "host/host.h"

namespace vrn {
namespace {

using host::Invoke;
namespace h = host;

TEST(GetParam, BeyondTheCountIsAllZeroAndAnEmptyValueIsNotNull) {
    ParamInfo beyond{99, 5, 5, 1, 1}, empty{};
    char text[4] = "xyz";
    int beyondResult = 1;
    Invoke(
        [&](SRV_PROC* p) {
            beyondResult = GetParam(p, 2, &beyond, nullptr);
            if (GetParam(p, 1, &empty, nullptr) == 1) ReadCharParam(p, 1, empty, text);
            return 0;
        },
        {h::VarChar("", 10)});
    EXPECT_NE(beyondResult, 1);
    EXPECT_EQ(std::make_tuple(beyond.type, beyond.maxLength, beyond.actualLength, beyond.isNull, beyond.isOutput),
              std::make_tuple(uint8_t{0}, 0u, 0u, 0, 0));
    EXPECT_EQ(std::make_tuple(empty.isNull, empty.actualLength, text[0]), std::make_tuple(0, 0u, '\0'));
}

TEST(ReadIntegerParam, TakesTheLowBytesAndZeroForNull) {
    const std::pair<h::Param, uint32_t> cases[] = {
        {h::SmallInt(-1), 65535u}, {h::TinyInt(255), 255u}, {h::Int(-1), 0xFFFFFFFFu}, {h::Null(38, 4), 0u},
    };
    for (const auto& [param, expected] : cases) {
        uint32_t read = 7;
        Invoke(
            [&](SRV_PROC* p) {
                ParamInfo info{};
                if (GetParam(p, 1, &info, nullptr) == 1) read = ReadIntegerParam(p, 1, info);
                return 0;
            },
            {param});
        EXPECT_EQ(read, expected);
    }
}

// Information 1, class 1, state 0; at most 2047 characters.
TEST(SendMessage, TheLongestTextGoesOutWholeALongerOneEmpty) {
    for (const size_t length : {2047u, 2048u}) {
        const std::string text(length, 'm');
        const h::CallResult r = Invoke([&](SRV_PROC* p) { return SendMessage(p, "%s", text.c_str()); }, {});
        ASSERT_EQ(r.messages.size(), 1u);
        const h::Message& m = r.messages[0];
        EXPECT_EQ(m.text, length == 2047 ? text : "") << length;
        EXPECT_EQ(std::make_tuple(m.type, m.number, int{m.msgClass}, int{m.state}), std::make_tuple(1, 1, 1, 0));
    }
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

// A lock that couldn't be created at load: waits fail, and only a time-out stops a procedure.
TEST(LibraryEntry, NoLockFailsEveryWait) {
    EXPECT_EQ(platform::WaitLock(nullptr, 0), platform::kWaitFailed);
    EXPECT_FALSE(platform::ReleaseLock(nullptr));
}

}  // namespace
}  // namespace vrn
