#include "tools/kivctl/Alarm.h"

#include <csignal>
#include <utility>

namespace kiv::ctl {

Alarm::Alarm(std::chrono::milliseconds limit, std::function<void()> ring)
{
    // The alarm's thread blocks all signals, so that other threads handle them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    watcher_ = std::thread([this, limit, ring = std::move(ring)] {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, limit, [this] { return finished_; })) {
            lock.unlock();
            ring();
        }
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
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
