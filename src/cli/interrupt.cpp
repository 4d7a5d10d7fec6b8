#include "cli/interrupt.h"

#include <csignal>

namespace brindlex::cli {
namespace {

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void oninterrupt(int) { gInterrupted = 1; }

}  // namespace

void catchinterrupt()
{
    struct sigaction sa {};
    sa.sa_handler = oninterrupt;
    sa.sa_flags = SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, nullptr);
}

bool interrupted()
{
    return gInterrupted != 0;
}

}  // namespace brindlex::cli
