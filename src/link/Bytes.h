#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <vector>

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

// The bytes of a value as it lies in memory.
template <typename Value>
Bytes BytesOf(const Value& value)
{
    static_assert(std::is_trivially_copyable_v<Value>);
    return {reinterpret_cast<const unsigned char*>(&value), sizeof value};
}

// The bytes of a number of elements that lie back to back; as many as can be if their length does not fit in memory.
inline Bytes BytesOf(const unsigned char* first, std::size_t elementSize, int count)
{
    const auto length = std::uint64_t{elementSize} * static_cast<unsigned>(count);
    return {first, static_cast<std::size_t>(std::min<std::uint64_t>(length, std::numeric_limits<std::size_t>::max()))};
}

// The bytes of records that lie back to back.
template <typename Record>
Bytes BytesOf(const std::vector<Record>& records)
{
    return {reinterpret_cast<const unsigned char*>(records.data()), records.size() * sizeof(Record)};
}

// A byte payload to be sent; false if there was no memory for it. A length that does not fit in an int counts as one
// for which there is none.
class Payload {
public:
    // The parts back to back.
    Payload(std::initializer_list<Bytes> parts)
    {
        std::uint64_t size = 0;
        for (const Bytes part : parts) {
            size += part.size();
        }
        if (size > std::numeric_limits<int>::max()) {
            return;
        }
        size_ = static_cast<std::size_t>(size);
        // An empty payload is sent, too, if calloc() gives a pointer for 0 bytes.
        // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI)
        memory_.reset(static_cast<unsigned char*>(std::calloc(size_, 1)));
        unsigned char* end = memory_.get();
        for (const Bytes part : parts) {
            end = end != nullptr ? std::copy(part.begin(), part.end(), end) : nullptr;
        }
    }

    explicit operator bool() const { return memory_ != nullptr; }
    std::size_t size() const { return size_; }
    // The memory, which the caller then frees.
    unsigned char* Release() { return memory_.release(); }

private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    std::size_t size_ = 0;
    std::unique_ptr<unsigned char, Free> memory_;
};

// The whole records in a byte array, copied behind what a list holds; bytes that make no whole record are left out.
// Returns their number. The list grows as by push_back(): it has that capacity in the end, and those records for which
// there was memory if there is not enough.
template <typename Record>
int AppendRecords(std::vector<Record>& list, Bytes bytes)
{
    static_assert(alignof(Record) == 1 && std::is_trivially_copyable_v<Record>);
    const std::size_t count = bytes.size() / sizeof(Record);
    const auto* next = reinterpret_cast<const Record*>(bytes.data());
    const Record* const end = next + count;
    std::size_t capacity = list.capacity();
    while (capacity < list.size() + count) {
        capacity = std::max<std::size_t>(1, 2 * capacity);
    }
    try {
        list.reserve(std::min(capacity, list.max_size())); // in one step rather than in many
    } catch (const std::bad_alloc&) {
        // Step by step, then, as far as it goes.
    }
    while (next != end) {
        list.push_back(*next++);
        // Those for which it need not grow, at once.
        const std::size_t room = std::min(static_cast<std::size_t>(end - next), list.capacity() - list.size());
        list.insert(list.end(), next, next + room);
        next += room;
    }
    return static_cast<int>(count);
}

} // namespace kiv::link
