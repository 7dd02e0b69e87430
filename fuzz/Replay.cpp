// Runs a target on stored inputs. The arguments are files, and folders of files.

#include "Target.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <vector>

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Files(const fs::path& path)
{
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    if (files.empty()) {
        throw std::runtime_error(path.string() + " is empty");
    }
    return files;
}

void Run(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    const std::vector<char> content(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        throw std::runtime_error(file.string() + " cannot be read");
    }
    // If the target crashes, the last line on stderr names the input.
    std::fprintf(stderr, "%s\n", file.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
}

} // namespace

int main(int argc, char** argv)
{
    LLVMFuzzerInitialize(&argc, &argv);
    try {
        if (argc < 2) {
            throw std::runtime_error("nothing to run");
        }
        for (int i = 1; i < argc; ++i) {
            for (const fs::path& file : Files(argv[i])) {
                Run(file);
            }
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
    return 0;
}
