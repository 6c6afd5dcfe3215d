// A recursive POSIX mutex with a non-waiting form, and the scoped helpers
// that take and release it.
#pragma once

#include <pthread.h>

#include "persistence/RefObject.h"

namespace varitap {

// A mutex that could not be created leaves its owner unguarded but working:
// tryLock says yes, lock and unlock do nothing.
class RecursiveMutex : public RefObject {
public:
    RecursiveMutex();
    ~RecursiveMutex() override;

    // any thread; waits.
    void lock();
    // any thread, including audio; never waits. True when taken (or when
    // there is no mutex).
    bool tryLock();
    void unlock();

    bool isValid() const { return mutex_ != nullptr; }

private:
    pthread_mutex_t* mutex_ = nullptr;
};

class ScopedLock {
public:
    explicit ScopedLock(RecursiveMutex& mutex) : mutex_(mutex) { mutex_.lock(); }
    ~ScopedLock() { mutex_.unlock(); }
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    RecursiveMutex& mutex_;
};

// Takes the mutex only if it is free; unlocks only what it took.
class ScopedTryLock {
public:
    explicit ScopedTryLock(RecursiveMutex& mutex) : mutex_(mutex), locked_(mutex.tryLock()) {}
    ~ScopedTryLock() {
        if (locked_) mutex_.unlock();
    }
    ScopedTryLock(const ScopedTryLock&) = delete;
    ScopedTryLock& operator=(const ScopedTryLock&) = delete;

    bool locked() const { return locked_; }
    explicit operator bool() const { return locked_; }

private:
    RecursiveMutex& mutex_;
    bool locked_;
};

}  // namespace varitap
