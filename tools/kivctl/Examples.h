#pragma once

#include <string>

namespace kiv::ctl {

// Returns a command line that shows the use of a command such as "volume set". Returns an empty text for the library's
// functions.
std::string ExampleOf(const std::string& command);

} // namespace kiv::ctl
