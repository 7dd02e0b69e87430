#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace kiv::simulator {

/** Describes each speaker of a home, and whatever else there is to see in it, a line each, from what Show answers. */
std::vector<std::string> DescribeHome(const nlohmann::json& home);

} // namespace kiv::simulator
