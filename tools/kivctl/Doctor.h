#pragma once

#include "Command.h"

namespace kiv::ctl {

// Goes the way that calls and events take, step by step, and says what works, what does not, and what to do about it.
Result Examine();

} // namespace kiv::ctl
