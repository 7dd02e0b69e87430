// A TV application in small: routes the TV's sound to three speakers, hears from the server, and stops again.

#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr const char* kSubscription = "demo";
constexpr int kStartReason = 1;
constexpr int kStopType = 0;
constexpr unsigned kLongestRunSeconds = 60;

template <typename... Arguments>
void Say(fmt::format_string<Arguments...> format, Arguments&&... arguments)
{
    fmt::print("TV: {}\n", fmt::format(format, std::forward<Arguments>(arguments)...));
    std::fflush(stdout);
}

void Require(bool condition, const char* what)
{
    if (!condition) {
        throw std::runtime_error(what);
    }
}

/* --- What the server pushes, received on the library's monitor thread -------------------------------------------- */

struct Event {
    int id;
    int length;
};

std::mutex g_lock;
std::condition_variable g_arrived;
std::optional<Event> g_event;
bool g_atmosReported = false;

void OnEvent(int id, void*, int length)
{
    const std::lock_guard lock(g_lock);
    g_event = Event{id, length};
    g_arrived.notify_one();
}

void OnAtmos(int, void*)
{
    const std::lock_guard lock(g_lock);
    g_atmosReported = true;
    g_arrived.notify_one();
}

/* --- The person in the living room ------------------------------------------------------------------------------- */

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

// Plugs an Atmos receiver in, so to speak: no part of a TV application, hence on a bus connection of its own. The
// simulated server tells its subscribers, of which this process is one as soon as it serves the client object.
void ConnectAtmosReceiverInSimulator()
{
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GDBusConnection) bus = g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, nullptr, nullptr);
    Require(bus != nullptr, "no connection to the system bus");
    WaitForOwner(bus, "org.lumra.tv.networkspeaker.client." + CNSGdbus::m_pInstance->m_strClientName);

    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, "org.lumra.tv.networkspeaker.simulator", "/org/lumra/tv/networkspeaker/simulator",
        "org.lumra.tv.networkspeaker.simulator.control", "SetAtmos", g_variant_new("(b)", TRUE), nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, &error);
    Require(reply != nullptr, "the simulator cannot be asked for an Atmos receiver");
}

/* --- The TV application ------------------------------------------------------------------------------------------ */

STNetSpkConfig Speaker(unsigned char number, int32_t config)
{
    return {0, config, {0x02, 0x4b, 0x49, 0x56, 0x00, number}, {}};
}

void ListenToServer()
{
    Say("subscribing to the server's events and to Atmos; the first call starts the server if it does not run");
    Require(SubscribeNamServiceCallback(kSubscription, OnEvent) == 1, "the subscription failed");
    Require(register_atmos_support_cb(OnAtmos, nullptr) == 0, "the Atmos registration failed");
    Require(!kiv_is_receiver_atmos(), "Atmos is supported too early");
}

void StartSpeakers()
{
    std::vector<STNetSpkConfig> speakers = {Speaker(1, 1), Speaker(2, 2), Speaker(3, 3)};
    Say("starting {} speakers as the surround set", speakers.size());
    for (const STNetSpkConfig& speaker : speakers) {
        Say("  {:02x}", fmt::join(speaker.mac, ":"));
    }
    const int started = StartNetworkSpeaker(NETSPKSETTING_SURROUND, speakers, kStartReason);
    Say("the server answers {}: that many speakers play now", started);
    Require(started == static_cast<int>(speakers.size()), "not all speakers were started");

    const int channels = GetSurroundChannelNumber();
    Say("surround channels: {}", channels);
    Require(channels == started, "the surround channels are not those of the speakers");
}

void WaitForAtmos()
{
    Say("somebody connects an Atmos receiver; waiting for the server to report it");
    ConnectAtmosReceiverInSimulator();

    std::unique_lock lock(g_lock);
    g_arrived.wait(lock, [] { return g_event.has_value() && g_atmosReported; });
    Say("event {:#010x} with {} bytes of data", static_cast<unsigned>(g_event->id), g_event->length);
    Require(g_event->id == NAMSERVICE_ATMOS_STATE, "another event was expected");
    lock.unlock();

    const bool atmos = kiv_is_receiver_atmos();
    Say("does the receiver support Atmos? {}", atmos ? "yes" : "no");
    Require(atmos, "the server does not know of its own event");
}

void StopSpeakers()
{
    Say("stopping the speakers");
    Require(StopNetworkSpeaker(kStopType) == kStopType, "the speakers were not stopped");
    Require(GetSurroundChannelNumber() == 0, "surround channels are left");
}

void StopListening()
{
    Say("unsubscribing");
    Require(unregister_atmos_support_cb(OnAtmos) == 0, "the Atmos registration was not ended");
    UnsubscribeNamServiceCallback(kSubscription);
    Require(CNSGdbus::m_pInstance->m_DestroyMessageMonitor() == 0, "the monitor thread was not ended");
}

} // namespace

int main()
try {
    // A step that hangs is a failure, too.
    alarm(kLongestRunSeconds);
    ListenToServer();
    StartSpeakers();
    WaitForAtmos();
    StopSpeakers();
    StopListening();
    Say("done");
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    Say("FAILED: {}", failure.what());
    return EXIT_FAILURE;
}
