#pragma once

#include "tools/sandbox/page/History.h"

#include <cstdint>
#include <string>

namespace kiv::sandbox {

// Returns the messages among the lines as a capture file of link type D-Bus. A recording lacks serial numbers and the
// names of connections, so they are invented. Lines of a log are left out, and so are messages that no bus can carry.
std::string WritePcap(const History& history, std::int64_t beginMicroseconds);

} // namespace kiv::sandbox
