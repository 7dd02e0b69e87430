#pragma once

#include <array>

namespace kiv::sandbox {

// A file of the page, which is compiled into the program.
struct Asset {
    const char* path; // behind the token
    const char* type;
    const char* text;
};

extern const std::array<Asset, 3> kAssets;

} // namespace kiv::sandbox
