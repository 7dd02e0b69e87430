#include "demo/LivingRoom.h"

#include "demo/Story.h"
#include "simulator/ClientNames.h"
#include "simulator/Glib.h"
#include "simulator/HomeText.h"
#include "simulator/Interfaces.h"
#include "src/link/Owners.h"
#include <KivServiceInterface.h>

#include <nlohmann/json.hpp>

namespace demo {

namespace {

using kiv::link::VariantOwner;

// A connection of the demo's own to the system bus. The library does not use it.
class Bus {
public:
    Bus()
    {
        const kiv::link::TextOwner address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
        connection_.reset(g_dbus_connection_new_for_address_sync(
            address.get(), kiv::simulator::kOwnConnection, nullptr, nullptr, nullptr));
        Require(connection_ != nullptr, "no connection to the system bus");
    }

    void WaitForOwner(const std::string& name) const
    {
        bool owned = false;
        const auto onOwned = [](GDBusConnection*, const char*, const char*, gpointer flag) {
            *static_cast<bool*>(flag) = true;
        };
        const guint watch = g_bus_watch_name_on_connection(
            connection_.get(), name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, nullptr, &owned, nullptr);
        while (!owned) {
            g_main_context_iteration(nullptr, TRUE);
        }
        g_bus_unwatch_name(watch);
    }

    // Calls a method of the simulator's control. The arguments may be floating or null.
    VariantOwner CallSimulator(const char* method, GVariant* arguments) const
    {
        VariantOwner reply(g_dbus_connection_call_sync(
            connection_.get(), kiv::simulator::kControlName, kiv::simulator::kControlPath,
            kiv::simulator::kControlInterface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr,
            nullptr));
        Require(reply != nullptr, fmt::format("the simulator does not answer {}", method));
        return reply;
    }

private:
    kiv::link::ConnectionOwner connection_;
};

} // namespace

void WaitUntilEventsArrive()
{
    Bus().WaitForOwner(kiv::simulator::kClientNamePrefix + CNSGdbus::m_pInstance->m_strClientName);
}

void ConnectAtmosReceiver()
{
    Bus().CallSimulator("Atmos", g_variant_new("(b)", TRUE));
}

std::vector<std::string> DescribeHome()
{
    const VariantOwner reply = Bus().CallSimulator("Show", nullptr);
    const char* text = nullptr;
    g_variant_get(reply.get(), "(&s)", &text);
    return kiv::simulator::DescribeHome(nlohmann::json::parse(text));
}

} // namespace demo
