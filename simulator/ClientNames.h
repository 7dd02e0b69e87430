#pragma once

#include <gio/gio.h>

#include <string>

namespace kiv::simulator {

// The id of a client follows each.
inline constexpr char kClientNamePrefix[] = "org.lumra.tv.networkspeaker.client.";
inline constexpr char kClientPathPrefix[] = "/org/lumra/tv/networkspeaker/client/";
inline constexpr char kClientInterfacePrefix[] = "org.lumra.tv.networkspeaker.client.interface.";

// The bus name and the object of a client, formed from its id.
struct ClientNames {
    explicit ClientNames(const std::string& id)
        : name(kClientNamePrefix + id), path(kClientPathPrefix + id), interface(kClientInterfacePrefix + id)
    {
    }

    // Returns whether the names are valid in D-Bus.
    bool Fit() const
    {
        return g_dbus_is_name(name.c_str()) != FALSE && g_variant_is_object_path(path.c_str()) != FALSE &&
               g_dbus_is_interface_name(interface.c_str()) != FALSE;
    }

    std::string name;
    std::string path;
    std::string interface;
};

} // namespace kiv::simulator
