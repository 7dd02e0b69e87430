#pragma once

#include <algorithm>
#include <cctype>
#include <string>

namespace kiv {

// Returns the text with control characters replaced, for a terminal.
inline std::string Harmless(std::string text)
{
    std::ranges::replace_if(
        text, [](unsigned char character) { return std::iscntrl(character) != 0; }, '?');
    return text;
}

} // namespace kiv
