// A value shared between the audio thread and the others without a lock: each
// read and write is one plain 32-bit (or smaller) access, as parameter values
// are meant to be, but well-defined for the compiler and thread sanitizer.
#pragma once

#include <atomic>

namespace varitap {

template <class T>
class Relaxed {
public:
    Relaxed() = default;
    Relaxed(T value) : value_(value) {}
    Relaxed(const Relaxed&) = delete;
    Relaxed& operator=(const Relaxed&) = delete;

    operator T() const { return value_.load(std::memory_order_relaxed); }
    Relaxed& operator=(T value) {
        value_.store(value, std::memory_order_relaxed);
        return *this;
    }
    T load() const { return value_.load(std::memory_order_relaxed); }

private:
    std::atomic<T> value_{};
    static_assert(std::atomic<T>::is_always_lock_free);
};

}  // namespace varitap
