#pragma once

#include <arpa/inet.h>

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace kiv {

// Reads a byte of one or two hex digits, and of at least this many, and takes it off the front of the text. Returns
// nothing for another text.
inline std::optional<std::uint8_t> TakeHexByte(std::string_view& text, std::size_t leastDigits)
{
    std::uint8_t byte = 0;
    const char* const begin = text.data();
    const auto [end, error] = std::from_chars(begin, begin + text.size(), byte, 16);
    const auto digits = static_cast<std::size_t>(end - begin);
    if (error != std::errc() || digits < leastDigits || digits > 2) {
        return std::nullopt;
    }
    text.remove_prefix(digits);
    return byte;
}

// Reads a MAC address: six bytes of one or two hex digits with ':' between them, and at least this many digits each.
// Returns nothing for another text.
inline std::optional<std::array<std::uint8_t, 6>> ParseMacAddress(std::string_view text, std::size_t leastDigits)
{
    std::array<std::uint8_t, 6> address{};
    for (std::uint8_t& byte : address) {
        const bool isFirst = &byte == &address.front();
        if (!isFirst && !text.starts_with(':')) {
            return std::nullopt;
        }
        text.remove_prefix(isFirst ? 0 : 1);
        const auto read = TakeHexByte(text, leastDigits);
        if (!read) {
            return std::nullopt;
        }
        byte = *read;
    }
    return text.empty() ? std::optional(address) : std::nullopt;
}

// Reads an IPv4 address: four numbers with '.' between them, without leading zeros. Returns nothing for another text.
inline std::optional<std::array<std::uint8_t, 4>> ParseIpAddress(const std::string& text)
{
    std::array<std::uint8_t, 4> address{};
    // inet_pton() reads up to the first NUL.
    const bool isWhole = text.find('\0') == std::string::npos;
    return isWhole && inet_pton(AF_INET, text.c_str(), address.data()) == 1 ? std::optional(address) : std::nullopt;
}

// Reads bytes of two hex digits each, such as "01 ff". There may be blanks between bytes. Returns nothing for another
// text.
inline std::optional<std::vector<std::uint8_t>> ParseHexBytes(std::string_view text)
{
    std::vector<std::uint8_t> bytes;
    while (!text.empty()) {
        if (text.starts_with(' ')) {
            text.remove_prefix(1);
            continue;
        }
        std::string_view digits = text.substr(0, 2);
        const auto byte = TakeHexByte(digits, 2);
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(*byte);
        text.remove_prefix(2);
    }
    return bytes;
}

} // namespace kiv
