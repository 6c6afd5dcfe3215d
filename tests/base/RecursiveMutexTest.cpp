#include "modulation/RecursiveMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

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

TEST(RecursiveMutexTest, ScopedLockExcludesOtherThreads) {
    RecursiveMutex mutex;
    long counter = 0;  // deliberately not atomic: the lock must protect it
    std::atomic<int> inside{0};
    std::atomic<bool> overlap{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 20000; ++i) {
                ScopedLock lock(mutex);
                if (inside.fetch_add(1) != 0) overlap = true;
                ++counter;
                inside.fetch_sub(1);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(overlap);
    EXPECT_EQ(counter, 80000);
}

}  // namespace
}  // namespace varitap
