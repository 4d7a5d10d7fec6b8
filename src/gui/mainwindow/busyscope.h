// Keeps a walk or run of the window from starting inside another for as
// long as it lasts.
#pragma once

namespace brindlex::gui {

class BusyScope {
public:
    explicit BusyScope(int& counter) : counter(counter) { ++counter; }
    ~BusyScope() { --counter; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    int& counter;
};

}  // namespace brindlex::gui
