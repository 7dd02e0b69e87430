#pragma once

#include <fmt/format.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace kiv::sandbox {

// Returns the folder for temporary files. Throws std::runtime_error if the environment names something that is not a
// folder.
inline std::filesystem::path TemporaryFolder()
{
    std::error_code error;
    std::filesystem::path folder = std::filesystem::temp_directory_path(error);
    if (error) {
        const char* const given = std::getenv("TMPDIR");
        throw std::runtime_error(fmt::format("TMPDIR must be a directory, got \"{}\"", given == nullptr ? "" : given));
    }
    return folder;
}

} // namespace kiv::sandbox
