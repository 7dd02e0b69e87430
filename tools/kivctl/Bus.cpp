#include "Bus.h"

namespace kiv::ctl {

GDBusConnection* ConnectToSystemBus(GError** error)
{
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, error);
    if (address == nullptr) {
        return nullptr;
    }
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, nullptr, error);
}

bool StartServer()
{
    g_autoptr(GDBusConnection) bus = ConnectToSystemBus(nullptr);
    if (bus == nullptr) {
        return false;
    }
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "StartServiceByName",
        g_variant_new("(su)", "org.lumra.tv.networkspeaker.server", 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        nullptr);
    return reply != nullptr;
}

} // namespace kiv::ctl
