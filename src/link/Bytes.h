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

// Copies as many bytes as both have, and leaves the rest of the target alone. Returns the number of bytes copied.
inline std::size_t CopyUpTo(std::span<unsigned char> target, Bytes source)
{
    const std::size_t count = std::min(target.size(), source.size());
    std::copy_n(source.begin(), count, target.begin());
    return count;
}

// Returns the bytes from an offset on, or none if the offset lies behind the end.
inline Bytes From(Bytes bytes, std::size_t offset)
{
    return bytes.subspan(std::min(offset, bytes.size()));
}

// Returns the record at the front of bytes, in host byte order. Bytes behind the end read as zero.
template <typename Record>
Record Front(Bytes bytes)
{
    static_assert(alignof(Record) == 1 && std::is_trivially_copyable_v<Record>);
    Record record{};
    if (!bytes.empty()) {
        std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
    }
    return record;
}

// Returns the bytes of a value as they lie in memory.
template <typename Value>
Bytes BytesOf(const Value& value)
{
    static_assert(std::is_trivially_copyable_v<Value>);
    return {reinterpret_cast<const unsigned char*>(&value), sizeof value};
}

// Returns the bytes of elements that lie back to back. A length that does not fit in std::size_t becomes the largest
// that does.
inline Bytes BytesOf(const unsigned char* first, std::size_t elementSize, int count)
{
    const auto length = std::uint64_t{elementSize} * static_cast<unsigned>(count);
    return {first, static_cast<std::size_t>(std::min<std::uint64_t>(length, std::numeric_limits<std::size_t>::max()))};
}

// Returns the bytes of a list's records, which lie back to back.
template <typename Record>
Bytes BytesOf(const std::vector<Record>& records)
{
    return {reinterpret_cast<const unsigned char*>(records.data()), records.size() * sizeof(Record)};
}

// The bytes of an argument. Converts to false if there was no memory for them, or if their length does not fit in an
// int.
class Payload {
public:
    // Copies the parts, one behind the other.
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
        // If calloc() returns a pointer for 0 bytes, the empty payload is sent.
        // NOLINTNEXTLINE(clang-analyzer-optin.portability.UnixAPI)
        memory_.reset(static_cast<unsigned char*>(std::calloc(size_, 1)));
        unsigned char* end = memory_.get();
        for (const Bytes part : parts) {
            end = end != nullptr ? std::copy(part.begin(), part.end(), end) : nullptr;
        }
    }

    explicit operator bool() const { return memory_ != nullptr; }
    std::size_t size() const { return size_; }
    // Hands over the memory, which the caller frees.
    unsigned char* Release() { return memory_.release(); }

private:
    struct Free {
        void operator()(void* memory) const { std::free(memory); }
    };

    std::size_t size_ = 0;
    std::unique_ptr<unsigned char, Free> memory_;
};

// Appends the whole records in a byte array to a list. Leaves out a rest that is shorter than a record. Returns the
// number of whole records. The list ends with the capacity that push_back() of each record would give it. If memory
// runs out, the list has the records for which there was memory, and std::bad_alloc is thrown.
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
        list.reserve(std::min(capacity, list.max_size())); // one allocation instead of several
    } catch (const std::bad_alloc&) {
        // The loop grows the list step by step, as far as the memory goes.
    }
    while (next != end) {
        list.push_back(*next++);
        // Copies the records for which there is room.
        const std::size_t room = std::min(static_cast<std::size_t>(end - next), list.capacity() - list.size());
        list.insert(list.end(), next, next + room);
        next += room;
    }
    return static_cast<int>(count);
}

} // namespace kiv::link
