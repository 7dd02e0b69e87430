#pragma once

#include "src/link/Owners.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kiv::fuzz {

// These functions decode bytes without the library's functions, because the targets test those.
using Bytes = std::span<const unsigned char>;

// Returns the bytes of a part, or as many of them as there are.
inline Bytes Part(Bytes bytes, std::size_t begin, std::size_t size)
{
    begin = std::min(begin, bytes.size());
    return bytes.subspan(begin, std::min(size, bytes.size() - begin));
}

inline Bytes Behind(Bytes bytes, std::size_t begin)
{
    return Part(bytes, begin, bytes.size());
}

// Reads an int in host byte order. Missing bytes are zero.
inline std::int32_t IntAt(Bytes bytes, std::size_t begin)
{
    std::int32_t value = 0;
    std::ranges::copy(Part(bytes, begin, sizeof value), reinterpret_cast<unsigned char*>(&value));
    return value;
}

// Takes values off the front of an input. Behind its end, there are only zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    std::uint8_t Byte()
    {
        const std::uint8_t byte = rest_.empty() ? 0 : rest_.front();
        rest_ = Behind(rest_, 1);
        return byte;
    }

    // Takes a text up to a NUL, and the NUL, or up to the end.
    std::string Text()
    {
        std::string text(rest_.begin(), std::ranges::find(rest_, '\0'));
        rest_ = Behind(rest_, text.size() + 1);
        return text;
    }

    // Does the same, but makes the text valid UTF-8, because all texts that come over the bus are.
    std::string Utf8()
    {
        const link::TextOwner valid(g_utf8_make_valid(Text().c_str(), -1));
        return valid.get();
    }

    Bytes Rest() const { return rest_; }

private:
    Bytes rest_;
};

} // namespace kiv::fuzz
