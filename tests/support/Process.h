#pragma once

#include <cstddef>

// Counts what the test's process holds of the system.
namespace kiv::test {

std::size_t OpenFiles();

// All but those of GLib's thread pool, which come and go.
std::size_t Threads();

bool IsMapped(const char* library);

} // namespace kiv::test
