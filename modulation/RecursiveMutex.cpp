#include "modulation/RecursiveMutex.h"

#include <new>

namespace varitap {

RecursiveMutex::RecursiveMutex() {
    auto* mutex = new (std::nothrow) pthread_mutex_t;
    if (!mutex) return;
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    const int result = pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (result != 0) {
        delete mutex;
        return;
    }
    mutex_ = mutex;
}

RecursiveMutex::~RecursiveMutex() {
    if (mutex_) {
        pthread_mutex_destroy(mutex_);
        delete mutex_;
    }
}

void RecursiveMutex::lock() {
    if (mutex_) pthread_mutex_lock(mutex_);
}

bool RecursiveMutex::tryLock() { return mutex_ ? pthread_mutex_trylock(mutex_) == 0 : true; }

void RecursiveMutex::unlock() {
    if (mutex_) pthread_mutex_unlock(mutex_);
}

}  // namespace varitap
