#include "Bus.h"

namespace kiv::ctl {

ClientNames::ClientNames(const std::string& id)
    : name(kClientNamePrefix + id), path("/org/lumra/tv/networkspeaker/client/" + id),
      interface("org.lumra.tv.networkspeaker.client.interface." + id)
{
}

bool ClientNames::Fit() const
{
    return g_dbus_is_name(name.c_str()) != FALSE && g_variant_is_object_path(path.c_str()) != FALSE &&
           g_dbus_is_interface_name(interface.c_str()) != FALSE;
}

GDBusConnection* ConnectToSystemBus(GError** error, GCancellable* cancellable)
{
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, error);
    if (address == nullptr) {
        return nullptr;
    }
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, cancellable, error);
}

GVariant* CallBus(GDBusConnection* bus, const char* method, GVariant* arguments, GError** error)
{
    return g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method, arguments, nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, error);
}

bool StartServer(GDBusConnection* bus, GError** error)
{
    // The bus refuses to start what it cannot, even if that runs.
    if (!OwnerOf(bus, kServerName).empty()) {
        return true;
    }
    g_autoptr(GVariant) reply = CallBus(bus, "StartServiceByName", g_variant_new("(su)", kServerName, 0U), error);
    return reply != nullptr;
}

bool StartServer()
{
    g_autoptr(GDBusConnection) bus = ConnectToSystemBus(nullptr);
    return bus != nullptr && StartServer(bus, nullptr);
}

std::string OwnerOf(GDBusConnection* bus, const std::string& name)
{
    g_autoptr(GVariant) reply = CallBus(bus, "GetNameOwner", g_variant_new("(s)", name.c_str()), nullptr);
    const char* owner = "";
    if (reply != nullptr) {
        g_variant_get(reply, "(&s)", &owner);
    }
    return owner;
}

unsigned ProcessOf(GDBusConnection* bus, const std::string& name)
{
    g_autoptr(GVariant) reply = CallBus(bus, "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), nullptr);
    unsigned process = 0;
    if (reply != nullptr) {
        g_variant_get(reply, "(u)", &process);
    }
    return process;
}

} // namespace kiv::ctl
