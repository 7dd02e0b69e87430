#pragma once

#include <cstddef>

// What the test's process has of the system.
namespace kiv::test {

std::size_t OpenFiles();

// All but those of GLib's thread pool, which come and go.
std::size_t Threads();

bool IsMapped(const char* library);

} // namespace kiv::test
