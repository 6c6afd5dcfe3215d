#include "persistence/RefObject.h"

#include <gtest/gtest.h>

#include "modulation/ScratchPool.h"
#include "persistence/Preferences.h"
#include "persistence/SystemInfo.h"

namespace varitap {
namespace {

// Counts destructions so that tests can see exactly when an object dies.
class Tracked : public RefObject {
public:
    explicit Tracked(int* destroyed) : destroyed_(destroyed) {}
    ~Tracked() override { ++*destroyed_; }

private:
    int* destroyed_;
};

TEST(RefObjectTest, CountsFromOneAndDiesOnTheLastRelease) {
    int destroyed = 0;
    auto* object = new Tracked(&destroyed);
    EXPECT_EQ(object->retainCount(), 1);
    object->retain();
    object->retain();
    EXPECT_EQ(object->retainCount(), 3);
    object->release();
    object->release();
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->retainCount(), 1);
    object->release();
    EXPECT_EQ(destroyed, 1);
}

TEST(RefPtrTest, StoringTakesAReferenceAndAdoptTakesOverTheCreatorsOne) {
    int destroyed = 0;
    {
        RefPtr<Tracked> owner = makeRef<Tracked>(&destroyed);
        EXPECT_EQ(owner->retainCount(), 1);  // makeRef adopts the creation reference
        {
            RefPtr<Tracked> stored(owner.get());
            EXPECT_EQ(owner->retainCount(), 2);
            RefPtr<Tracked> copy = stored;
            EXPECT_EQ(owner->retainCount(), 3);
            RefPtr<RefObject> base = copy;  // converting copy retains too
            EXPECT_EQ(owner->retainCount(), 4);
            RefPtr<Tracked> moved = std::move(copy);
            EXPECT_FALSE(copy);
            EXPECT_EQ(owner->retainCount(), 4);
        }
        EXPECT_EQ(owner->retainCount(), 1);
        EXPECT_EQ(destroyed, 0);

        // Assigning over a holder releases what it held; self-assignment keeps it.
        RefPtr<Tracked> other = makeRef<Tracked>(&destroyed);
        other = owner;
        EXPECT_EQ(destroyed, 1);
        EXPECT_EQ(owner->retainCount(), 2);
        RefPtr<Tracked>& alias = other;
        other = alias;
        EXPECT_EQ(owner->retainCount(), 2);

        // leak() hands the reference over without releasing it.
        Tracked* raw = other.leak();
        EXPECT_FALSE(other);
        EXPECT_EQ(raw->retainCount(), 2);
        raw->release();
    }
    EXPECT_EQ(destroyed, 2);
}

// A process-wide object in the shared pattern, counting its creations.
class Singleton : public SharedObject<Singleton> {
public:
    Singleton() { ++created; }
    ~Singleton() override { ++destroyed; }
    static inline int created = 0;
    static inline int destroyed = 0;
};

TEST(SharedObjectTest, FirstCreatesLaterRetainLastReleaseDestroysAndClears) {
    EXPECT_EQ(Singleton::current(), nullptr);
    const int createdBefore = Singleton::created;
    const int destroyedBefore = Singleton::destroyed;
    Singleton* first = Singleton::acquire();
    Singleton* second = Singleton::acquire();
    Singleton* third = Singleton::acquire();
    EXPECT_EQ(first, second);
    EXPECT_EQ(first, third);
    EXPECT_EQ(Singleton::created, createdBefore + 1);
    EXPECT_EQ(first->retainCount(), 3);
    EXPECT_EQ(Singleton::current(), first);

    third->release();
    second->release();
    EXPECT_EQ(Singleton::destroyed, destroyedBefore);
    EXPECT_EQ(Singleton::current(), first);
    first->release();
    EXPECT_EQ(Singleton::destroyed, destroyedBefore + 1);
    EXPECT_EQ(Singleton::current(), nullptr);

    // After the last release the next holder starts afresh.
    Singleton* again = Singleton::acquire();
    EXPECT_EQ(Singleton::created, createdBefore + 2);
    EXPECT_EQ(Singleton::current(), again);
    again->release();
    EXPECT_EQ(Singleton::current(), nullptr);
}

TEST(SharedObjectTest, ASecondObjectMadeDirectlyDoesNotClearTheSharedOne) {
    Singleton* shared = Singleton::acquire();
    auto* loose = new Singleton;
    loose->release();
    EXPECT_EQ(Singleton::current(), shared);
    shared->release();
    EXPECT_EQ(Singleton::current(), nullptr);
}

TEST(SharedObjectTest, TheProcessWideServicesFollowThePattern) {
    ScratchPool* pool = ScratchPool::acquire();
    Preferences* preferences = Preferences::acquire();
    SystemInfo* info = SystemInfo::acquire();
    EXPECT_EQ(ScratchPool::acquire(), pool);
    EXPECT_EQ(Preferences::acquire(), preferences);
    EXPECT_EQ(SystemInfo::acquire(), info);
    EXPECT_EQ(pool->retainCount(), 2);

    for (RefObject* object : {static_cast<RefObject*>(pool), static_cast<RefObject*>(preferences),
                              static_cast<RefObject*>(info)})
        object->release();
    EXPECT_EQ(ScratchPool::current(), pool);
    EXPECT_EQ(Preferences::current(), preferences);
    EXPECT_EQ(SystemInfo::current(), info);

    pool->release();
    preferences->release();
    info->release();
    EXPECT_EQ(ScratchPool::current(), nullptr);
    EXPECT_EQ(Preferences::current(), nullptr);
    EXPECT_EQ(SystemInfo::current(), nullptr);
}

}  // namespace
}  // namespace varitap
