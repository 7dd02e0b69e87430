#pragma once

#include <chrono>
#include <functional>

namespace kiv::ctl {

// Runs the main context until the condition is true, but not longer than the limit. Returns whether it is true.
bool WaitUntil(const std::function<bool()>& isSo, std::chrono::milliseconds limit);

} // namespace kiv::ctl
