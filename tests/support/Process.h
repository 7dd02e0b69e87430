#pragma once

#include <cstddef>

// Counts the system resources of the test's process.
namespace kiv::test {

std::size_t OpenFiles();

// Returns the number of threads, without those of GLib's thread pool, which come and go.
std::size_t Threads();

bool IsMapped(const char* library);

} // namespace kiv::test
