#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace kiv::ctl {

// Calls a function on a thread of its own when the time is up, unless the object is destroyed before. The destructor
// waits for a function that runs.
class Alarm {
public:
    Alarm(std::chrono::milliseconds limit, std::function<void()> ring);
    ~Alarm();
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool finished_ = false;
    std::thread watcher_;
};

} // namespace kiv::ctl
