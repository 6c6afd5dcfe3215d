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

TEST(RecursiveMutexTest, TryLockFromAnotherThreadFailsUntilTheLastUnlock) {
    RecursiveMutex mutex;
    ASSERT_TRUE(mutex.isValid());
    EXPECT_TRUE(freeForAnotherThread(mutex));

    mutex.lock();
    EXPECT_TRUE(mutex.tryLock());  // the holder takes it again without waiting
    mutex.lock();
    EXPECT_FALSE(freeForAnotherThread(mutex));
    mutex.unlock();
    mutex.unlock();
    EXPECT_FALSE(freeForAnotherThread(mutex));  // still held once
    mutex.unlock();
    EXPECT_TRUE(freeForAnotherThread(mutex));
}

TEST(RecursiveMutexTest, ScopedTryLockUnlocksOnlyWhatItTook) {
    RecursiveMutex mutex;
    std::promise<void> held;
    std::promise<void> done;
    std::thread holder([&] {
        mutex.lock();
        held.set_value();
        done.get_future().wait();
        mutex.unlock();
    });
    held.get_future().wait();
    {
        ScopedTryLock attempt(mutex);
        EXPECT_FALSE(attempt.locked());
        EXPECT_FALSE(attempt);
    }
    // The failed attempt leaves the holder's lock as it was.
    EXPECT_FALSE(freeForAnotherThread(mutex));
    done.set_value();
    holder.join();

    {
        ScopedTryLock attempt(mutex);
        EXPECT_TRUE(attempt.locked());
        EXPECT_FALSE(freeForAnotherThread(mutex));
        {
            ScopedLock nested(mutex);
            EXPECT_FALSE(freeForAnotherThread(mutex));
        }
        EXPECT_FALSE(freeForAnotherThread(mutex));
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
