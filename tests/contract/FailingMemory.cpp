#include "contract/FailingMemory.h"

#include <cstdlib>
#include <new>

namespace kiv::test {

thread_local int g_untilFailure = 0;
thread_local bool g_failsOn = false;
thread_local std::size_t g_largest = SIZE_MAX;

} // namespace kiv::test

using namespace kiv::test;

// The function is not inlined, because gcc would report the inlined pair as a mismatch of malloc() and delete.
[[gnu::noinline]] void* operator new(std::size_t size)
{
    if (g_untilFailure > 0 && --g_untilFailure == 0) {
        g_untilFailure = g_failsOn ? 1 : 0;
        throw std::bad_alloc();
    }
    void* const memory = size > g_largest ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}
