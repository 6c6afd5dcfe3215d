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

// Two holders share one object; the last release destroys it and clears the
// shared pointer.
template <typename T>
void expectSharedPattern() {
    T* first = T::acquire();
    T* second = T::acquire();
    EXPECT_EQ(first, second);
    EXPECT_EQ(first->retainCount(), 2);
    second->release();
    EXPECT_EQ(T::current(), first);
    first->release();
    EXPECT_EQ(T::current(), nullptr);
}

TEST(SharedObjectTest, FirstCreatesLaterRetainLastReleaseDestroysAndClears) {
    EXPECT_EQ(Singleton::current(), nullptr);
    const int created = Singleton::created, destroyed = Singleton::destroyed;
    expectSharedPattern<Singleton>();
    EXPECT_EQ(Singleton::created, created + 1);
    EXPECT_EQ(Singleton::destroyed, destroyed + 1);
    // After the last release the next holder starts afresh.
    expectSharedPattern<Singleton>();
    EXPECT_EQ(Singleton::created, created + 2);
}

TEST(SharedObjectTest, ASecondObjectMadeDirectlyDoesNotClearTheSharedOne) {
    Singleton* shared = Singleton::acquire();
    auto* loose = new Singleton;
    loose->release();
    EXPECT_EQ(Singleton::current(), shared);
    shared->release();
    EXPECT_EQ(Singleton::current(), nullptr);
}

}  // namespace
}  // namespace varitap
