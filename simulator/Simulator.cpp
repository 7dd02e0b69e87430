#include "simulator/Simulator.h"

#include "simulator/Events.h"
#include "simulator/Interfaces.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr char kBusName[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";

// The longest time for which the simulator waits for answers to its last event.
constexpr std::chrono::seconds kLongestLeave{5};

constexpr unsigned kQueue = 0;

ObjectRef<GDBusConnection> Connect()
{
    g_autoptr(GError) error = nullptr;
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

bool HasOwner(GDBusConnection* connection, const char* name)
{
    GVariant* owner = g_dbus_connection_call_sync(
        connection, kBusName, kBusPath, kBusName, "GetNameOwner", g_variant_new("(s)", name), nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (owner == nullptr) {
        return false;
    }
    g_variant_unref(owner);
    return true;
}

} // namespace

Simulator::Simulator(World& world, Trace trace)
    : world_(world), trace_(trace), loop_(g_main_loop_new(nullptr, FALSE), g_main_loop_unref), connection_(Connect()),
      link_(connection_, trace), server_(connection_.get(), world_, link_, trace),
      control_(
          connection_.get(), world_, link_,
          {.leave = [this](const OnDone& onAnnounced) { Leave(onAnnounced); },
           .apply =
               [this](const Scenario& scenario, const ClientLink::OnPushed& onApplied) { Apply(scenario, onApplied); },
           .awaitServer = [this](const OnDone& onOpen) { AwaitServer(onOpen); }}),
      signals_{
          g_unix_signal_add(SIGTERM, &Simulator::OnSignal, this), g_unix_signal_add(SIGINT, &Simulator::OnSignal, this)}
{
    g_signal_connect_swapped(connection_.get(), "closed", G_CALLBACK(&Simulator::OnClosed), this);
    nameWatch_ = g_dbus_connection_signal_subscribe(
        connection_.get(), kBusName, kBusName, "NameOwnerChanged", kBusPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        &Simulator::OnNameOwnerChanged, this, nullptr);
}

Simulator::~Simulator()
{
    for (const unsigned signal : signals_) {
        g_source_remove(signal);
    }
    g_dbus_connection_signal_unsubscribe(connection_.get(), nameWatch_);
    g_signal_handlers_disconnect_by_data(connection_.get(), this);
    // The connection is closed here, because calls that are not answered yet refer to it.
    g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr);
}

void Simulator::OwnControl()
{
    OwnName(kControlName);
    FollowTimetable();
}

void Simulator::FollowTimetable()
{
    world_.timetable.MakeChangesBy([this](const Change& change) { MakeInTime(change); });
}

void Simulator::HandOverTo(Simulator& next)
{
    // The next one queues for the control's name before it is released, so that a simulator that the bus starts always
    // finds an owner of it.
    next.RequestName(kControlName, kQueue);
    ReleaseName(kControlName);
    ReleaseName(kServerName);
    // Calls that have arrived before are still served. Otherwise callers of the control would notice the crash.
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    next.FollowTimetable();
    if (leaving_) {
        next.Leave([] {});
    }
    onHandedOver_();
    g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr);
}

void Simulator::Open(Outage outage, std::function<void()> onOpen)
{
    onOpen_ = std::move(onOpen);
    opening_ = std::make_shared<int>();
    if (outage.count() == 0) {
        OpenNow();
    } else {
        After(outage, While(opening_, [this] { OpenNow(); }));
    }
}

void Simulator::OpenNow()
{
    try {
        OwnName(kServerName);
        onOpen_();
    } catch (const std::exception&) {
        failure_ = std::current_exception();
        g_main_loop_quit(loop_.get());
        return;
    }
    isOpen_ = true;
    for (const OnDone& onDone : std::exchange(awaitingServer_, {})) {
        onDone();
    }
}

std::optional<Simulator::Outage> Simulator::Run()
{
    if (failure_ == nullptr) {
        g_main_loop_run(loop_.get());
    }
    if (failure_ != nullptr) {
        std::rethrow_exception(failure_);
    }
    return crash_;
}

void Simulator::AwaitServer(const OnDone& onOpen)
{
    if (isOpen_) {
        onOpen();
    } else {
        awaitingServer_.push_back(onOpen);
    }
}

void Simulator::Apply(const Scenario& scenario, const ClientLink::OnPushed& onApplied)
{
    Make(scenario.now, onApplied);
    if (scenario.timetable) {
        world_.timetable.Replace(*scenario.timetable);
    }
}

void Simulator::MakeInTime(const Change& change)
{
    trace_("the timetable has come to a change");
    try {
        Make(change, [](const PushResult&) {});
    } catch (const BusError& error) {
        std::fputs(fmt::format("kiv-simulator: timetable: {}\n", error.what()).c_str(), stderr);
    }
}

void Simulator::Make(const Change& change, const ClientLink::OnPushed& onMade)
{
    const bool hasGainedAtmos = world_.Apply(change);
    const auto finish = While(life_, [this, change, onMade](const PushResult& result) {
        Finish(change, [onMade, result] { onMade(result); });
    });
    // The callback of the last client drops the shared result, which calls finish().
    const std::shared_ptr<PushResult> all(new PushResult, [finish](const PushResult* result) {
        finish(*result);
        delete result;
    });
    const auto told = [all](const PushResult& result) {
        if (all->firstError.empty()) {
            all->firstError = result.firstError;
            all->firstMessage = result.firstMessage;
        }
    };
    // The event is pushed only when the support begins, because the library calls back with 1 whatever the data are.
    if (hasGainedAtmos) {
        Announce(link_, world_.clients, EventPayload(kAtmosEvent, EventData(1)), told);
    }
    for (const EventPush& event : change.events) {
        const auto clients = event.client.empty() ? world_.clients.Ids() : std::vector<std::string>{event.client};
        link_.Push(Usable(clients), event.payload, 1, told);
    }
}

void Simulator::Finish(const Change& change, const OnDone& onMade)
{
    const bool goesAway = change.away && !leaving_ && !crash_;
    if (goesAway && isOpen_) {
        trace_("crash, away for {} ms", change.away->count());
        crash_ = change.away;
        isOpen_ = false;
        onHandedOver_ = onMade;
        g_main_loop_quit(loop_.get());
        return;
    }
    if (goesAway) {
        Open(*change.away, onOpen_);
    }
    onMade();
    if (change.exit) {
        Leave([] {});
    }
}

unsigned Simulator::RequestName(const char* name, unsigned flags)
{
    g_autoptr(GError) error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection_.get(), kBusName, kBusPath, kBusName, "RequestName", g_variant_new("(su)", name, flags),
        G_VARIANT_TYPE("(u)"), G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
        throw std::runtime_error(fmt::format("cannot own {}: {}", name, error->message));
    }
    unsigned outcome = 0;
    g_variant_get(Own(reply).get(), "(u)", &outcome);
    return outcome;
}

void Simulator::ReleaseName(const char* name)
{
    GVariant* reply = g_dbus_connection_call_sync(
        connection_.get(), kBusName, kBusPath, kBusName, "ReleaseName", g_variant_new("(s)", name), nullptr,
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (reply != nullptr) {
        Own(reply);
    }
}

void Simulator::OwnName(const char* name)
{
    constexpr unsigned kDoNotQueue = 4;
    constexpr unsigned kPrimaryOwner = 1;

    if (RequestName(name, kDoNotQueue) != kPrimaryOwner) {
        throw std::runtime_error(fmt::format("{} is already owned on this bus", name));
    }
}

void Simulator::Leave(const std::function<void()>& onAnnounced)
{
    if (std::exchange(leaving_, true)) {
        g_main_loop_quit(loop_.get());
        return;
    }
    const auto leave = [this, onAnnounced](const auto&...) {
        if (!std::exchange(left_, true)) {
            onAnnounced();
            g_dbus_connection_flush_sync(connection_.get(), nullptr, nullptr);
            g_main_loop_quit(loop_.get());
        }
    };
    After(kLongestLeave, While(life_, leave));
    Announce(link_, world_.clients, EventPayload(kExitEvent, {}), While(life_, leave));
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

bool AwaitServerOfOther()
{
    const auto connection = Connect();
    if (HasOwner(connection.get(), kServerName)) {
        // The server runs. If the bus started this process, the server was away until a moment ago.
        const char* const starter = std::getenv("DBUS_STARTER_BUS_TYPE");
        return starter != nullptr && std::string_view(starter) == "system";
    }
    // The owner is asked for first, so that a trace of the bus does not begin with a call that fails.
    if (!HasOwner(connection.get(), kControlName)) {
        return false;
    }
    g_autoptr(GError) error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        connection.get(), kControlName, kControlPath, kControlInterface, "AwaitServer", nullptr, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, &error);
    if (reply == nullptr) {
        // Without a reply, that simulator has crashed again, or has ended.
        return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) != FALSE && AwaitServerOfOther();
    }
    Own(reply);
    return true;
}

} // namespace kiv::simulator
