// Ordered collections of reference-counted objects. A list holds one
// reference on each element: appending retains, removing releases, and
// destroying the list releases every element.
#pragma once

#include <cstdint>
#include <vector>

#include "persistence/RefObject.h"

namespace varitap {

class ListIterator;

class ObjectCollection : public RefObject {
public:
    virtual bool append(RefObject* object) = 0;
    // Removes the first entry that is this very object; true if one was found.
    virtual bool remove(RefObject* object) = 0;
    virtual bool removeAll() = 0;
    virtual bool contains(const RefObject* object) const = 0;
    virtual uint32_t count() const = 0;
    // An iterator at index 0 with no snapshot: call first() before anything else.
    virtual RefPtr<ListIterator> newIterator() = 0;
    virtual bool add(RefObject* object) { return append(object); }
    virtual bool removeObject(RefObject* object) { return remove(object); }
};

class ObjectList : public ObjectCollection {
public:
    ObjectList() = default;
    ~ObjectList() override;

    bool append(RefObject* object) override;
    bool remove(RefObject* object) override;
    bool removeAll() override;
    bool contains(const RefObject* object) const override;
    uint32_t count() const override;
    RefPtr<ListIterator> newIterator() override;

    // Appends every element of other, in order.
    virtual bool appendAll(const ObjectList& other);
    // removeAll, then appendAll: assigning a list from itself empties it.
    virtual bool assign(const ObjectList& other);

    // The element at index, without taking a reference; null past the end.
    RefObject* getAt(uint32_t index) const;

private:
    std::vector<RefObject*> elements_;
};

// Walks a snapshot of a list taken by first(). The snapshot holds no
// references: elements removed from the list afterwards may be gone.
class ListIterator : public RefObject {
public:
    explicit ListIterator(const ObjectList& list);

    virtual RefObject* first();
    virtual RefObject* next();
    // Never steps back onto element 0: from index 1 (and from 0) it returns
    // null and stays where it is.
    virtual RefObject* prev();
    virtual RefObject* current() const;
    virtual bool atEnd() const;
    virtual RefObject* skipForward(uint32_t n);
    virtual RefObject* skipBack(uint32_t n);
    virtual RefObject* stepForward() { return next(); }
    virtual RefObject* stepBack() { return prev(); }

private:
    const ObjectList& list_;
    uint32_t index_ = 0;
    std::vector<RefObject*> snapshot_;
    uint32_t count_ = 0;
};

}  // namespace varitap
