#include "TimeLimit.h"

#include "Command.h"

#include <cstdlib>
#include <utility>

namespace kiv::ctl {

TimeLimit::TimeLimit(std::optional<std::chrono::milliseconds> limit, std::function<void()> sayWhy)
{
    if (limit) {
        watcher_ = std::thread([this, limit = *limit, sayWhy = std::move(sayWhy)] { Watch(limit, sayWhy); });
    }
}

TimeLimit::~TimeLimit()
{
    {
        const std::scoped_lock lock(mutex_);
        finished_ = true;
    }
    changed_.notify_one();
    if (watcher_.joinable()) {
        watcher_.join();
    }
}

void TimeLimit::Watch(std::chrono::milliseconds limit, const std::function<void()>& sayWhy)
{
    std::unique_lock lock(mutex_);
    if (!changed_.wait_for(lock, limit, [this] { return finished_; })) {
        sayWhy();
        std::_Exit(kTimedOut);
    }
}

} // namespace kiv::ctl
