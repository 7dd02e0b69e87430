#pragma once

#include "simulator/Glib.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace kiv::simulator {

/**
 * A value as text, such as "('Kitchen', [02 4b])" for a tuple. Bytes are in hexadecimal, and long byte arrays and
 * strings are cut.
 */
std::string ShortText(GVariant* value);

/** Bytes as ShortText() has them. Of a long array it shows the surroundings of one byte: "[86 bytes, from byte 5: ...".
 */
std::string ShortBytes(std::span<const std::uint8_t> bytes, std::size_t shown = 0);

} // namespace kiv::simulator
