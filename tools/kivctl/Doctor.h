#pragma once

#include "tools/kivctl/Command.h"

namespace kiv::ctl {

// Checks each step of calls and events. After each, shows what works, what does not, and what to do about it.
Result Examine(const Output& output);

} // namespace kiv::ctl
