#pragma once

#include <glib.h>

#include <string>

namespace kiv::sandbox {

/// The text that a GLib function has made for its caller.
inline std::string Owned(char* text)
{
    std::string copy = text;
    g_free(text);
    return copy;
}

} // namespace kiv::sandbox
