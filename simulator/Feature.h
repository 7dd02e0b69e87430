#pragma once

#include <string>
#include <vector>

namespace kiv::simulator {

// The states of the TV's feature. "absent" means that the feature cannot be read.
inline const std::vector<std::string> kFeatures = {"on", "off", "absent"};

// Writes the file from which the TV's programs read whether it has network speakers. Throws BusError if no file is
// named, or if the feature is not one of kFeatures.
void WriteFeature(const std::string& file, const std::string& feature);

} // namespace kiv::simulator
