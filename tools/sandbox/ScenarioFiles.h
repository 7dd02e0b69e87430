#pragma once

#include <filesystem>
#include <string>

namespace kiv::sandbox {

// The text of a scenario, and where it is from.
struct ScenarioText {
    std::string name; // the file, or "stdin", for messages
    std::string text;
    bool isFile; // false for stdin or a pipe, which the simulator could not read again
};

// Reads stdin for "-". Reads a scenario of the sandbox if there is one of this name and no such file, and otherwise the
// file. Throws FileError if it cannot be read.
ScenarioText ReadScenarioText(const std::string& nameOrFile);

// Returns the names and descriptions of the sandbox's scenarios, each in a line.
std::string ListScenarios();

// Returns the layout file of the simulator's records.
std::filesystem::path LayoutFile();

} // namespace kiv::sandbox
