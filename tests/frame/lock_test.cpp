// Lock semantics that no procedure shows: a thread that ends holding a lock,
// and locks that were never created. The procedures' own use of the locks
// (waits, re-entry, the owner's release) is tested through them.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "frame/platform.h"

namespace vrn::platform {
namespace {

TEST(Lock, AThreadEndingWithTheLockAbandonsItToTheNextWaiter) {
    LockHandle lock = CreateLock();
    std::promise<void> taken, finish;
    std::thread owner([&] {
        (void)WaitLock(lock, 0);
        (void)WaitLock(lock, 0);  // held twice: abandonment clears the count
        taken.set_value();
        finish.get_future().wait();
    });
    taken.get_future().wait();
    auto waiter = std::async(std::launch::async, [&] {
        const uint32_t first = WaitLock(lock, kInfinite);
        const bool releasedOnce = ReleaseLock(lock) && !ReleaseLock(lock);
        return first == kWaitAbandoned && releasedOnce && WaitLock(lock, 0) == kWaitObject0 && ReleaseLock(lock);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    finish.set_value();
    owner.join();
    EXPECT_TRUE(waiter.get());
    CloseLock(lock);
}

// A lock that couldn't be created at load: waits fail, and only a time-out stops a procedure.
TEST(Lock, NoLockFailsEveryWait) {
    EXPECT_EQ(WaitLock(nullptr, 0), kWaitFailed);
    EXPECT_FALSE(ReleaseLock(nullptr));
}

}  // namespace
}  // namespace vrn::platform
