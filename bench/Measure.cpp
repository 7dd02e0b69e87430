#include "bench/Measure.h"

#include <sys/resource.h>

#include <barrier>
#include <chrono>
#include <ctime>
#include <exception>
#include <thread>

namespace kiv::bench {

namespace {

constexpr double kNanoseconds = 1e9;

double Nanoseconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) * kNanoseconds + static_cast<double>(time.tv_usec) * 1e3;
}

double ProcessTime(pid_t process)
{
    clockid_t clock = 0;
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        return 0;
    }
    return static_cast<double>(time.tv_sec) * kNanoseconds + static_cast<double>(time.tv_nsec);
}

double Now()
{
    return static_cast<double>(std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1));
}

} // namespace

Usage Meter::Read() const
{
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    const auto switches = static_cast<double>(used.ru_nvcsw + used.ru_nivcsw);
    return {Now(),   Nanoseconds(used.ru_utime), Nanoseconds(used.ru_stime), ProcessTime(daemon_), ProcessTime(server_),
            switches};
}

Block Measure(const Meter& meter, const Callers& callers, std::size_t active, const Request& request, int calls)
{
    Block block;
    block.latencies.reserve(static_cast<std::size_t>(calls));
    std::exception_ptr failure;
    Usage start;
    Usage end;
    bool started = false;
    std::barrier line(static_cast<std::ptrdiff_t>(active), [&]() noexcept {
        (started ? end : start) = meter.Read();
        started = true;
    });
    const auto run = [&](std::size_t number) {
        line.arrive_and_wait();
        try {
            for (int i = 0; i < calls; ++i) {
                const double before = Now();
                callers[number]->Call(request);
                if (number == 0) {
                    block.latencies.push_back(static_cast<float>((Now() - before) / 1e3));
                }
            }
        } catch (...) {
            if (number == 0) {
                failure = std::current_exception();
            }
        }
        line.arrive_and_wait();
    };
    std::vector<std::jthread> threads;
    for (std::size_t number = 0; number < active; ++number) {
        threads.emplace_back(run, number);
    }
    threads.clear();
    if (failure) {
        std::rethrow_exception(failure);
    }
    block.perCall = (end - start) / (static_cast<double>(active) * calls);
    return block;
}

} // namespace kiv::bench
