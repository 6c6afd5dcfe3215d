// The object base: references, shared objects, lists of objects.
#include "persistence/RefObject.h"

#include <gtest/gtest.h>

#include "TestSupport.h"
#include "persistence/ObjectList.h"

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

using TrackedList = test::Tracked<ObjectList>;

// The usual hand-over: create, append, release at once.
template <typename T>
T* handOver(ObjectList* list, T* object) {
    list->append(object);
    object->release();
    return object;
}

TEST(ObjectListTest, HoldsOneReferencePerEntryAndRemovesOnlyTheFirst) {
    int destroyed = 0;
    auto list = makeRef<ObjectList>();
    auto a = makeRef<Tracked>(&destroyed), b = makeRef<Tracked>(&destroyed), stranger = makeRef<Tracked>(&destroyed);
    EXPECT_TRUE(list->append(a.get()));
    EXPECT_TRUE(list->add(b.get()));
    EXPECT_TRUE(list->append(a.get()));
    EXPECT_EQ(list->count(), 3u);
    EXPECT_EQ(a->retainCount(), 3);  // ours and two entries
    EXPECT_EQ(list->getAt(2), a.get());
    EXPECT_EQ(list->getAt(3), nullptr);

    EXPECT_TRUE(list->remove(a.get()));
    EXPECT_EQ(list->count(), 2u);
    EXPECT_EQ(list->getAt(0), b.get());  // the first entry went, the later one stays
    EXPECT_EQ(list->getAt(1), a.get());
    EXPECT_EQ(a->retainCount(), 2);
    EXPECT_TRUE(list->contains(a.get()));
    EXPECT_FALSE(list->remove(stranger.get()));
    EXPECT_FALSE(list->contains(stranger.get()));
    EXPECT_EQ(list->count(), 2u);
    EXPECT_EQ(stranger->retainCount(), 1);
    EXPECT_TRUE(list->removeObject(b.get()));
    EXPECT_FALSE(list->contains(b.get()));
    EXPECT_EQ(b->retainCount(), 1);
    EXPECT_EQ(destroyed, 0);

    // A list given sole ownership destroys its elements, lists included.
    {
        auto outer = makeRef<TrackedList>(&destroyed);
        TrackedList* inner = handOver(outer.get(), new TrackedList(&destroyed));
        for (int i = 0; i < 3; ++i) handOver(inner, new Tracked(&destroyed));
        handOver(handOver(inner, new TrackedList(&destroyed)), new Tracked(&destroyed));
        EXPECT_EQ(destroyed, 0);
    }
    EXPECT_EQ(destroyed, 7);  // outer, inner, deeper and four leaves
}

// An element whose destructor inspects the list it lived in: removeAll must
// not let it see a half-emptied list.
class Watcher : public RefObject {
public:
    explicit Watcher(ObjectList* list, uint32_t* seenCount) : list_(list), seenCount_(seenCount) {}
    ~Watcher() override { *seenCount_ = list_->count(); }

private:
    ObjectList* list_;
    uint32_t* seenCount_;
};

TEST(ObjectListTest, AppendAllCopiesInOrderAndAssignFromItselfEmpties) {
    int destroyed = 0;
    auto source = makeRef<ObjectList>(), target = makeRef<ObjectList>();
    RefPtr<Tracked> items[3] = {makeRef<Tracked>(&destroyed), makeRef<Tracked>(&destroyed),
                                makeRef<Tracked>(&destroyed)};
    for (auto& item : items) source->append(item.get());
    auto extra = makeRef<Tracked>(&destroyed);
    target->append(extra.get());

    target->appendAll(*source);
    ASSERT_EQ(target->count(), 4u);
    for (uint32_t i = 0; i < 3; ++i) EXPECT_EQ(target->getAt(i + 1), items[i].get());
    EXPECT_EQ(items[0]->retainCount(), 3);
    target->assign(*source);
    ASSERT_EQ(target->count(), 3u);
    EXPECT_EQ(target->getAt(0), items[0].get());
    EXPECT_EQ(extra->retainCount(), 1);

    // Appending a list to itself doubles it; it must not run on forever.
    source->appendAll(*source);
    EXPECT_EQ(source->count(), 6u);
    EXPECT_EQ(source->getAt(3), items[0].get());
    // removeAll runs before the copy, so assigning from itself empties it and
    // drops every reference it held.
    source->assign(*source);
    EXPECT_EQ(source->count(), 0u);
    EXPECT_EQ(items[0]->retainCount(), 2);  // ours and target's
    // An element dying in removeAll sees an empty list.
    uint32_t seen = 99;
    handOver(source.get(), new Watcher(source.get(), &seen));
    source->append(items[1].get());
    source->removeAll();
    EXPECT_EQ(seen, 0u);
    target->removeAll();
    EXPECT_EQ(items[1]->retainCount(), 1);
    EXPECT_EQ(destroyed, 0);
}

// The iterator walks a snapshot taken by first(); it never steps back onto
// element 0 and stays on the last element; skips are steps.
TEST(ListIteratorTest, WalksTheSnapshotAndNeverStepsBackOntoTheFirstElement) {
    int destroyed = 0;
    auto list = makeRef<ObjectList>(), empty = makeRef<ObjectList>();
    RefPtr<Tracked> items[4];
    for (auto& item : items) list->append((item = makeRef<Tracked>(&destroyed)).get());
    auto it = list->newIterator();
    EXPECT_EQ(it->next(), nullptr);  // nothing until first()
    EXPECT_EQ(it->first(), items[0].get());
    EXPECT_EQ(it->prev(), nullptr);  // index 0: stays
    EXPECT_EQ(it->next(), items[1].get());
    EXPECT_EQ(it->prev(), nullptr);  // index 1: element 0 is never reached backwards
    EXPECT_EQ(it->current(), items[1].get());
    EXPECT_EQ(it->skipForward(5), items[3].get());  // the last element: does not move on
    EXPECT_FALSE(it->atEnd());                      // next() never reaches index == count
    EXPECT_EQ(it->next(), nullptr);
    EXPECT_EQ(it->stepBack(), items[2].get());
    EXPECT_EQ(it->skipBack(5), items[1].get());

    // Later changes are not seen until first().
    auto late = makeRef<Tracked>(&destroyed);
    list->append(late.get());
    EXPECT_EQ(it->skipForward(9), items[3].get());
    EXPECT_EQ(it->first(), items[0].get());
    EXPECT_EQ(it->skipForward(4), late.get());

    // An empty list is at its end at once; current() is the terminator.
    auto none = empty->newIterator();
    EXPECT_EQ(none->first(), nullptr);
    EXPECT_TRUE(none->atEnd());
    EXPECT_EQ(none->current(), nullptr);
}

}  // namespace
}  // namespace varitap
