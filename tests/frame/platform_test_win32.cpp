// The Windows heap where the system's answer matters: a failed request must be
// a null the procedures can answer, not a structured exception, and the
// formula procedures rely on cleared blocks for the NULs behind a text.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "frame/platform.h"

namespace vrn::platform {
namespace {

TEST(HeapWin32, AFailedRequestGivesNullAndBlocksComeCleared) {
    EXPECT_EQ(HeapAllocCleared(SIZE_MAX / 2), nullptr);
    EXPECT_NE(HeapPtr<void>(HeapAllocCleared(0)), nullptr);
    // A block given back dirty comes out again cleared.
    constexpr size_t kSize = 4096;
    for (int round = 0; round < 3; ++round) {
        HeapPtr<unsigned char> block(static_cast<unsigned char*>(HeapAllocCleared(kSize)));
        ASSERT_NE(block, nullptr);
        size_t dirty = 0;
        for (size_t i = 0; i < kSize; ++i) dirty += block.get()[i] != 0;
        EXPECT_EQ(dirty, 0u) << "round " << round;
        std::memset(block.get(), 0xA5, kSize);
    }
}

}  // namespace
}  // namespace vrn::platform
