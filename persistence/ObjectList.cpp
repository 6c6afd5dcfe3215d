#include "persistence/ObjectList.h"

#include <algorithm>

namespace varitap {

ObjectList::~ObjectList() { removeAll(); }

bool ObjectList::append(RefObject* object) {
    if (!object) return false;
    object->retain();
    elements_.push_back(object);
    return true;
}

bool ObjectList::remove(RefObject* object) {
    auto it = std::find(elements_.begin(), elements_.end(), object);
    if (it == elements_.end()) return false;
    elements_.erase(it);
    object->release();
    return true;
}

bool ObjectList::removeAll() {
    // Release after detaching, so that an element's destructor never sees a
    // half-emptied list.
    std::vector<RefObject*> old;
    old.swap(elements_);
    for (RefObject* object : old) object->release();
    return true;
}

bool ObjectList::contains(const RefObject* object) const {
    return std::find(elements_.begin(), elements_.end(), object) != elements_.end();
}

uint32_t ObjectList::count() const { return static_cast<uint32_t>(elements_.size()); }

RefPtr<ListIterator> ObjectList::newIterator() { return makeRef<ListIterator>(*this); }

bool ObjectList::appendAll(const ObjectList& other) {
    // Copy first: other may be this list.
    const std::vector<RefObject*> source = other.elements_;
    for (RefObject* object : source) append(object);
    return true;
}

bool ObjectList::assign(const ObjectList& other) {
    removeAll();
    return appendAll(other);
}

RefObject* ObjectList::getAt(uint32_t index) const {
    return index < elements_.size() ? elements_[index] : nullptr;
}

ListIterator::ListIterator(const ObjectList& list) : list_(list) {}

RefObject* ListIterator::first() {
    index_ = 0;
    count_ = list_.count();
    snapshot_.assign(count_ + 1, nullptr);
    for (uint32_t i = 0; i < count_; ++i) snapshot_[i] = list_.getAt(i);
    return snapshot_[0];
}

RefObject* ListIterator::next() {
    if (index_ + 1 < count_) return snapshot_[++index_];
    return nullptr;
}

RefObject* ListIterator::prev() {
    if (index_ <= 1) return nullptr;
    return snapshot_[--index_];
}

RefObject* ListIterator::current() const {
    return index_ < snapshot_.size() ? snapshot_[index_] : nullptr;
}

bool ListIterator::atEnd() const { return index_ == count_; }

RefObject* ListIterator::skipForward(uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) next();
    return current();
}

RefObject* ListIterator::skipBack(uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) prev();
    return current();
}

}  // namespace varitap
