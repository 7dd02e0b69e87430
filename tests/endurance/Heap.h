#pragma once

#include <atomic>

namespace kiv::endurance {

// The used part of the heap. CountedHeap.cpp counts it in programs that it is linked into; in others, it stays zero.
struct Heap {
    std::atomic<long> bytes;
    std::atomic<long> blocks;
};

inline constinit Heap g_heap;

} // namespace kiv::endurance
