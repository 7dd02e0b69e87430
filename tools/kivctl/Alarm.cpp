#include "Alarm.h"

#include <utility>

namespace kiv::ctl {

Alarm::Alarm(std::chrono::milliseconds limit, std::function<void()> ring)
{
    watcher_ = std::thread([this, limit, ring = std::move(ring)] {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, limit, [this] { return finished_; })) {
            lock.unlock();
            ring();
        }
    });
}

Alarm::~Alarm()
{
    {
        const std::scoped_lock lock(mutex_);
        finished_ = true;
    }
    changed_.notify_one();
    watcher_.join();
}

} // namespace kiv::ctl
