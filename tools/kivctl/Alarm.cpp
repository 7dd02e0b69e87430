#include "tools/kivctl/Alarm.h"

#include <condition_variable>
#include <csignal>
#include <mutex>
#include <utility>

namespace kiv::ctl {

Alarm::Alarm(std::chrono::milliseconds limit, std::function<void()> ring)
{
    // The alarm's thread blocks all signals, so that other threads handle them.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    watcher_ = std::jthread([limit, ring = std::move(ring)](const std::stop_token& destroyed) {
        std::mutex mutex;
        std::unique_lock lock(mutex);
        std::condition_variable_any().wait_for(lock, destroyed, limit, [] { return false; });
        if (!destroyed.stop_requested()) {
            ring();
        }
    });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

} // namespace kiv::ctl
