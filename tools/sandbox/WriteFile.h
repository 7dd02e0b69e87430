#pragma once

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace kiv::sandbox {

// Writes a file. Throws std::runtime_error if it cannot be written.
inline void WriteFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream file(path);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

} // namespace kiv::sandbox
