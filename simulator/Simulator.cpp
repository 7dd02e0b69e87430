#include "simulator/Simulator.h"

#include "simulator/Control.h"
#include "simulator/Events.h"
#include "simulator/Interfaces.h"
#include "simulator/Server.h"
#include "src/link/Owners.h"

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kiv::simulator {

namespace {

// The longest time for which the simulator waits for answers to its last event.
constexpr std::chrono::seconds kLongestLeave{5};

ObjectRef<GDBusConnection> Connect()
{
    link::ErrorOwner error;
    const link::TextOwner address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, error.Out()));
    GDBusConnection* connection = nullptr;
    if (address != nullptr) {
        connection =
            g_dbus_connection_new_for_address_sync(address.get(), kOwnConnection, nullptr, nullptr, error.Out());
    }
    if (connection == nullptr) {
        throw std::runtime_error(fmt::format("no system bus: {}", error->message));
    }
    return OwnObject(connection);
}

// Calls a method of the bus. Returns null for an error.
link::VariantOwner
CallBus(GDBusConnection* connection, const char* method, GVariant* arguments, GError** error = nullptr)
{
    return link::VariantOwner(g_dbus_connection_call_sync(
        connection, kBusName, kBusPath, kBusName, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        error));
}

bool HasOwner(GDBusConnection* connection, const char* name)
{
    return CallBus(connection, "GetNameOwner", g_variant_new("(s)", name)) != nullptr;
}

unsigned RequestName(GDBusConnection* connection, const char* name, unsigned flags)
{
    link::ErrorOwner error;
    const auto reply = CallBus(connection, "RequestName", g_variant_new("(su)", name, flags), error.Out());
    if (reply == nullptr) {
        throw std::runtime_error(fmt::format("cannot own {}: {}", name, error->message));
    }
    unsigned outcome = 0;
    g_variant_get(reply.get(), "(u)", &outcome);
    return outcome;
}

void QueueForName(GDBusConnection* connection, const char* name)
{
    constexpr unsigned kQueue = 0;
    RequestName(connection, name, kQueue);
}

void OwnName(GDBusConnection* connection, const char* name)
{
    constexpr unsigned kDoNotQueue = 4;
    constexpr unsigned kPrimaryOwner = 1;

    if (RequestName(connection, name, kDoNotQueue) != kPrimaryOwner) {
        throw std::runtime_error(fmt::format("{} is already owned on this bus", name));
    }
}

void OnNameOwnerChanged(
    GDBusConnection*, const char*, const char*, const char*, const char*, GVariant* arguments, void* clients)
{
    const char* name = nullptr;
    const char* newOwner = nullptr;
    g_variant_get(arguments, "(&s&s&s)", &name, nullptr, &newOwner);
    if (*newOwner == '\0') {
        static_cast<Clients*>(clients)->Leave(name);
    }
}

} // namespace

// A connection to the bus, with the objects on it.
struct Simulator::Presence {
    explicit Presence(Simulator& simulator)
        : connection(Connect()), link(connection, simulator.trace_),
          server(connection.get(), simulator.world_, link, simulator.trace_),
          control(
              connection.get(), simulator.world_, link,
              {.leave = [&simulator](const OnDone& onAnnounced) { simulator.Leave(onAnnounced); },
               .apply =
                   [&simulator](const Scenario& scenario, const ClientLink::OnPushed& onApplied) {
                       simulator.Apply(scenario, onApplied);
                   },
               .awaitServer = [&simulator](const OnDone& onOpen) { simulator.AwaitServer(onOpen); }}),
          nameWatch(g_dbus_connection_signal_subscribe(
              connection.get(), kBusName, kBusName, "NameOwnerChanged", kBusPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
              &OnNameOwnerChanged, &simulator.world_.clients, nullptr)),
          closeWatch(g_signal_connect_swapped(connection.get(), "closed", G_CALLBACK(&OnClosed), &simulator))
    {
    }
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    ~Presence()
    {
        g_dbus_connection_signal_unsubscribe(connection.get(), nameWatch);
        g_signal_handler_disconnect(connection.get(), closeWatch);
        // The connection is closed here, because calls that are not answered yet refer to it.
        g_dbus_connection_close_sync(connection.get(), nullptr, nullptr);
    }

    static void OnClosed(Simulator* simulator) { simulator->state_ = State::kLeft; }

    void Flush() const { g_dbus_connection_flush_sync(connection.get(), nullptr, nullptr); }

    ObjectRef<GDBusConnection> connection;
    ClientLink link;
    Server server;
    Control control;
    unsigned nameWatch;
    unsigned long closeWatch;
    // Expires when this object ends, for actions that wait on the main loop.
    std::shared_ptr<void> life = std::make_shared<int>();
};

Simulator::Simulator(World& world, Trace trace, OnDone onReady)
    : world_(world), trace_(trace), onReady_(std::move(onReady)), presence_(std::make_unique<Presence>(*this))
{
    g_unix_signal_add(SIGTERM, &Simulator::OnSignal, this);
    g_unix_signal_add(SIGINT, &Simulator::OnSignal, this);
    OwnName(presence_->connection.get(), kControlName);
    world_.timetable.MakeChangesBy([this](const Change& change) { MakeInTime(change); });
}

Simulator::~Simulator() = default;

void Simulator::Run(Outage outage)
{
    StayAway(outage);
    while (state_ != State::kLeft) {
        if (state_ == State::kDue) {
            Open();
        } else if (state_ == State::kCrashing) {
            Crash();
        } else {
            Iterate(TRUE);
        }
    }
}

bool Simulator::Iterate(gboolean mayWait)
{
    presence_->control.AnswerWaiting();
    return g_main_context_iteration(nullptr, mayWait) != FALSE;
}

void Simulator::StayAway(Outage outage)
{
    state_ = State::kAway;
    outage_ = std::make_shared<int>();
    const auto end = While(outage_, [this] {
        if (state_ == State::kAway) {
            state_ = State::kDue;
        }
    });
    if (outage.count() == 0) {
        end();
    } else {
        After(outage, end);
    }
}

void Simulator::Open()
{
    OwnName(presence_->connection.get(), kServerName);
    state_ = State::kOpen;
    std::exchange(onReady_, [] {})();
    for (const OnDone& onDone : std::exchange(awaitingServer_, {})) {
        onDone();
    }
}

void Simulator::Crash()
{
    world_.clients.LeaveAll();
    const auto last = std::exchange(presence_, std::make_unique<Presence>(*this));
    // The next one queues for the control's name before it is released, so that a simulator that the bus starts always
    // finds an owner of it.
    QueueForName(presence_->connection.get(), kControlName);
    for (const char* const name : {kControlName, kServerName}) {
        CallBus(last->connection.get(), "ReleaseName", g_variant_new("(s)", name));
    }
    if (std::exchange(isLeaving_, false)) {
        Leave([] {});
    }
    // Calls that have arrived before are still served. Otherwise callers of the control would notice the crash.
    do {
        last->control.AnswerWaiting();
    } while (Iterate(FALSE));
    std::exchange(onCrashed_, nullptr)();
    last->Flush();
    if (state_ != State::kLeft) {
        StayAway(crashOutage_);
    }
}

void Simulator::AwaitServer(const OnDone& onOpen)
{
    if (state_ == State::kOpen) {
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
    const auto finish = While(presence_->life, [this, change, onMade](const PushResult& result) {
        Finish(change, [onMade, result] { onMade(result); });
    });
    // The callback of the last client drops the shared result, which calls finish().
    const std::shared_ptr<PushResult> all(new PushResult, [finish](const PushResult* result) {
        finish(*result);
        delete result;
    });
    const auto told = [all](const PushResult& result) {
        if (all->firstError.empty()) {
            *all = result;
        }
    };
    // The event is pushed only when the support begins, because the library calls back with 1 whatever the data are.
    if (hasGainedAtmos) {
        Announce(presence_->link, world_.clients, EventPayload(kAtmosEvent, EventData(1)), told);
    }
    for (const EventPush& event : change.events) {
        const auto clients = event.client.empty() ? world_.clients.Ids() : std::vector<std::string>{event.client};
        presence_->link.Push(Usable(clients), event.payload, 1, told);
    }
}

void Simulator::Finish(const Change& change, const OnDone& onMade)
{
    const bool goesAway = change.away && !isLeaving_;
    const bool isAway = state_ == State::kAway || state_ == State::kDue;
    if (goesAway && state_ == State::kOpen) {
        trace_("crash, away for {} ms", change.away->count());
        state_ = State::kCrashing;
        crashOutage_ = *change.away;
        onCrashed_ = onMade;
        return;
    }
    if (goesAway && isAway) {
        StayAway(*change.away);
    }
    // A server that is due is on the bus before the change counts as made.
    if (state_ == State::kDue && !change.exit) {
        awaitingServer_.push_back(onMade);
    } else {
        onMade();
    }
    if (change.exit) {
        Leave([] {});
    }
}

void Simulator::Leave(const OnDone& onAnnounced)
{
    if (std::exchange(isLeaving_, true)) {
        state_ = State::kLeft;
        return;
    }
    const auto leave = While(presence_->life, [this, onAnnounced](const auto&...) {
        if (std::exchange(state_, State::kLeft) != State::kLeft) {
            onAnnounced();
            presence_->Flush();
        }
    });
    After(kLongestLeave, leave);
    Announce(presence_->link, world_.clients, EventPayload(kExitEvent, {}), leave);
}

int Simulator::OnSignal(void* self)
{
    static_cast<Simulator*>(self)->Leave([] {});
    return G_SOURCE_CONTINUE;
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
    link::ErrorOwner error;
    const link::VariantOwner reply(g_dbus_connection_call_sync(
        connection.get(), kControlName, kControlPath, kControlInterface, "AwaitServer", nullptr, nullptr,
        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, error.Out()));
    // Without a reply, that simulator has crashed again, or has ended.
    return reply != nullptr ||
           (g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_NO_REPLY) != FALSE && AwaitServerOfOther());
}

} // namespace kiv::simulator
