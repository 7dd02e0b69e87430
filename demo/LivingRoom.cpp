#include "demo/LivingRoom.h"

#include "demo/Story.h"
#include "simulator/HomeText.h"
#include <KivServiceInterface.h>

#include <nlohmann/json.hpp>

namespace demo {

namespace {

// A connection of the demo's own to the system bus. The library does not use it.
class Bus {
public:
    Bus()
    {
        g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        connection_ = g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, nullptr, nullptr);
        Require(connection_ != nullptr, "no connection to the system bus");
    }
    ~Bus() { g_object_unref(connection_); }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    void WaitForOwner(const std::string& name) const
    {
        bool owned = false;
        const auto onOwned = [](GDBusConnection*, const char*, const char*, gpointer flag) {
            *static_cast<bool*>(flag) = true;
        };
        const guint watch = g_bus_watch_name_on_connection(
            connection_, name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, nullptr, &owned, nullptr);
        while (!owned) {
            g_main_context_iteration(nullptr, TRUE);
        }
        g_bus_unwatch_name(watch);
    }

    // Calls a method of the simulator's control. The arguments may be floating or null. The caller owns the reply.
    GVariant* CallSimulator(const char* method, GVariant* arguments) const
    {
        GVariant* reply = g_dbus_connection_call_sync(
            connection_, "org.lumra.tv.networkspeaker.simulator", "/org/lumra/tv/networkspeaker/simulator",
            "org.lumra.tv.networkspeaker.simulator.control", method, arguments, nullptr,
            G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr);
        Require(reply != nullptr, fmt::format("the simulator does not answer {}", method));
        return reply;
    }

private:
    GDBusConnection* connection_;
};

} // namespace

void WaitUntilEventsArrive()
{
    Bus().WaitForOwner("org.lumra.tv.networkspeaker.client." + CNSGdbus::m_pInstance->m_strClientName);
}

void ConnectAtmosReceiver()
{
    g_variant_unref(Bus().CallSimulator("Atmos", g_variant_new("(b)", TRUE)));
}

std::vector<std::string> DescribeHome()
{
    g_autoptr(GVariant) reply = Bus().CallSimulator("Show", nullptr);
    const char* text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    return kiv::simulator::DescribeHome(nlohmann::json::parse(text));
}

} // namespace demo
