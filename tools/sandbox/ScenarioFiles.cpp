#include "tools/sandbox/ScenarioFiles.h"

#include "simulator/Scenario.h"
#include "tools/Nearest.h"

#include <fmt/format.h>

#include <set>
#include <vector>

namespace kiv::sandbox {

namespace {

namespace fs = std::filesystem;

fs::path Folder()
{
    // The scenarios are installed in the first folder. In a build tree, they are beside the simulator.
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path installed = here / KIV_SCENARIO_FOLDER;
    return fs::exists(installed) ? installed : here / "../../simulator/scenarios";
}

std::set<fs::path> Files()
{
    std::set<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(Folder())) {
        files.insert(entry.path());
    }
    return files;
}

// Returns the path of a scenario of the sandbox or of a file. Throws FileError if there is neither.
fs::path FindScenario(const std::string& nameOrFile)
{
    if (nameOrFile.find('/') != std::string::npos || fs::exists(nameOrFile)) {
        return fs::absolute(nameOrFile);
    }
    const fs::path own = Folder() / (nameOrFile + ".json");
    if (!fs::exists(own)) {
        std::vector<std::string> names;
        for (const fs::path& file : Files()) {
            names.push_back(file.stem());
        }
        throw simulator::FileError(fmt::format(
            "there is no scenario and no file \"{}\"{} (kiv-sandbox --list-scenarios prints the scenarios)", nameOrFile,
            DidYouMean(nameOrFile, names)));
    }
    return own.lexically_normal();
}

} // namespace

ScenarioText ReadScenarioText(const std::string& nameOrFile)
{
    if (nameOrFile == "-") {
        return {"stdin", simulator::ReadInput(simulator::kLargestScenario), false};
    }
    const fs::path file = FindScenario(nameOrFile);
    return {file, simulator::ReadText(file, simulator::kLargestScenario), fs::is_regular_file(file)};
}

std::string ListScenarios()
{
    std::string list;
    for (const fs::path& file : Files()) {
        const std::string description =
            simulator::ReadScenario(file, simulator::ReadText(file, simulator::kLargestScenario)).description;
        list += fmt::format("{:<20}{}\n", file.stem().string(), description);
    }
    return list;
}

fs::path LayoutFile()
{
    return (Folder() / "../layout.json").lexically_normal();
}

} // namespace kiv::sandbox
