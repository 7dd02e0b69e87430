#pragma once

#include <string>
#include <vector>

namespace kiv::simulator {

/** The feature of a TV is one of these; "absent" means that it cannot be read. */
inline const std::vector<std::string> kFeatures = {"on", "off", "absent"};

/**
 * Writes the file in which the TV's programs read whether it has network speakers. Throws BusError if there is no such
 * file, or the feature is none of kFeatures.
 */
void WriteFeature(const std::string& file, const std::string& feature);

} // namespace kiv::simulator
