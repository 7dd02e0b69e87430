#include "Checks.h"

#include "Alarm.h"
#include "Bus.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <utility>

namespace kiv::ctl {

namespace {

constexpr int kEndpointLimitMs = 5000;
constexpr int kServerLimitMs = 8000; // as the library's
constexpr int kConnectLimitMs = 8000;
constexpr int kBusLimitMs = 25000; // GLib's, and dbus-daemon's for a server that it starts
constexpr unsigned kDoNotQueue = 4;
constexpr const char* kSubscription = "kivctl-doctor";
constexpr int32_t kTestEvent = 0x4b495644; // nobody else's

constexpr const char* kInstallPolicy =
    "put share/dbus-1/system.d/org.lumra.tv.networkspeaker.conf where the bus reads its policies, reload the bus, and "
    "run as a user whom the policy takes for a client";
constexpr const char* kSeeTheServersLog = "look into the server's own log, and start it by hand to see what it says";
constexpr const char* kSeeTheLibrarysLog = "see the library's log: kivctl --verbose doctor";

bool IsDenied(const GError* error)
{
    return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) != FALSE;
}

// A D-Bus error keeps its name, and a missing answer is told with the limit that it had.
std::string ReasonOf(GError* error, int limitMs)
{
    g_autofree char* name = g_dbus_error_get_remote_error(error);
    if (name != nullptr) {
        g_dbus_error_strip_remote_error(error);
        return fmt::format("{}: {}", name, error->message);
    }
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE ||
        g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE) {
        return fmt::format("no answer within {} s", limitMs / 1000);
    }
    return error->message;
}

// Runs the main context until the condition holds, or for the limit. Returns whether it holds.
bool WaitUntil(const std::function<bool()>& holds)
{
    bool tooLate = false;
    const guint timer = g_timeout_add(
        kEndpointLimitMs,
        [](gpointer late) -> gboolean {
            *static_cast<bool*>(late) = true;
            return G_SOURCE_CONTINUE;
        },
        &tooLate);
    while (!holds() && !tooLate) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(timer);
    return holds();
}

std::string UserOf(GDBusConnection* bus, const char* name)
{
    g_autoptr(GVariant) reply = CallBus(bus, "GetConnectionUnixUser", g_variant_new("(s)", name), nullptr);
    if (reply == nullptr) {
        return "unknown";
    }
    unsigned uid = 0;
    g_variant_get(reply, "(u)", &uid);
    std::array<char, 4096> texts{};
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(uid, &entry, texts.data(), texts.size(), &found);
    return found != nullptr ? found->pw_name : fmt::format("{}", uid);
}

std::atomic<bool> g_eventCame = false;

void OnEvent(int id, void*, int)
{
    if (id == kTestEvent) {
        g_eventCame = true;
        g_main_context_wakeup(nullptr);
    }
}

GVariant* TestEvent()
{
    constexpr std::array<int32_t, 2> kHeader = {kTestEvent, 0};
    return g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, kHeader.data(), sizeof kHeader, 1));
}

} // namespace

Checks::~Checks()
{
    g_clear_object(&bus_);
}

Finding Checks::Feature()
{
    const bool disabled = GetWhetherKivDisabled();
    if (!g_GetSystemVal) {
        return {
            State::kNote, "whether this device has network speakers cannot be read; it counts as yes",
            "on a machine that is no TV, name a feature file in KIV_SYSTEM_INFO_FILE"};
    }
    if (disabled) {
        return {
            State::kProblem, "this device has no network speakers; the library sends nothing",
            "on a machine that is no TV, set kiv_multi_ch_support=true in the file that KIV_SYSTEM_INFO_FILE names"};
    }
    return {State::kOk, "this device has network speakers"};
}

Finding Checks::Bus()
{
    // GLib itself sets no limit to a connection that is being opened.
    g_autoptr(GCancellable) cancellable = g_cancellable_new();
    g_autoptr(GError) error = nullptr;
    {
        const Alarm alarm(std::chrono::milliseconds(kConnectLimitMs), [&] { g_cancellable_cancel(cancellable); });
        bus_ = ConnectToSystemBus(&error, cancellable);
    }
    if (bus_ == nullptr) {
        return {
            State::kProblem, "cannot be reached: " + ReasonOf(error, kConnectLimitMs),
            "start the system bus, name one in DBUS_SYSTEM_BUS_ADDRESS, or bring one: kiv-sandbox -- kivctl doctor"};
    }
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    return {State::kOk, fmt::format("reached at {}", address)};
}

Finding Checks::ClientName()
{
    const std::string name = fmt::format("{}doctor_{}", kClientNamePrefix, getpid());
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = CallBus(bus_, "RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue), &error);
    if (reply == nullptr) {
        return {State::kProblem, "may not be owned: " + ReasonOf(error, kBusLimitMs), kInstallPolicy};
    }
    return {State::kOk, "the bus lets this user own one"};
}

Finding Checks::Activation()
{
    g_autoptr(GVariant) reply = CallBus(bus_, "ListActivatableNames", nullptr, nullptr);
    g_autofree const char** names = nullptr;
    if (reply != nullptr) {
        g_variant_get(reply, "(^a&s)", &names);
    }
    if (names != nullptr && g_strv_contains(names, kServerName)) {
        return {State::kOk, "the bus can start the server"};
    }
    const bool runs = !OwnerOf(bus_, kServerName).empty();
    return {
        runs ? State::kNote : State::kProblem,
        runs ? "the bus cannot start the server; nobody will if it ends"
             : "the bus cannot start the server, which does not run",
        "start the server, or install its D-Bus service file, org.lumra.tv.networkspeaker.server.service"};
}

Finding Checks::Server()
{
    g_autoptr(GError) error = nullptr;
    if (!StartServer(bus_, &error)) {
        return {State::kProblem, "does not run: " + ReasonOf(error, kBusLimitMs), kSeeTheServersLog};
    }
    return {
        State::kOk,
        fmt::format("runs as process {} of user {}", ProcessOf(bus_, kServerName), UserOf(bus_, kServerName))};
}

GVariant* Checks::CallServer(const char* method, GError** error)
{
    return g_dbus_connection_call_sync(
        bus_, kServerName, "/org/lumra/tv/networkspeaker/server", "org.lumra.tv.networkspeaker.server.interface",
        method, g_variant_new("(i)", getpid()), nullptr, G_DBUS_CALL_FLAGS_NONE, kServerLimitMs, nullptr, error);
}

Finding Checks::Call()
{
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = CallServer("check_dbus_connection", &error);
    if (reply == nullptr) {
        const bool denied = IsDenied(error);
        return {
            State::kProblem, "the server cannot be asked: " + ReasonOf(error, kServerLimitMs),
            denied ? kInstallPolicy : kSeeTheServersLog};
    }
    if (!g_variant_is_of_type(reply, G_VARIANT_TYPE("(s)"))) {
        return {
            State::kProblem,
            fmt::format("the server answers {} where a client id is due", g_variant_get_type_string(reply)),
            "use a server that serves this version of the interface"};
    }
    const char* text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    id_ = text;
    return {State::kOk, "the server answers"};
}

Finding Checks::ClientId()
{
    if (!ClientNames(id_).Fit()) {
        return {
            State::kProblem, fmt::format("\"{}\" makes no D-Bus name, so no events can come", id_),
            "have the server give ids of letters, digits and '_', not too long"};
    }
    return {State::kOk, fmt::format("\"{}\"", id_)};
}

Finding Checks::Subscription()
{
    if (SubscribeNamServiceCallback(kSubscription, OnEvent) == 1) {
        subscribed_ = true;
        return {State::kOk, "the server promises events"};
    }
    // The library does not tell why.
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = CallServer("SubscribeNamServiceCallback", &error);
    if (reply == nullptr) {
        return {
            State::kProblem, "the server promises no events: " + ReasonOf(error, kServerLimitMs), kSeeTheServersLog};
    }
    return {
        State::kProblem, "the library could not subscribe, though the server takes the request", kSeeTheLibrarysLog};
}

// The library serves its object from a thread of its own, some time after the subscription.
Finding Checks::Endpoint()
{
    const ClientNames client(id_);
    bool owned = false;
    const auto onOwned = [](GDBusConnection*, const char*, const char*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    const guint watch = g_bus_watch_name_on_connection(
        bus_, client.name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, nullptr, &owned, nullptr);
    const bool isServed = WaitUntil([&owned] { return owned; });
    g_bus_unwatch_name(watch);
    if (!isServed) {
        return {State::kProblem, client.name + " has no owner: the library serves no object", kSeeTheLibrarysLog};
    }
    const unsigned process = ProcessOf(bus_, client.name);
    if (std::cmp_not_equal(process, getpid())) {
        return {
            State::kProblem,
            fmt::format("{} is owned by process {}, which gets this one's events", client.name, process),
            "have the server give each process an id of its own"};
    }
    return {State::kOk, "the library serves " + client.path};
}

Finding Checks::Events()
{
    const ClientNames client(id_);
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus_, client.name.c_str(), client.path.c_str(), client.interface.c_str(), "nam_notify_subscriber", TestEvent(),
        nullptr, G_DBUS_CALL_FLAGS_NONE, kEndpointLimitMs, nullptr, &error);
    if (reply == nullptr && IsDenied(error)) {
        return {
            State::kNote, "the bus lets this user send none, which is as it should be for all but the server",
            "run this as the server's user to see whether events arrive"};
    }
    if (reply == nullptr) {
        return {
            State::kProblem, "the library does not answer one: " + ReasonOf(error, kEndpointLimitMs),
            kSeeTheLibrarysLog};
    }
    if (!WaitUntil([] { return g_eventCame.load(); })) {
        return {State::kProblem, "one that was sent did not arrive", kSeeTheLibrarysLog};
    }
    return {State::kOk, "one that was sent arrived"};
}

void Checks::Unsubscribe()
{
    if (std::exchange(subscribed_, false)) {
        UnsubscribeNamServiceCallback(kSubscription);
    }
}

const std::vector<Check>& AllChecks()
{
    static const std::vector<Check> checks = {
        {"feature", nullptr, {}, &Checks::Feature},
        {"bus", "connecting to the bus, up to 8 s", {}, &Checks::Bus},
        {"client name", "asking the bus for a client's name, up to 25 s", {"bus"}, &Checks::ClientName},
        {"activation", "asking the bus what it can start, up to 25 s", {"bus"}, &Checks::Activation},
        {"server", "starting the server unless it runs, up to 25 s", {"activation"}, &Checks::Server},
        {"call", "asking the server, up to 8 s", {"server"}, &Checks::Call},
        {"client id", nullptr, {"call"}, &Checks::ClientId},
        {"subscription",
         "having the library subscribe, up to 32 s",
         {"feature", "client name", "client id"},
         &Checks::Subscription},
        {"endpoint", "waiting for the library to serve its object, up to 5 s", {"subscription"}, &Checks::Endpoint},
        {"events", "sending the library an event, up to 10 s", {"endpoint"}, &Checks::Events},
    };
    return checks;
}

} // namespace kiv::ctl
