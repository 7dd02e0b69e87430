#pragma once

#include <glib.h>

#include <string>

namespace kiv::sandbox {

// Returns a copy of a text that a GLib function has allocated, and frees the text.
inline std::string Owned(char* text)
{
    std::string copy = text;
    g_free(text);
    return copy;
}

} // namespace kiv::sandbox
