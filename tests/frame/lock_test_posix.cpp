// The portable locks outlive a close while held; the system's handle is gone at once.
#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "frame/platform.h"

namespace vrn::platform {
namespace {

TEST(Lock, ClosedWhileHeldLivesUntilTheOwnerLetsGo) {
    LockHandle handle = CreateLock();
    std::promise<void> taken, closed;
    std::thread owner([&] {
        (void)WaitLock(handle, 0);
        taken.set_value();
        closed.get_future().wait();
        EXPECT_TRUE(ReleaseLock(handle));
    });
    taken.get_future().wait();
    CloseLock(handle);
    closed.set_value();
    owner.join();
}

}  // namespace
}  // namespace vrn::platform
