#include "LivingRoom.h"

#include "Story.h"
#include <KivServiceInterface.h>

namespace demo {

namespace {

void WaitForOwner(GDBusConnection* bus, const std::string& name)
{
    bool owned = false;
    const auto onOwned = [](GDBusConnection*, const char*, const char*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    const guint watch = g_bus_watch_name_on_connection(
        bus, name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, nullptr, &owned, nullptr);
    while (!owned) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_bus_unwatch_name(watch);
}

} // namespace

void ConnectAtmosReceiver()
{
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GDBusConnection) bus = g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, nullptr, nullptr);
    Require(bus != nullptr, "no connection to the system bus");
    WaitForOwner(bus, "org.lumra.tv.networkspeaker.client." + CNSGdbus::m_pInstance->m_strClientName);

    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, "org.lumra.tv.networkspeaker.simulator", "/org/lumra/tv/networkspeaker/simulator",
        "org.lumra.tv.networkspeaker.simulator.control", "SetAtmos", g_variant_new("(b)", TRUE), nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr);
    Require(reply != nullptr, "the simulator cannot be asked for an Atmos receiver");
}

} // namespace demo
