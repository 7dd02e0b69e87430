#pragma once

#include "Alarm.h"

#include <chrono>
#include <functional>
#include <optional>

namespace kiv::ctl {

// Ends the process with kTimedOut when the time is up, unless it is destroyed before. The library's calls cannot be
// interrupted.
class TimeLimit {
public:
    TimeLimit(std::optional<std::chrono::milliseconds> limit, std::function<void()> sayWhy);

private:
    std::optional<Alarm> alarm_;
};

} // namespace kiv::ctl
