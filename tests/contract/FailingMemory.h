#pragma once

#include <cstddef>
#include <cstdint>

// Makes C++ allocations fail. A program with FailingMemory.cpp replaces the global allocation functions.
namespace kiv::test {

// Counts down the allocations of this thread. The one that makes it 0 fails: with 1, the next one fails.
extern thread_local int g_untilFailure;
// Makes all later allocations fail, too. The counter stays at 1 then.
extern thread_local bool g_failsOn;
// Makes allocations of more bytes fail on this thread.
extern thread_local std::size_t g_largest;

} // namespace kiv::test
