#pragma once

#include <filesystem>
#include <string>

namespace kiv::sandbox {

/// The file of a scenario that comes with the sandbox, if there is one of that name and no such file; otherwise the
/// file itself. Throws FileError for a name that is neither.
std::filesystem::path FindScenario(const std::string& nameOrFile);

/// Name and description of the scenarios that come with the sandbox, a line each.
std::string ListScenarios();

/// The file that describes the records of the simulator.
std::filesystem::path LayoutFile();

} // namespace kiv::sandbox
