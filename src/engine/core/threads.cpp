#include "engine/core/threads.h"

#include <algorithm>
#include <csignal>
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

std::vector<std::thread> startworkers(std::size_t count, const std::function<void()>& body)
{
    std::vector<std::thread> threads;
    sigset_t block, old;
    sigemptyset(&block);
    sigaddset(&block, SIGINT);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    try {
        for (std::size_t t = 0; t < count; ++t)
            threads.emplace_back(body);
    } catch (const std::system_error&) {
        // Fewer threads, or none.
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    return threads;
}

}  // namespace brindlex
