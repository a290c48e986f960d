// Lock semantics with real threads.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "frame/platform.h"

namespace vrn::platform {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct LockOwner {
    LockHandle handle = CreateLock();
    ~LockOwner() { CloseLock(handle); }
};

template <class Fn>
auto OnOtherThread(Fn fn) {
    return std::async(std::launch::async, fn).get();
}

TEST(Lock, OthersWaitTheirTimeOrUntilTheRelease) {
    LockOwner lock;
    ASSERT_EQ(WaitLock(lock.handle, 0), kWaitObject0);
    for (uint32_t wait : {0u, 120u}) {
        const auto start = Clock::now();
        EXPECT_EQ(OnOtherThread([&] { return WaitLock(lock.handle, wait); }), kWaitTimeout) << wait;
        EXPECT_GE(Clock::now() - start, milliseconds(wait));
    }
    for (uint32_t wait : {kInfinite, 5000u}) {
        std::atomic<bool> obtained{false};
        std::thread waiter([&] {
            obtained = WaitLock(lock.handle, wait) == kWaitObject0;
            (void)ReleaseLock(lock.handle);
        });
        std::this_thread::sleep_for(milliseconds(100));
        EXPECT_FALSE(obtained) << wait;
        ASSERT_TRUE(ReleaseLock(lock.handle));
        waiter.join();
        EXPECT_TRUE(obtained) << wait;
        ASSERT_EQ(WaitLock(lock.handle, 0), kWaitObject0);
    }
    ASSERT_TRUE(ReleaseLock(lock.handle));
}

TEST(Lock, TheOwnerReentersAndOnlyTheOwnerReleasesAsOftenAsItEntered) {
    LockOwner lock;
    EXPECT_FALSE(ReleaseLock(lock.handle));  // free
    for (int i = 0; i < 3; ++i) ASSERT_EQ(WaitLock(lock.handle, 0), kWaitObject0);
    EXPECT_FALSE(OnOtherThread([&] { return ReleaseLock(lock.handle); }));
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(ReleaseLock(lock.handle));
        EXPECT_EQ(OnOtherThread([&] { return WaitLock(lock.handle, 0); }), kWaitTimeout) << "after release " << i;
    }
    ASSERT_TRUE(ReleaseLock(lock.handle));
    EXPECT_FALSE(ReleaseLock(lock.handle));  // one more than entered
    EXPECT_TRUE(OnOtherThread([&] { return WaitLock(lock.handle, 0) == kWaitObject0 && ReleaseLock(lock.handle); }));
    EXPECT_EQ(WaitLock(nullptr, 0), kWaitFailed);
    EXPECT_FALSE(ReleaseLock(nullptr));
}

TEST(Lock, AThreadEndingWithTheLockAbandonsItToTheNextWaiter) {
    LockOwner lock;
    std::promise<void> taken, finish;
    std::thread owner([&] {
        (void)WaitLock(lock.handle, 0);
        (void)WaitLock(lock.handle, 0);  // held twice: abandonment clears the count
        taken.set_value();
        finish.get_future().wait();
    });
    taken.get_future().wait();
    auto waiter = std::async(std::launch::async, [&] {
        const uint32_t first = WaitLock(lock.handle, kInfinite);
        const bool releasedOnce = ReleaseLock(lock.handle) && !ReleaseLock(lock.handle);
        return first == kWaitAbandoned && releasedOnce && WaitLock(lock.handle, 0) == kWaitObject0 &&
               ReleaseLock(lock.handle);
    });
    std::this_thread::sleep_for(milliseconds(20));
    finish.set_value();
    owner.join();
    EXPECT_TRUE(waiter.get());
}

TEST(Lock, ManyThreadsExcludeEachOther) {
    LockOwner lock;
    int counter = 0;  // guarded by the lock only
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 2000; ++i) {
                if (WaitLock(lock.handle, kInfinite) != kWaitObject0) continue;
                ++counter;
                (void)ReleaseLock(lock.handle);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(counter, 8 * 2000);
}

}  // namespace
}  // namespace vrn::platform
