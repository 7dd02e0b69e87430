#include "support/Process.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace kiv::test {

std::size_t OpenFiles()
{
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::size_t Threads()
{
    std::size_t count = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        count += name.starts_with("pool") ? 0 : 1;
    }
    return count;
}

bool IsMapped(const char* library)
{
    std::ifstream maps("/proc/self/maps");
    const std::string name = std::filesystem::path(library).stem();
    for (std::string line; std::getline(maps, line);) {
        if (line.find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

} // namespace kiv::test
