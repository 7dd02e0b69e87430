#include "simulator/Simulator.h"

#include "simulator/Events.h"
#include "simulator/Interfaces.h"

#include <glib-unix.h>

#include <csignal>
#include <stdexcept>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr char kBusName[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";

/** How long the last event waits for clients that do not answer. */
constexpr std::chrono::seconds kLongestLeave{5};

ObjectRef<GDBusConnection> Connect()
{
    ErrorSlot error;
    const std::unique_ptr<char, decltype(&g_free)> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, &error), g_free);
    GDBusConnection* connection = nullptr;
    if (address != nullptr) {
        const auto flags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        connection = g_dbus_connection_new_for_address_sync(address.get(), flags, nullptr, nullptr, &error);
    }
    if (connection == nullptr) {
        throw std::runtime_error(fmt::format("no system bus: {}", error->message));
    }
    return OwnObject(connection);
}

} // namespace

World::World() : faults(Interface(kServerXml).Methods()) {}

Simulator::Simulator(World& world, Trace trace)
    : world_(world), loop_(g_main_loop_new(nullptr, FALSE), g_main_loop_unref), connection_(Connect()),
      link_(connection_.get(), trace),
      server_(connection_.get(), world_.home, world_.clients, world_.faults, link_, trace),
      control_(
          connection_.get(), world_.home, world_.clients, world_.faults, server_, link_,
          [this](const std::function<void()>& onAnnounced) { Leave(onAnnounced); })
{
    g_unix_signal_add(SIGTERM, &Simulator::OnSignal, this);
    g_unix_signal_add(SIGINT, &Simulator::OnSignal, this);
    g_signal_connect_swapped(connection_.get(), "closed", G_CALLBACK(&Simulator::OnClosed), this);
    nameWatch_ = g_dbus_connection_signal_subscribe(
        connection_.get(), kBusName, kBusName, "NameOwnerChanged", kBusPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        &Simulator::OnNameOwnerChanged, this, nullptr);
}

Simulator::~Simulator()
{
    g_dbus_connection_signal_unsubscribe(connection_.get(), nameWatch_);
    g_signal_handlers_disconnect_by_data(connection_.get(), this);
}

void Simulator::OwnNames()
{
    // Whoever finds the server may count on its control.
    OwnName(kControlName);
    OwnName(kServerName);
}

void Simulator::OwnName(const char* name)
{
    constexpr unsigned kDoNotQueue = 4;
    constexpr unsigned kPrimaryOwner = 1;

    ErrorSlot error;
    GVariant* reply = g_dbus_connection_call_sync(
        connection_.get(), kBusName, kBusPath, kBusName, "RequestName", g_variant_new("(su)", name, kDoNotQueue),
        G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
        throw std::runtime_error(fmt::format("cannot own {}: {}", name, error->message));
    }
    unsigned outcome = 0;
    g_variant_get(Own(reply).get(), "(u)", &outcome);
    if (outcome != kPrimaryOwner) {
        throw std::runtime_error(fmt::format("{} is already owned on this bus", name));
    }
}

void Simulator::Leave(const std::function<void()>& onAnnounced)
{
    if (std::exchange(leaving_, true)) {
        g_main_loop_quit(loop_.get());
        return;
    }
    const auto leave = [this, onAnnounced] {
        if (!std::exchange(left_, true)) {
            onAnnounced();
            g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr);
            g_main_loop_quit(loop_.get());
        }
    };
    After(kLongestLeave, leave);
    Announce(link_, world_.clients, EventPayload(kExitEvent, {}), leave);
}

int Simulator::OnSignal(void* self)
{
    static_cast<Simulator*>(self)->Leave([] {});
    return G_SOURCE_CONTINUE;
}

void Simulator::OnClosed(Simulator* self)
{
    g_main_loop_quit(self->loop_.get());
}

void Simulator::OnNameOwnerChanged(
    GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* arguments, void* self)
{
    const char* name = nullptr;
    const char* newOwner = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &name, nullptr, &newOwner);
    if (*newOwner == '\0') {
        static_cast<Simulator*>(self)->world_.clients.Leave(name);
    }
}

} // namespace kiv::simulator
