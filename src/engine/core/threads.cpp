#include "engine/core/threads.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <memory>
#include <system_error>

#include <pthread.h>
#include <sched.h>

namespace brindlex {

std::size_t usablecores()
{
    cpu_set_t set;
    if (::sched_getaffinity(0, sizeof set, &set) == 0)
        return static_cast<std::size_t>(std::max(CPU_COUNT(&set), 1));
    return std::max(std::thread::hardware_concurrency(), 1u);
}

namespace {

// Moves each new worker to a core other than this thread's, one each while
// there are enough: the scheduler tends to queue a new thread on its
// creator's core, where it waits a tick or two while another core idles.
void placeworkers(std::vector<std::thread>& threads, const cpu_set_t& allowed)
{
    const int here = ::sched_getcpu();
    std::vector<int> others;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed) && cpu != here)
            others.push_back(cpu);
    }
    if (others.empty())
        return;
    for (std::size_t t = 0; t < threads.size(); ++t) {
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(others[t % others.size()], &one);
        ::pthread_setaffinity_np(threads[t].native_handle(), sizeof one, &one);
    }
}

}  // namespace

std::vector<std::thread> startworkers(std::size_t count, const std::function<void()>& body)
{
    std::vector<std::thread> threads;
    sigset_t block, old;
    sigemptyset(&block);
    sigaddset(&block, SIGINT);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    cpu_set_t allowed;
    const bool place = ::sched_getaffinity(0, sizeof allowed, &allowed) == 0;
    // A worker starts where placeworkers put it, then may run on any core:
    // it waits at the gate until it has been placed.
    const auto gate = std::make_shared<std::atomic<bool>>(false);
    try {
        for (std::size_t t = 0; t < count; ++t)
            threads.emplace_back([gate, body, allowed, place] {
                gate->wait(false);
                if (place)
                    ::sched_setaffinity(0, sizeof allowed, &allowed);
                body();
            });
    } catch (const std::system_error&) {
        // Fewer threads, or none.
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    if (place)
        placeworkers(threads, allowed);
    gate->store(true);
    gate->notify_all();
    return threads;
}

}  // namespace brindlex
