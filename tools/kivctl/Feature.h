#pragma once

#include <string>

namespace kiv::ctl {

// Returns why the stand-in for the TV platform finds no answer in the file that KIV_SYSTEM_INFO_FILE names: "FILE:
// REASON". Returns an empty text if the variable names no file.
std::string WhyFeatureIsUnknown();

} // namespace kiv::ctl
