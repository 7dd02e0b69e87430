#pragma once

#include "Command.h"

namespace kiv::ctl {

// Goes the way that calls and events take, step by step, and shows after each what works, what does not, and what to do
// about it.
Result Examine(const Output& output);

} // namespace kiv::ctl
