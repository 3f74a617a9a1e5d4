// A mutex for values that are moved from owner to owner but are never moved while in use,
// such as a scan's cache: the moved-to value gets a fresh, unlocked mutex of its own.
//
// Its holders keep it for a lookup, well under a microsecond, while the scan's threads ask
// for it thousands of times each: a thread that finds it taken spins for a moment before it
// sleeps (glibc's adaptive mutex), instead of paying the kernel a sleep and a wake-up.
#pragma once

#include <pthread.h>

namespace usagekit {

class MovableMutex {
  public:
    MovableMutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ADAPTIVE_NP);
        pthread_mutex_init(&m_mutex, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~MovableMutex() { pthread_mutex_destroy(&m_mutex); }
    MovableMutex(MovableMutex&&) noexcept : MovableMutex() {}
    MovableMutex& operator=(MovableMutex&&) noexcept { return *this; }
    MovableMutex(const MovableMutex&) = delete;
    MovableMutex& operator=(const MovableMutex&) = delete;

    void lock() { pthread_mutex_lock(&m_mutex); }
    void unlock() { pthread_mutex_unlock(&m_mutex); }

  private:
    pthread_mutex_t m_mutex;
};

}  // namespace usagekit
