#include "core/spread_thread.h"

#include <sched.h>

#include <memory>
#include <system_error>
#include <utility>

namespace usagekit {

namespace {

struct Start {
    std::function<void()> run;
    cpu_set_t allowed;      // the creator's cores, which the thread gets back once it runs
    bool narrowed = false;  // whether it was started on the others only
};

void* begin(void* argument) {
    std::unique_ptr<Start> start(static_cast<Start*>(argument));
    if (start->narrowed)
        (void)pthread_setaffinity_np(pthread_self(), sizeof start->allowed, &start->allowed);
    start->run();
    return nullptr;
}

}  // namespace

SpreadThread::SpreadThread(std::function<void()> run) {
    auto start = std::make_unique<Start>();
    start->run = std::move(run);
    pthread_attr_t attributes;
    if (int failed = pthread_attr_init(&attributes))
        throw std::system_error(failed, std::generic_category(), "pthread_attr_init");
    CPU_ZERO(&start->allowed);
    const int here = sched_getcpu();
    // Where the creator may run on one core only, or the cores cannot be told, the thread
    // starts wherever the scheduler puts it.
    if (here >= 0 && sched_getaffinity(0, sizeof start->allowed, &start->allowed) == 0 &&
        CPU_ISSET(here, &start->allowed) && CPU_COUNT(&start->allowed) > 1) {
        cpu_set_t others = start->allowed;
        CPU_CLR(here, &others);
        start->narrowed = pthread_attr_setaffinity_np(&attributes, sizeof others, &others) == 0;
    }
    const int failed = pthread_create(&m_thread, &attributes, begin, start.get());
    pthread_attr_destroy(&attributes);
    if (failed) throw std::system_error(failed, std::generic_category(), "pthread_create");
    start.release();  // the thread's own now
    m_joinable = true;
}

SpreadThread::SpreadThread(SpreadThread&& other) noexcept
    : m_thread(other.m_thread), m_joinable(std::exchange(other.m_joinable, false)) {}

SpreadThread& SpreadThread::operator=(SpreadThread&& other) noexcept {
    if (this != &other) {
        join();
        m_thread = other.m_thread;
        m_joinable = std::exchange(other.m_joinable, false);
    }
    return *this;
}

SpreadThread::~SpreadThread() {
    join();
}

void SpreadThread::join() {
    if (!m_joinable) return;
    pthread_join(m_thread, nullptr);
    m_joinable = false;
}

}  // namespace usagekit
