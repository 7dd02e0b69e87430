#include "endurance/Heap.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

// Replaces the C library's allocation functions, for the program and all its libraries. Counts exactly the bytes that
// were asked for.

// Other names of the C library's own functions.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void __libc_free(void* block);

using kiv::endurance::g_heap;

namespace {

// A header that is right before the caller's memory.
struct Header {
    void* block;
    std::size_t size;
};

Header& HeaderOf(void* memory)
{
    return static_cast<Header*>(memory)[-1];
}

void* Allocate(std::size_t size, std::size_t alignment = alignof(std::max_align_t))
{
    alignment = std::max(alignment, alignof(std::max_align_t));
    if (size > std::numeric_limits<std::size_t>::max() - alignment - sizeof(Header)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const block = __libc_malloc(sizeof(Header) + size + alignment);
    if (block == nullptr) {
        return nullptr;
    }
    const std::size_t beyond = (reinterpret_cast<std::uintptr_t>(block) + sizeof(Header)) % alignment;
    void* const memory = static_cast<char*>(block) + sizeof(Header) + (beyond == 0 ? 0 : alignment - beyond);
    HeaderOf(memory) = {block, size};
    g_heap.bytes += static_cast<long>(size);
    ++g_heap.blocks;
    return memory;
}

void Release(void* memory)
{
    if (memory != nullptr) {
        const Header header = HeaderOf(memory);
        g_heap.bytes -= static_cast<long>(header.size);
        --g_heap.blocks;
        __libc_free(header.block);
    }
}

} // namespace

#pragma GCC visibility push(default)

extern "C" {

void* malloc(std::size_t size) noexcept
{
    return Allocate(size);
}

void free(void* memory) noexcept
{
    Release(memory);
}

void* calloc(std::size_t count, std::size_t size) noexcept
{
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* const memory = Allocate(bytes);
    return memory != nullptr ? std::memset(memory, 0, bytes) : nullptr;
}

void* realloc(void* memory, std::size_t size) noexcept
{
    if (memory != nullptr && size == 0) {
        Release(memory);
        return nullptr;
    }
    void* const moved = Allocate(size);
    if (moved != nullptr && memory != nullptr) {
        std::memcpy(moved, memory, std::min(size, HeaderOf(memory).size));
        Release(memory);
    }
    return moved;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept
{
    return Allocate(size, alignment);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept
{
    return Allocate(size, alignment);
}

int posix_memalign(void** memory, std::size_t alignment, std::size_t size) noexcept
{
    *memory = Allocate(size, alignment);
    return *memory != nullptr ? 0 : ENOMEM;
}

std::size_t malloc_usable_size(void* memory) noexcept
{
    return memory != nullptr ? HeaderOf(memory).size : 0;
}
}

#pragma GCC visibility pop
