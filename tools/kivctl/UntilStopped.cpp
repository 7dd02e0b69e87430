#include "tools/kivctl/UntilStopped.h"

#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <future>
#include <memory>
#include <thread>

namespace kiv::ctl {
namespace {

// A task that no call holds up ends within this time, in which it takes its subscription back.
constexpr std::chrono::seconds kGrace{1};

class StopSignals {
public:
    StopSignals()
    {
        sigemptyset(&signals_);
        sigaddset(&signals_, SIGINT);
        sigaddset(&signals_, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    }

    // Waits for one of the signals, but not longer than the limit.
    void Await(std::optional<std::chrono::milliseconds> limit) const
    {
        const auto now = [] { return std::chrono::steady_clock::now(); };
        const auto end = now() + limit.value_or(std::chrono::milliseconds(0));
        do {
            const auto left = std::max<std::chrono::nanoseconds>(end - now(), std::chrono::nanoseconds(0));
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
            const timespec time = {static_cast<time_t>(seconds.count()), static_cast<long>((left - seconds).count())};
            if (sigtimedwait(&signals_, nullptr, limit ? &time : nullptr) >= 0) {
                return;
            }
        } while (errno == EINTR); // when the process was suspended and goes on
    }

private:
    sigset_t signals_{};
};

} // namespace

bool RunUntilStopped(
    const std::function<void(const std::function<void()>& ending)>& task, const std::function<void()>& stop,
    std::optional<std::chrono::milliseconds> limit)
{
    const StopSignals signals;
    const std::function<void()> wake = [waiting = pthread_self()] { pthread_kill(waiting, SIGINT); };
    const auto ended = std::make_shared<std::promise<void>>();
    const std::future<void> end = ended->get_future();
    std::thread thread([task, wake, ended] {
        task(wake);
        ended->set_value();
        wake();
    });
    signals.Await(limit);
    stop();
    const bool hasEnded = end.wait_for(kGrace) == std::future_status::ready;
    if (hasEnded) {
        thread.join();
    } else {
        thread.detach();
    }
    return hasEnded;
}

} // namespace kiv::ctl
