#pragma once

#include "simulator/Glib.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kiv::simulator {

using Mac = std::array<std::uint8_t, 6>;
using Ip = std::array<std::uint8_t, 4>;

std::string Text(const Mac& mac);
std::string Text(const Ip& ip);
// These read what people write: "02:4b:49:56:00:01", "192.168.0.21", "01 ff" with or without blanks. They return
// nothing for another text.
std::optional<Mac> ParseMac(std::string_view text);
std::optional<Ip> ParseIp(std::string_view text);
std::optional<Bytes> ParseHex(std::string_view text);

// Takes fields off the front of bytes. Throws std::out_of_range if a field is missing.
class Reader {
public:
    explicit Reader(const Bytes& bytes) : bytes_(bytes) {}

    std::int32_t Int32();
    Bytes Rest();
    void Skip(std::size_t count) { at_ += count; }

    template <typename Array>
    Array Take()
    {
        Array bytes;
        for (std::uint8_t& byte : bytes) {
            byte = bytes_.at(at_++);
        }
        return bytes;
    }

private:
    const Bytes& bytes_;
    std::size_t at_ = 0;
};

// Writes packed, little-endian fields, one behind the other.
class Writer {
public:
    Writer& Int32(std::int32_t value);
    // Writes as many whole characters as fit before the NUL that ends the field.
    Writer& Text(std::string_view text, std::size_t width);
    // Fills up with zeros to this size, or cuts.
    Writer& ToSize(std::size_t size);

    template <typename Range>
    Writer& Append(const Range& bytes)
    {
        bytes_.insert(bytes_.end(), std::begin(bytes), std::end(bytes));
        return *this;
    }

    const Bytes& Written() const { return bytes_; }

private:
    Bytes bytes_;
};

} // namespace kiv::simulator
