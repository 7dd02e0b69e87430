#pragma once

#include "Alarm.h"

#include <chrono>
#include <functional>
#include <optional>

namespace kiv::ctl {

// While it lives, this is what is said when the time is up, on another thread, in place of what a command says.
class AtTimeLimit {
public:
    using SayWhy = std::function<void(std::chrono::milliseconds limit)>;

    explicit AtTimeLimit(SayWhy sayWhy);
    // Waits for one that is being said.
    ~AtTimeLimit();
    AtTimeLimit(const AtTimeLimit&) = delete;
    AtTimeLimit& operator=(const AtTimeLimit&) = delete;

    // Tells whether there was one to say.
    static bool Say(std::chrono::milliseconds limit);
};

// Ends the process with kTimedOut when the time is up, unless it is destroyed before. The library's calls cannot be
// interrupted.
class TimeLimit {
public:
    TimeLimit(std::optional<std::chrono::milliseconds> limit, std::function<void()> sayWhy);

private:
    std::optional<Alarm> alarm_;
};

} // namespace kiv::ctl
