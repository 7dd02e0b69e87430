#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace kiv::simulator {

// Returns the width of a column of this width that gets another text.
std::size_t Widened(std::size_t width, const std::string& text);

// Returns one line for each speaker, and for each other thing in a home, from the answer of Show.
std::vector<std::string> DescribeHome(const nlohmann::json& home);

} // namespace kiv::simulator
