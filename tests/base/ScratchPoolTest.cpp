// The locks and the scratch pool, also run under ThreadSanitizer.
#include "modulation/RecursiveMutex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>
#include <thread>
#include <vector>

#include "modulation/ScratchPool.h"

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

TEST(ScratchPoolTest, ReusesTheFirstFreeBlockLargeEnoughAndNeverShrinks) {
    ScratchPool* pool = ScratchPool::acquire();
    const uint32_t bytes512 = 512 * sizeof(float);
    auto expectBlocks = [pool](uint32_t count, uint32_t bytes) {
        EXPECT_EQ(pool->blockCount(), count);
        EXPECT_EQ(pool->totalBytes(), bytes);
    };
    expectBlocks(1, 44100);
    // The whole initial block is usable without growing the pool; the next
    // request needs a block of its own.
    void* initial = pool->allocate(44100);
    ASSERT_NE(initial, nullptr);
    std::memset(initial, 0x5a, 44100);
    expectBlocks(1, 44100);
    void* second = pool->allocate(bytes512);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(initial, second);
    expectBlocks(2, 44100 + bytes512);

    pool->release(initial);
    // First fit in list order: the released 44100-byte block comes first.
    EXPECT_EQ(pool->allocate(256 * sizeof(float)), initial);
    pool->release(second);
    EXPECT_EQ(pool->allocate(256 * sizeof(float)), second);

    // A request no free block fits makes a block of exactly that size ...
    void* big = pool->allocate(100000);
    ASSERT_NE(big, nullptr);
    expectBlocks(3, 44100 + bytes512 + 100000);
    // ... and releasing everything gives nothing back to the system.
    for (void* block : {initial, second, big}) pool->release(block);
    expectBlocks(3, 44100 + bytes512 + 100000);

    // A small request skips no block it fits in; a 50000-byte one skips the
    // two smaller blocks and reuses the big one.
    EXPECT_EQ(pool->allocate(50000), big);
    EXPECT_EQ(pool->allocate(1), initial);
    EXPECT_EQ(pool->allocate(1), second);
    expectBlocks(3, 44100 + bytes512 + 100000);

    // Unknown pointers are ignored; a block released twice is simply free.
    int local = 0;
    for (void* block : {static_cast<void*>(&local), static_cast<void*>(nullptr), big, big}) pool->release(block);
    EXPECT_EQ(pool->allocate(60000), big);
    expectBlocks(3, 44100 + bytes512 + 100000);
    for (void* block : {initial, second, big}) pool->release(block);

    // A scratch block borrows for one scope: the first free block while the
    // outer one holds it, the outer one's again once both scopes ended.
    {
        ScratchBlock block(pool, 256);
        ScratchBlock inner(pool, 256);
        EXPECT_EQ(block.data(), static_cast<float*>(initial));
        EXPECT_EQ(inner.data(), static_cast<float*>(second));
        EXPECT_FALSE(ScratchBlock(nullptr, 16));
    }
    EXPECT_EQ(ScratchBlock(pool, 16).data(), static_cast<float*>(initial));
    pool->release();
}

TEST(ScratchPoolTest, ThreadsNeverShareABlockInUse) {
    ScratchPool* pool = ScratchPool::acquire();
    std::atomic<bool> clash{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([pool, t, &clash] {
            const uint32_t floats = 256u * static_cast<uint32_t>(t + 1);
            for (int round = 0; round < 2000; ++round) {
                ScratchBlock block(pool, floats);
                if (!block) {
                    clash = true;
                    return;
                }
                // Fill with this thread's mark, yield, and check nobody else
                // wrote into the block meanwhile.
                std::fill(block.data(), block.data() + floats, static_cast<float>(t));
                std::this_thread::yield();
                for (uint32_t i = 0; i < floats; ++i) {
                    if (block.data()[i] != static_cast<float>(t)) clash = true;
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_FALSE(clash);
    // Blocks are reused, not made per request: 8000 requests leave a handful
    // (a larger request may pass over smaller free blocks, so the exact
    // number depends on the interleaving).
    EXPECT_LE(pool->blockCount(), 16u);
    pool->release();
}

}  // namespace
}  // namespace varitap
