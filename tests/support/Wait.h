#pragma once

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

// Waits with a limit. A wait in vain fails the test, and the message names the awaited condition. The program's main
// function also limits each test as a whole, for hangs in the tested code.
namespace kiv::test {

// This is longer than any awaited condition takes on a busy machine, and shorter than the runner's limit for a test.
inline constexpr std::chrono::seconds kPatience{60};

// Fails with "waited 60 s for ...". Prints that before it throws, because a destructor may hang for the same reason.
[[noreturn]] void GiveUp(const std::string& awaited);

// Returns when the condition is true. Checks it every millisecond.
template <typename Condition>
void WaitUntil(const std::string& awaited, Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            GiveUp(awaited);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// Returns, with the lock held, when the condition is true. Checks it at each notification.
template <typename Condition>
void WaitUntil(
    const std::string& awaited, std::condition_variable& changed, std::unique_lock<std::mutex>& lock,
    Condition condition)
{
    if (!changed.wait_for(lock, kPatience, condition)) {
        GiveUp(awaited);
    }
}

// Returns the future's value when it is there.
template <typename Future>
auto Await(const std::string& awaited, Future&& future)
{
    if (future.wait_for(kPatience) != std::future_status::ready) {
        GiveUp(awaited);
    }
    return std::forward<Future>(future).get();
}

// Returns when the descriptor has bytes to read, or its other end was closed.
void WaitUntilReadable(const std::string& awaited, int descriptor);

// Returns the wait status of a child process when it has ended. Kills it if it does not end.
int WaitForExit(const std::string& awaited, int pid);

} // namespace kiv::test
