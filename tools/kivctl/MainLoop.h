#pragma once

#include <chrono>
#include <functional>

namespace kiv::ctl {

// Runs the main context until that is so, though not longer than the limit. Returns whether it is so.
bool WaitUntil(const std::function<bool()>& isSo, std::chrono::milliseconds limit);

} // namespace kiv::ctl
