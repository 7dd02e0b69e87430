#pragma once

#include <atomic>

namespace kiv::endurance {

/*
 * What of the heap is in use. Counted by CountedHeap.cpp in programs that it is linked into; nothing in the others.
 */
struct Heap {
    std::atomic<long> bytes;
    std::atomic<long> blocks;
};

inline constinit Heap g_heap;

} // namespace kiv::endurance
