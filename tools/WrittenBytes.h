#pragma once

#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <system_error>
#include <vector>

namespace kiv {

// Reads the number of a byte, which has this many digits, and takes it off the front of the text. Returns nothing for
// another text.
inline std::optional<std::uint8_t> TakeByte(std::string_view& text, int base, std::size_t least, std::size_t most)
{
    std::uint8_t byte = 0;
    const char* const begin = text.data();
    const auto [end, error] = std::from_chars(begin, begin + text.size(), byte, base);
    const auto digits = static_cast<std::size_t>(end - begin);
    if (error != std::errc() || digits < least || digits > most) {
        return std::nullopt;
    }
    text.remove_prefix(digits);
    return byte;
}

// Reads an address: a number for each byte, with the separator between them. Returns nothing for another text.
template <std::size_t Size>
std::optional<std::array<std::uint8_t, Size>>
ParseAddress(std::string_view text, char separator, int base, std::size_t leastDigits, std::size_t mostDigits)
{
    std::array<std::uint8_t, Size> address{};
    for (std::uint8_t& byte : address) {
        const bool isFirst = &byte == &address.front();
        if (!isFirst && !text.starts_with(separator)) {
            return std::nullopt;
        }
        text.remove_prefix(isFirst ? 0 : 1);
        const auto read = TakeByte(text, base, leastDigits, mostDigits);
        if (!read) {
            return std::nullopt;
        }
        byte = *read;
    }
    return text.empty() ? std::optional(address) : std::nullopt;
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
        const auto byte = TakeByte(digits, 16, 2, 2);
        if (!byte) {
            return std::nullopt;
        }
        bytes.push_back(*byte);
        text.remove_prefix(2);
    }
    return bytes;
}

} // namespace kiv
