// The threads of the engine's workers: how many cores there are to use, and
// how a worker starts.
#pragma once

#include <cstddef>
#include <functional>
#include <thread>
#include <vector>

namespace brindlex {

// The cores this process may run on (its affinity, which taskset or a
// container's cpuset narrow), at least 1: more threads than that only take
// turns on the same cores.
std::size_t usablecores();

// Starts up to `count` threads running `body`, with SIGINT blocked in them:
// it is the run's Cancel, for the thread that asks the sink, and must
// never interrupt a worker. Fewer, or none, when the system has none to spare.
std::vector<std::thread> startworkers(std::size_t count, const std::function<void()>& body);

}  // namespace brindlex
