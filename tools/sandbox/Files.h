#pragma once

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace kiv::sandbox {

// Throws std::system_error for a system call that has failed.
[[noreturn]] inline void ThrowErrno(const std::string& what, int error = errno)
{
    throw std::system_error(error, std::generic_category(), what);
}

// Returns the text of a file. Empty if it cannot be read.
inline std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Writes a file. Throws std::runtime_error if it cannot be written.
inline void WriteFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream file(path);
    file << text;
    if (!file.flush()) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

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
