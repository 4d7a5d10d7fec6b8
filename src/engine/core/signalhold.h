// Holding off the signals that end a process while a user's file is
// between its old and new content.
#pragma once

#include <array>
#include <csignal>

namespace brindlex {

// SIGTERM, SIGHUP and SIGINT wait while a file is between its old and new
// content, and come once it is whole again. A handler of the process's
// own, not a blocked mask: any thread of the process may take a signal.
class SignalHold {
public:
    SignalHold()
    {
        caught_ = 0;
        struct sigaction sa {};
        sa.sa_handler = record;
        sigfillset(&sa.sa_mask);
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            ::sigaction(kSignals[i], &sa, &old_[i]);
    }
    ~SignalHold()
    {
        for (std::size_t i = 0; i < kSignals.size(); ++i) {
            ::sigaction(kSignals[i], &old_[i], nullptr);
            if (caught_ & (1 << i))
                ::raise(kSignals[i]);
        }
    }
    SignalHold(const SignalHold&) = delete;
    SignalHold& operator=(const SignalHold&) = delete;

private:
    static constexpr std::array<int, 3> kSignals = {SIGTERM, SIGHUP, SIGINT};
    static void record(int sig)
    {
        for (std::size_t i = 0; i < kSignals.size(); ++i)
            if (kSignals[i] == sig)
                caught_ = caught_ | (1 << i);
    }
    static inline volatile std::sig_atomic_t caught_ = 0;
    std::array<struct sigaction, 3> old_ {};
};

}  // namespace brindlex
