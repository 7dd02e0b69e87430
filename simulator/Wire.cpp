#include "simulator/Wire.h"

#include "tools/WrittenBytes.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

namespace kiv::simulator {

std::optional<Mac> ParseMac(std::string_view text)
{
    return ParseMacAddress(text, 1);
}

std::optional<Ip> ParseIp(std::string_view text)
{
    return ParseIpAddress(std::string(text));
}

std::optional<Bytes> ParseHex(std::string_view text)
{
    return ParseHexBytes(text);
}

std::string Text(const Mac& mac)
{
    return fmt::format("{:02x}", fmt::join(mac, ":"));
}

std::string Text(const Ip& ip)
{
    return fmt::format("{}", fmt::join(ip, "."));
}

std::int32_t Reader::Int32()
{
    const auto bytes = Take<std::array<std::uint8_t, 4>>();
    std::uint32_t value = 0;
    for (unsigned i = 0; i < bytes.size(); ++i) {
        value |= static_cast<std::uint32_t>(bytes[i]) << (8 * i);
    }
    return static_cast<std::int32_t>(value);
}

Bytes Reader::Rest()
{
    if (at_ > bytes_.size()) {
        throw std::out_of_range("no such field");
    }
    Bytes rest(std::next(bytes_.begin(), static_cast<std::ptrdiff_t>(at_)), bytes_.end());
    at_ = bytes_.size();
    return rest;
}

Writer& Writer::Int32(std::int32_t value)
{
    const auto bits = static_cast<std::uint32_t>(value);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        bytes_.push_back(static_cast<std::uint8_t>(bits >> shift));
    }
    return *this;
}

Writer& Writer::Text(std::string_view text, std::size_t width)
{
    const auto continues = [text](std::size_t at) { return at < text.size() && (text[at] & 0xc0) == 0x80; };
    std::size_t length = std::min(text.size(), width - 1);
    while (length > 0 && continues(length)) {
        --length;
    }
    Append(text.substr(0, length));
    return ToSize(bytes_.size() + width - length);
}

Writer& Writer::ToSize(std::size_t size)
{
    bytes_.resize(size);
    return *this;
}

} // namespace kiv::simulator
