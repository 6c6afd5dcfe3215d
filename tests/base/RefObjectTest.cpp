#include "persistence/RefObject.h"

#include <gtest/gtest.h>

#include "TestSupport.h"

namespace varitap {
namespace {

using Tracked = test::Tracked<>;

TEST(RefPtrTest, StoringTakesAReferenceAndAdoptTakesOverTheCreatorsOne) {
    int destroyed = 0;
    {
        RefPtr<Tracked> owner = makeRef<Tracked>(&destroyed);
        EXPECT_EQ(owner->retainCount(), 1);  // makeRef adopts the creation reference
        {
            RefPtr<Tracked> stored(owner.get());
            RefPtr<Tracked> copy = stored;
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

// Two holders share one object; the last release destroys it and clears the
// shared pointer, and the next holder starts afresh. A second object made
// directly does not clear the shared one.
TEST(SharedObjectTest, FirstCreatesLaterRetainLastReleaseDestroysAndClears) {
    EXPECT_EQ(Singleton::current(), nullptr);
    for (int round = 1; round <= 2; ++round) {
        Singleton* first = Singleton::acquire();
        Singleton* second = Singleton::acquire();
        EXPECT_EQ(first, second);
        EXPECT_EQ(first->retainCount(), 2);
        second->release();
        EXPECT_EQ(Singleton::current(), first);
        (new Singleton)->release();
        EXPECT_EQ(Singleton::current(), first);
        first->release();
        EXPECT_EQ(Singleton::current(), nullptr);
        EXPECT_EQ(Singleton::created, 2 * round);
        EXPECT_EQ(Singleton::destroyed, 2 * round);
    }
}

}  // namespace
}  // namespace varitap
