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

/** A text of at most so many bytes and "..." behind it, or the whole text if it has no more. */
std::string Beginning(const std::string& text, std::size_t most);

/** Bytes as ShortText() has them. Of a long array it shows the surroundings of one byte: "[86 bytes, from byte 5: ...".
 */
std::string ShortBytes(std::span<const std::uint8_t> bytes, std::size_t shown = 0);

} // namespace kiv::simulator
