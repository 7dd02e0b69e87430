#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace kiv::ctl {

// Runs a task on a thread of its own. When SIGINT or SIGTERM comes, when the time is up, or when the task says that it
// is ending, it is told to stop, from the calling thread. Returns whether it has ended a moment later. Otherwise a call
// of the library's holds it up, which cannot be cancelled: the task is left behind, and the process must end without
// it. From now on, the two signals are blocked in this thread and in those that it creates.
bool RunUntilStopped(
    const std::function<void(const std::function<void()>& ending)>& task, const std::function<void()>& stop,
    std::optional<std::chrono::milliseconds> limit);

} // namespace kiv::ctl
