#include "ScenarioFiles.h"

#include "simulator/Scenario.h"

#include <fmt/format.h>

#include <set>

namespace kiv::sandbox {

namespace {

namespace fs = std::filesystem;

fs::path Folder()
{
    // As installed; in a build tree, beside the simulator.
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    const fs::path installed = here / KIV_SCENARIO_FOLDER;
    return fs::exists(installed) ? installed : here / "../../simulator/scenarios";
}

} // namespace

fs::path FindScenario(const std::string& nameOrFile)
{
    const fs::path own = Folder() / (nameOrFile + ".json");
    const bool isName = nameOrFile.find('/') == std::string::npos && !fs::exists(nameOrFile);
    return isName && fs::exists(own) ? own.lexically_normal() : fs::absolute(nameOrFile);
}

std::string ListScenarios()
{
    std::set<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(Folder())) {
        files.insert(entry.path());
    }
    std::string list;
    for (const fs::path& file : files) {
        const std::string description = simulator::ReadScenario(file, simulator::ReadText(file)).description;
        list += fmt::format("{:<20}{}\n", file.stem().string(), description);
    }
    return list;
}

fs::path LayoutFile()
{
    return (Folder() / "../layout.json").lexically_normal();
}

} // namespace kiv::sandbox
