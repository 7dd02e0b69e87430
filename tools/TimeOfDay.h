#pragma once

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <string>

namespace kiv {

inline int MillisecondsOfSecond(std::chrono::system_clock::time_point time)
{
    return static_cast<int>(time.time_since_epoch() / std::chrono::milliseconds(1) % 1000);
}

// Returns the local time of day in the form of the log of the platform stand-in, so that both can be read side by side.
inline std::string TimeOfDay(std::chrono::system_clock::time_point time)
{
    const std::tm local = fmt::localtime(std::chrono::system_clock::to_time_t(time));
    return fmt::format("{:%T}.{:03}", local, MillisecondsOfSecond(time));
}

} // namespace kiv
