#pragma once

#include <chrono>
#include <functional>
#include <optional>

namespace kiv::ctl {

// Runs a task on a thread of its own. The calling thread tells the task to stop when SIGINT or SIGTERM arrives, when
// the time is up, or when the task says that it is ending. Returns whether the task has ended a moment later. If not, a
// call of the library holds it up, which cannot be cancelled: the task is left behind, and the process must end without
// it. The two signals stay blocked in this thread and in those that it creates.
bool RunUntilStopped(
    const std::function<void(const std::function<void()>& ending)>& task, const std::function<void()>& stop,
    std::optional<std::chrono::milliseconds> limit);

} // namespace kiv::ctl
