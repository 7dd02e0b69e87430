#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

namespace kiv::link {

using Bytes = std::span<const unsigned char>;

// Copies what there is; the rest of the target stays as it is. Returns the number of bytes copied.
inline std::size_t CopyUpTo(std::span<unsigned char> target, Bytes source)
{
    const std::size_t count = std::min(target.size(), source.size());
    std::copy_n(source.begin(), count, target.begin());
    return count;
}

// Bytes from an offset on; none where the offset lies behind the end.
inline Bytes From(Bytes bytes, std::size_t offset)
{
    return bytes.subspan(std::min(offset, bytes.size()));
}

// A 32-bit integer in host byte order at any address; absent bytes read as zero.
inline std::int32_t Int32At(Bytes bytes, std::size_t offset)
{
    unsigned char raw[sizeof(std::int32_t)] = {};
    CopyUpTo(raw, From(bytes, offset));
    std::int32_t value = 0;
    std::memcpy(&value, raw, sizeof value);
    return value;
}

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};
using Buffer = std::unique_ptr<unsigned char, Free>;

// Records back to back; null if there is no memory for them.
template <typename Record>
Buffer PackRecords(std::span<const Record> records)
{
    // NOLINTNEXTLINE(clang-analyzer-unix.MallocSizeof): bytes of records
    Buffer buffer(static_cast<unsigned char*>(std::calloc(records.size(), sizeof(Record))));
    if (buffer && !records.empty()) {
        std::memcpy(buffer.get(), records.data(), records.size_bytes());
    }
    return buffer;
}

} // namespace kiv::link
