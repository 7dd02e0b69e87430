#pragma once

#include <string>

namespace kiv::simulator {

/**
 * Writes the file in which the TV's programs read whether it has network speakers: "on", "off", or "absent" if that
 * cannot be read. Throws BusError if there is no such file.
 */
void WriteFeature(const std::string& file, const std::string& feature);

} // namespace kiv::simulator
