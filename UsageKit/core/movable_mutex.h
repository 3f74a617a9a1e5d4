// A mutex for values that are moved from owner to owner but are never moved while in use,
// such as a scan's cache: the moved-to value gets a fresh, unlocked mutex of its own.
#pragma once

#include <mutex>

namespace usagekit {

class MovableMutex {
  public:
    MovableMutex() = default;
    MovableMutex(MovableMutex&&) noexcept {}
    MovableMutex& operator=(MovableMutex&&) noexcept { return *this; }

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

  private:
    std::mutex m_mutex;
};

}  // namespace usagekit
