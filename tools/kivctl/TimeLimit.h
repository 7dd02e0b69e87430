#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

namespace kiv::ctl {

// Ends the process with kTimedOut when the time is up, unless it is destroyed before. The library's calls cannot be
// interrupted.
class TimeLimit {
public:
    TimeLimit(std::optional<std::chrono::milliseconds> limit, std::function<void()> sayWhy);
    ~TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

private:
    void Watch(std::chrono::milliseconds limit, const std::function<void()>& sayWhy);

    std::mutex mutex_;
    std::condition_variable changed_;
    bool finished_ = false;
    std::thread watcher_;
};

} // namespace kiv::ctl
