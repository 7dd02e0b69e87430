#pragma once

#include "simulator/Glib.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kiv::simulator {

// Returns a value as text, such as "('Kitchen', [02 4b])" for a tuple. Bytes are in hexadecimal. Long byte arrays and
// strings are cut.
std::string ShortText(GVariant* value);

// Returns the whole text, or its first bytes and "..." if it has more than this number of bytes.
std::string Beginning(const std::string& text, std::size_t most);

// Returns bytes as ShortText() does. Of a long array, it shows the bytes around one: "[86 bytes, from byte 5: ...".
std::string ShortBytes(std::span<const std::uint8_t> bytes, std::size_t shown = 0);

} // namespace kiv::simulator
