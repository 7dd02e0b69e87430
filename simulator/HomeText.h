#pragma once

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <vector>

namespace kiv::simulator {

// Returns one line for each speaker, and for each other thing in a home, from the answer of Show.
std::vector<std::string> DescribeHome(const nlohmann::json& home);

} // namespace kiv::simulator
