#include "modulation/RecursiveMutex.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

namespace varitap {
namespace {

// Whether another thread could take the mutex right now (tryLock, and give
// it back at once when it succeeded).
bool freeForAnotherThread(RecursiveMutex& mutex) {
    return std::async(std::launch::async, [&mutex] {
               const bool taken = mutex.tryLock();
               if (taken) mutex.unlock();
               return taken;
           }).get();
}

// Held by another thread, a try fails and unlocks nothing; taken, it is
// recursive and free for another thread only after the last unlock.
TEST(RecursiveMutexTest, TryLockFromAnotherThreadFailsUntilTheLastUnlock) {
    RecursiveMutex mutex;
    ASSERT_TRUE(mutex.isValid());
    std::promise<void> held, done;
    std::thread holder([&] {
        mutex.lock();
        held.set_value();
        done.get_future().wait();
        mutex.unlock();
    });
    held.get_future().wait();
    {
        ScopedTryLock attempt(mutex);
        EXPECT_FALSE(attempt.locked() || attempt);
    }
    EXPECT_FALSE(freeForAnotherThread(mutex));
    done.set_value();
    holder.join();
    EXPECT_TRUE(freeForAnotherThread(mutex));

    {
        ScopedTryLock attempt(mutex);
        EXPECT_TRUE(attempt.locked() && attempt);
        {
            ScopedLock nested(mutex);
            EXPECT_TRUE(mutex.tryLock());  // the holder takes it again without waiting
            mutex.lock();
            mutex.unlock();
            mutex.unlock();
            EXPECT_FALSE(freeForAnotherThread(mutex));
        }
        EXPECT_FALSE(freeForAnotherThread(mutex));  // still held once
    }
    EXPECT_TRUE(freeForAnotherThread(mutex));
}

}  // namespace
}  // namespace varitap
