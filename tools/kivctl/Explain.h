#pragma once

#include "Command.h"

namespace kiv::ctl {

// Shows the log that stdin has, with an explanation below each line of the library.
Result Explain(const Output& output);

} // namespace kiv::ctl
