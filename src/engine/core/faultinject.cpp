#include "engine/core/faultinject.h"

#include <csignal>
#include <mutex>

namespace brindlex::faultinject {

namespace {

struct State {
    bool armed = false;
    Plan plan;
    std::vector<std::string> steps;
    std::mutex mutex;   // the writes of a replace may come from several threads
};

State& state()
{
    static State s;
    return s;
}

}  // namespace

void arm(const Plan& plan)
{
    State& s = state();
    s.armed = true;
    s.plan = plan;
    s.steps.clear();
}

void disarm()
{
    state().armed = false;
}

const std::vector<std::string>& log()
{
    return state().steps;
}

int fault(const char* step)
{
    State& s = state();
    if (!s.armed)
        return 0;
    std::lock_guard lock(s.mutex);
    s.steps.emplace_back(step);
    if (static_cast<int>(s.steps.size()) == s.plan.signalAt)
        std::raise(s.plan.signal);
    if (static_cast<int>(s.steps.size()) == s.plan.failAt)
        return s.plan.code;
    if (!s.plan.alwaysStep.empty() && s.plan.alwaysStep == step)
        return s.plan.alwaysCode;
    return 0;
}

}  // namespace brindlex::faultinject
