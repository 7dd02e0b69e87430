#pragma once

#include "page/History.h"

#include <cstdint>
#include <string>

namespace kiv::sandbox {

/// Returns the messages among the lines as a capture file of link type D-Bus. What a recording does not know of a
/// message, such as the unique name of its sender, is made up. Lines that are not messages, or that no bus could carry,
/// are left out.
std::string WritePcap(const History& history, std::int64_t beginMicroseconds);

} // namespace kiv::sandbox
