#pragma once

#include "link/Owners.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>

namespace kiv::fuzz {

// What is said about bytes here, and in the targets, is said in other words than the library's, which it is to test.
using Bytes = std::span<const unsigned char>;

// What there is of a part.
inline Bytes Part(Bytes bytes, std::size_t begin, std::size_t size)
{
    begin = std::min(begin, bytes.size());
    return bytes.subspan(begin, std::min(size, bytes.size() - begin));
}

inline Bytes Behind(Bytes bytes, std::size_t begin)
{
    return Part(bytes, begin, bytes.size());
}

// In host byte order; what is missing is zero.
inline std::int32_t IntAt(Bytes bytes, std::size_t begin)
{
    std::int32_t value = 0;
    std::ranges::copy(Part(bytes, begin, sizeof value), reinterpret_cast<unsigned char*>(&value));
    return value;
}

// Takes an input apart from its front; where it has ended, there are only zeros.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    std::uint8_t Byte()
    {
        const std::uint8_t byte = rest_.empty() ? 0 : rest_.front();
        rest_ = Behind(rest_, 1);
        return byte;
    }

    // Up to a NUL, which is taken too, or to the end.
    std::string Text()
    {
        std::string text(rest_.begin(), std::ranges::find(rest_, '\0'));
        rest_ = Behind(rest_, text.size() + 1);
        return text;
    }

    // The same, but made valid, as all text is that comes over the bus.
    std::string Utf8()
    {
        const std::unique_ptr<char, link::Releaser<g_free>> valid(g_utf8_make_valid(Text().c_str(), -1));
        return valid.get();
    }

    Bytes Rest() const { return rest_; }

private:
    Bytes rest_;
};

} // namespace kiv::fuzz
