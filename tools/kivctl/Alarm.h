#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace kiv::ctl {

// Calls a function on a thread of its own when the time is up, unless the object is destroyed before. The destructor
// waits for a function that runs.
class Alarm {
public:
    Alarm(std::chrono::milliseconds limit, std::function<void()> ring);

private:
    std::jthread watcher_;
};

} // namespace kiv::ctl
