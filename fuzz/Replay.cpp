// Runs a target on stored inputs. The arguments are files, and folders of files.

#include "fuzz/Target.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

// Runs the target on a file, or on all files of a folder. Returns how many there are.
int Run(const fs::path& path)
{
    if (fs::is_directory(path)) {
        int count = 0;
        for (const fs::directory_entry& entry : fs::directory_iterator(path)) {
            count += Run(entry.path());
        }
        return count;
    }
    std::ifstream stream(path, std::ios::binary);
    const std::vector<char> content(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        throw std::runtime_error(path.string() + " cannot be read");
    }
    // If the target crashes, the last line on stderr names the input.
    std::fprintf(stderr, "%s\n", path.c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(content.data()), content.size());
    return 1;
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
            if (Run(argv[i]) == 0) {
                throw std::runtime_error(std::string(argv[i]) + " is empty");
            }
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s: %s\n", argv[0], failure.what());
        return 1;
    }
    return 0;
}
