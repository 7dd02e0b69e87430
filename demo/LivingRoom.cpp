#include "LivingRoom.h"

#include "Story.h"
#include <KivServiceInterface.h>

#include <nlohmann/json.hpp>

#include <map>

namespace demo {

namespace {

using nlohmann::json;

// A connection to the system bus that is not the library's.
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

    // Calls a method of the simulator. The arguments may be floating or null; the caller owns the answer.
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

json ReadHome()
{
    g_autoptr(GVariant) reply = Bus().CallSimulator("Model", nullptr);
    const char* text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    return json::parse(text);
}

std::string DescribeSpeaker(const json& home, const json& speaker)
{
    static const std::map<std::string, const char*> kConnections = {
        {"none", "only seen"}, {"network", "home network"}, {"direct", "direct"}};
    const std::string name = speaker.at("name");
    const std::string room = home.at("groups").at(speaker.at("group").get<std::size_t>() - 1);
    std::string line = fmt::format(
        "{:<18} {:<12} {:<13} volume {:>2}", name, room, kConnections.at(speaker.at("connection")),
        speaker.at("volume").get<int>());
    if (speaker.at("active")) {
        line += fmt::format("   plays channel {}", speaker.at("channel").get<int>());
    }
    return line;
}

} // namespace

void ConnectAtmosReceiver()
{
    const Bus bus;
    bus.WaitForOwner("org.lumra.tv.networkspeaker.client." + CNSGdbus::m_pInstance->m_strClientName);
    g_variant_unref(bus.CallSimulator("SetAtmos", g_variant_new("(b)", TRUE)));
}

std::vector<std::string> DescribeHome()
{
    const json home = ReadHome();
    std::vector<std::string> lines;
    for (const char* const list : {"speakers", "discovered"}) {
        for (const json& speaker : home.at(list)) {
            lines.push_back(DescribeSpeaker(home, speaker));
        }
    }
    for (const json& soundbar : home.at("soundbars")) {
        lines.push_back(fmt::format("Soundbar           sound mode {}", soundbar.at("soundMode").get<std::string>()));
    }
    lines.push_back(fmt::format("Receiver           {} Dolby Atmos", home.at("receiverHasAtmos") ? "with" : "without"));
    lines.push_back(fmt::format("Surround           {} channels", home.at("surroundChannels").get<int>()));
    lines.push_back(fmt::format(
        "Settings screen    mode {}{}", home.at("tavrinUiMode").get<int>(),
        home.at("tavrinPreSelected") ? ", multi-room preselected" : ""));
    return lines;
}

} // namespace demo
