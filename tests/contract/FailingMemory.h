#pragma once

#include <cstddef>
#include <cstdint>

// Allocations of C++ that fail. A program that has FailingMemory.cpp in it replaces the global allocation functions.
namespace kiv::test {

// Counts down the allocations of this thread, and fails the one at which it arrives at 0: 1 fails the very next one.
extern thread_local int g_untilFailure;
// Fails all that come after that one as well. It is at 1 then.
extern thread_local bool g_failsOn;
// Fails allocations of more bytes on this thread.
extern thread_local std::size_t g_largest;

} // namespace kiv::test
