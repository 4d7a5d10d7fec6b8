// A seam for tests of the file replacement: every step of it that can fail
// asks here first, so a test can make any one of them fail with the error
// of its choice and check that the user's file comes through unharmed.
// Unarmed, a step costs one comparison.
#pragma once

#include <cerrno>
#include <string>
#include <vector>

namespace brindlex::faultinject {

struct Plan {
    int failAt = 0;           // the failAt-th checked step (1-based) fails; 0: none
    int code = 0;             // ... with this errno
    std::string alwaysStep;   // every step of this name fails ...
    int alwaysCode = 0;       // ... with this errno
    int signalAt = 0;         // the signalAt-th checked step (1-based) first raises ...
    int signal = 0;           // ... this signal, as if it came from outside
};

// Starts a plan and empties the log of steps.
void arm(const Plan& plan);
void disarm();

// The names of the checked steps passed since arm(), in order.
const std::vector<std::string>& log();

// Called by a checked step: the errno it must fail with, or 0. Raises the
// plan's signal first at its step.
int fault(const char* step);

}  // namespace brindlex::faultinject

namespace brindlex {

// Runs one step that may fail, unless the fault seam makes it fail first.
template <class Call>
auto checked(const char* step, Call call) -> decltype(call())
{
    if (int code = faultinject::fault(step)) {
        errno = code;
        return -1;
    }
    return call();
}

}  // namespace brindlex
