#pragma once

#include "tools/kivctl/Alarm.h"

#include <chrono>
#include <functional>
#include <optional>

namespace kiv::ctl {

// While the object lives, this function is called on another thread when the time is up, instead of the command's own
// output.
class AtTimeLimit {
public:
    using SayWhy = std::function<void(std::chrono::milliseconds limit)>;

    explicit AtTimeLimit(SayWhy sayWhy);
    // Waits for a function that runs.
    ~AtTimeLimit();
    AtTimeLimit(const AtTimeLimit&) = delete;
    AtTimeLimit& operator=(const AtTimeLimit&) = delete;

    // Calls the function, if there is one. Returns whether there is.
    static bool Say(std::chrono::milliseconds limit);
};

// Ends the process with kTimedOut when the time is up, unless the object is destroyed before. A call of the library
// cannot be interrupted.
class TimeLimit {
public:
    TimeLimit(std::optional<std::chrono::milliseconds> limit, std::function<void()> sayWhy);

private:
    std::optional<Alarm> alarm_;
};

} // namespace kiv::ctl
