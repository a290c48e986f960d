// Locks with the system's mutex semantics: owned by one thread, re-entrant by
// it, waits with a time-out on a monotonic clock, and abandoned when the owner
// thread ends holding it (the next waiter then gets it with kWaitAbandoned).
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <new>

#include "frame/platform.h"

namespace vrn::platform {

namespace {

struct Lock;

// The locks the current thread owns, linked through Lock::nextHeld. Its
// destructor runs at thread exit and abandons whatever is still held.
struct HeldLocks {
    Lock* head = nullptr;
    ~HeldLocks();
};

thread_local HeldLocks tHeld;

struct Lock {
    std::mutex guard;
    std::condition_variable released;
    HeldLocks* owner = nullptr;  // the owning thread's record; null when free
    uint32_t count = 0;          // recursion depth of the owner
    bool abandoned = false;
    uint32_t waiters = 0;        // threads blocked in WaitLock: no one to wake saves a call
    Lock* nextHeld = nullptr;    // written only by the owner thread
    // The handle holds one reference and the owner one more, so a lock closed
    // while another thread holds it lives until that thread lets it go.
    std::atomic<uint32_t> references{1};
};

void Unreference(Lock* lock) {
    if (lock->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete lock;
}

void Unlink(HeldLocks& held, Lock* lock) {
    for (Lock** link = &held.head; *link != nullptr; link = &(*link)->nextHeld) {
        if (*link == lock) {
            *link = lock->nextHeld;
            lock->nextHeld = nullptr;
            return;
        }
    }
}

HeldLocks::~HeldLocks() {
    while (head != nullptr) {
        Lock* lock = head;
        head = lock->nextHeld;
        {
            std::lock_guard<std::mutex> hold(lock->guard);
            lock->owner = nullptr;
            lock->count = 0;
            lock->abandoned = true;
            lock->nextHeld = nullptr;
        }
        lock->released.notify_one();
        Unreference(lock);
    }
}

// Called with lock->guard held and the lock free.
uint32_t TakeOwnership(Lock* lock, HeldLocks& me) {
    lock->owner = &me;
    lock->count = 1;
    lock->references.fetch_add(1, std::memory_order_relaxed);
    lock->nextHeld = me.head;
    me.head = lock;
    const bool abandoned = lock->abandoned;
    lock->abandoned = false;
    return abandoned ? kWaitAbandoned : kWaitObject0;
}

}  // namespace

LockHandle CreateLock() { return new (std::nothrow) Lock; }

uint32_t WaitLock(LockHandle handle, uint32_t milliseconds) {
    auto* lock = static_cast<Lock*>(handle);
    if (lock == nullptr) return kWaitFailed;
    HeldLocks& me = tHeld;
    std::unique_lock<std::mutex> hold(lock->guard);
    if (lock->owner == &me) {
        if (lock->count == UINT32_MAX) return kWaitFailed;
        ++lock->count;
        return kWaitObject0;
    }
    if (lock->owner != nullptr) {
        if (milliseconds == 0) return kWaitTimeout;
        const auto isFree = [lock] { return lock->owner == nullptr; };
        ++lock->waiters;
        bool obtained = true;
        if (milliseconds == kInfinite) {
            lock->released.wait(hold, isFree);
        } else {
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
            obtained = lock->released.wait_until(hold, deadline, isFree);
        }
        --lock->waiters;
        if (!obtained) return kWaitTimeout;
    }
    return TakeOwnership(lock, me);
}

bool ReleaseLock(LockHandle handle) {
    auto* lock = static_cast<Lock*>(handle);
    if (lock == nullptr) return false;
    HeldLocks& me = tHeld;
    bool waited;
    {
        std::lock_guard<std::mutex> hold(lock->guard);
        if (lock->owner != &me) return false;
        if (--lock->count > 0) return true;
        lock->owner = nullptr;
        Unlink(me, lock);
        waited = lock->waiters > 0;
    }
    if (waited) lock->released.notify_one();
    Unreference(lock);
    return true;
}

void CloseLock(LockHandle handle) {
    if (handle != nullptr) Unreference(static_cast<Lock*>(handle));
}

}  // namespace vrn::platform
