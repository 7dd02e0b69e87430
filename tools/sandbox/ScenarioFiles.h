#pragma once

#include <filesystem>
#include <string>

namespace kiv::sandbox {

/// A scenario as it was given.
struct ScenarioText {
    std::string name; ///< the file, or "stdin", as messages have it
    std::string text;
    bool isFile; ///< not stdin or a pipe, of which the simulator could not read the text once more
};

/// Reads stdin for "-", the scenario that comes with the sandbox if there is one of that name and no such file, and
/// otherwise the file. Throws FileError if it cannot be read.
ScenarioText ReadScenarioText(const std::string& nameOrFile);

/// Name and description of the scenarios that come with the sandbox, a line each.
std::string ListScenarios();

/// The file that describes the records of the simulator.
std::filesystem::path LayoutFile();

} // namespace kiv::sandbox
