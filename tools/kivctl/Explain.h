#pragma once

#include "tools/kivctl/Command.h"

#include <string>

namespace kiv::ctl {

// Shows a log, with an explanation below each line of the library. The path "-" means stdin.
Result Explain(const std::string& path, const Output& output);

} // namespace kiv::ctl
