#pragma once

#include <string>

namespace kiv::ctl {

// A command line that shows the command of that name, such as "volume set". Empty for the library's functions.
std::string ExampleOf(const std::string& command);

} // namespace kiv::ctl
