// The intrusive reference-counted base of most Varitap classes, the RAII
// holder that takes a reference when it stores a pointer, and the pattern of
// the process-wide shared objects.
#pragma once

#include <cstdint>
#include <utility>

namespace varitap {

class PropertyList;

// A freshly constructed object has a count of 1, held by its creator. Counts
// are plain integers: shared objects change hands only in constructors and
// destructors, which hosts call on one thread.
class RefObject {
public:
    RefObject() = default;
    RefObject(const RefObject&) = delete;
    RefObject& operator=(const RefObject&) = delete;
    virtual ~RefObject() = default;

    // any thread that owns the object. Destroys it when the count reaches 0.
    virtual void release();
    virtual void retain();
    virtual int32_t retainCount() const;

    // Hooks through which an object writes itself into, and reads itself back
    // from, a property list. The base writes and reads nothing.
    virtual bool writeProperties(PropertyList& list);
    virtual bool readProperties(PropertyList& list);

    // Identity: true only for this very object.
    virtual bool isEqual(const RefObject* other) const;

private:
    int32_t refCount_ = 1;
};

// Holds one reference. Constructing from a raw pointer retains it; adopt()
// takes over a reference the caller already owns (the creation reference).
template <class T>
class RefPtr {
public:
    RefPtr() = default;
    RefPtr(std::nullptr_t) {}
    explicit RefPtr(T* object) : object_(object) {
        if (object_) object_->retain();
    }
    static RefPtr adopt(T* object) {
        RefPtr p;
        p.object_ = object;
        return p;
    }
    RefPtr(const RefPtr& other) : RefPtr(other.object_) {}
    RefPtr(RefPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
    template <class U>
    RefPtr(const RefPtr<U>& other) : RefPtr(other.get()) {}
    ~RefPtr() { reset(); }

    RefPtr& operator=(RefPtr other) noexcept {
        std::swap(object_, other.object_);
        return *this;
    }

    void reset() {
        if (T* old = std::exchange(object_, nullptr)) old->release();
    }
    // Gives up the reference without releasing it.
    T* leak() { return std::exchange(object_, nullptr); }

    T* get() const { return object_; }
    T* operator->() const { return object_; }
    T& operator*() const { return *object_; }
    explicit operator bool() const { return object_ != nullptr; }
    bool operator==(const RefPtr& other) const { return object_ == other.object_; }
    bool operator!=(const RefPtr& other) const { return object_ != other.object_; }

private:
    T* object_ = nullptr;
};

template <class T, class... Args>
RefPtr<T> makeRef(Args&&... args) {
    return RefPtr<T>::adopt(new T(std::forward<Args>(args)...));
}

// Process-wide shared objects: the first holder creates the object, every
// later one retains it, every holder releases it, and the object clears the
// shared pointer when the last release destroys it.
// construction thread only (hosts create and destroy instances on one thread).
template <class T>
class SharedObject : public RefObject {
public:
    // Returns a reference owned by the caller: a new object or the existing
    // one retained.
    template <class... Args>
    static T* acquire(Args&&... args) {
        if (instance_) {
            instance_->retain();
        } else {
            instance_ = new T(std::forward<Args>(args)...);
        }
        return instance_;
    }
    // The live object, or null; takes no reference.
    static T* current() { return instance_; }

protected:
    // Only the shared object clears the pointer: a second object of the same
    // class made directly (a test, a tool) must not orphan the shared one.
    ~SharedObject() override {
        if (instance_ && static_cast<SharedObject*>(instance_) == this) instance_ = nullptr;
    }

private:
    static inline T* instance_ = nullptr;
};

}  // namespace varitap
