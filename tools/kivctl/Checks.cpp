#include "tools/kivctl/Checks.h"

#include "tools/kivctl/Alarm.h"
#include "tools/kivctl/Bus.h"
#include "tools/kivctl/CallWatch.h"
#include "tools/kivctl/Diagnosis.h"
#include "tools/kivctl/Feature.h"
#include "tools/kivctl/MainLoop.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

namespace kiv::ctl {

namespace {

constexpr int kEndpointLimitMs = 5000;
constexpr int kServerLimitMs = 8000; // the library's limit
constexpr int kConnectLimitMs = 8000;
constexpr int kBusLimitMs = 25000; // GLib's limit, and dbus-daemon's for a server that it starts
constexpr unsigned kDoNotQueue = 4;
constexpr const char* kSubscription = "kivctl-doctor";
constexpr int32_t kTestEvent = 0x4b495644; // an id that no server uses

constexpr const char* kMendSocket =
    "this user may not use the bus's socket, or a folder on its path: let all users write to the socket";
constexpr const char* kMendFeature =
    "on a TV, its maker sets com.molvane/featureconf/kiv_multi_ch_support, for which the library asks the platform; on "
    "another machine, have the file that KIV_SYSTEM_INFO_FILE names say kiv_multi_ch_support=true in its "
    "section [com.molvane/featureconf]";
constexpr const char* kSeeTheLibrarysLog = "see the library's log: kivctl --verbose doctor";
constexpr const char* kSubscribeMethod = "SubscribeNamServiceCallback";

bool IsDenied(const GError* error)
{
    return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) != FALSE;
}

bool IsSilence(const GError* error)
{
    return g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE ||
           g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CANCELLED) != FALSE;
}

std::string NoAnswer(int limitMs)
{
    return fmt::format("no answer within {} s", limitMs / 1000);
}

// Returns the name and text of a D-Bus error, or the limit of the wait if there was no answer.
std::string ReasonOf(GError* error, int limitMs)
{
    return IsSilence(error) ? NoAnswer(limitMs) : ErrorText(error);
}

// Returns the finding for a failed call of the bus itself.
Finding BusProblem(const std::string& what, GError* error, const char* advice)
{
    if (IsSilence(error)) {
        return {State::kProblem, "the bus does not answer: " + NoAnswer(kBusLimitMs), kWakeTheBus, true};
    }
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_CLOSED) != FALSE) {
        return {State::kProblem, "the connection to the bus is lost", kMakeBus, true};
    }
    return {State::kProblem, fmt::format("{}: {}", what, ErrorText(error)), advice};
}

// Returns a sentence about the server, which has not answered a request for the subscription well.
std::string NotSubscribedText(const SeenCall& call)
{
    const bool isSubscription = call.method == kSubscribeMethod;
    if (call.error.empty()) {
        return fmt::format(
            "the server does not answer {} within {} s",
            isSubscription ? "the subscription" : "the library's request for a client id", kServerLimitMs / 1000);
    }
    if (call.error.starts_with(kNoReply)) {
        return fmt::format("{} {}", FailedBy("the server", call.error), call.method);
    }
    return fmt::format(
        "the server {}: {}", isSubscription ? "refuses the subscription" : "gives the library no client id",
        call.error);
}

// Returns a sentence about a failed call of a peer, which is the subject.
std::string PeerFailed(const std::string& peer, GError* error, int limitMs)
{
    return g_dbus_error_is_remote_error(error) != FALSE
               ? FailedBy(peer, ErrorText(error))
               : fmt::format("{} cannot be asked: {}", peer, ReasonOf(error, limitMs));
}

// Returns the finding for an answer that is not a client id.
Finding NoId(const std::string& answer, const std::string& type)
{
    return {State::kProblem, fmt::format("{} {} instead of a client id", answer, type), kUseThisInterface};
}

std::optional<unsigned> UidOf(GDBusConnection* bus, const char* name)
{
    const auto reply = CallBus(bus, "GetConnectionUnixUser", g_variant_new("(s)", name), nullptr);
    if (reply == nullptr) {
        return std::nullopt;
    }
    unsigned uid = 0;
    g_variant_get(reply.get(), "(u)", &uid);
    return uid;
}

std::string UserOf(GDBusConnection* bus, const char* name)
{
    const std::optional<unsigned> uid = UidOf(bus, name);
    if (!uid) {
        return "unknown";
    }
    std::array<char, 4096> texts{};
    passwd entry{};
    passwd* found = nullptr;
    getpwuid_r(*uid, &entry, texts.data(), texts.size(), &found);
    return found != nullptr ? found->pw_name : fmt::format("{}", *uid);
}

// Returns whether this process has the server's user. The bus applies the same rules to all processes of a user.
bool IsServersUser(GDBusConnection* bus)
{
    const std::optional<unsigned> own = UidOf(bus, g_dbus_connection_get_unique_name(bus));
    return own && own == UidOf(bus, kServerName);
}

// Returns a note: the events of this user do not prove that the server's events arrive.
Finding UnprovenEvents(GDBusConnection* bus, const char* text)
{
    const std::string user = UserOf(bus, kServerName);
    Finding finding = {
        State::kNote, text,
        fmt::format("the server runs as {}; run this as {} to see whether its events arrive", user, user)};
    finding.isUnproven = true;
    return finding;
}

// Returns the finding for an event that the bus has refused.
Finding DeniedEvent(GDBusConnection* bus, GError* error)
{
    const std::string user = UserOf(bus, kServerName);
    // When it is the sender who must not send, dbus-daemon says "Rejected send message".
    const bool isReceiver = std::strstr(error->message, "Rejected receive message") != nullptr;
    if (!isReceiver && !IsServersUser(bus)) {
        return UnprovenEvents(
            bus, "the bus lets this user send no event, as it should: only the server may send events");
    }
    return {
        State::kProblem,
        fmt::format(
            "the bus lets {}: {}",
            isReceiver ? "this user receive no event" : fmt::format("{}, the server's user, send no event", user),
            ErrorText(error)),
        fmt::format(
            "have the policy of the bus let {} send nam_notify_subscriber, and clients receive it, as "
            "share/dbus-1/system.d/org.lumra.tv.networkspeaker.conf does for the server's user that it was built with "
            "(KIV_SERVER_USER)",
            user)};
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

Finding Checks::Feature()
{
    const bool disabled = GetWhetherKivDisabled();
    if (!g_GetSystemVal) {
        const std::string why = WhyFeatureIsUnknown();
        return {
            State::kNote,
            fmt::format(
                "whether this device has network speakers cannot be read, which counts as yes{}{}",
                why.empty() ? "" : ": ", why),
            kMendFeature};
    }
    if (disabled) {
        return {State::kProblem, "this device has no network speakers; the library sends nothing", kMendFeature};
    }
    return {State::kOk, "this device has network speakers"};
}

Finding Checks::Bus()
{
    // GLib sets no limit for opening a connection.
    const link::CancellableOwner cancellable(g_cancellable_new());
    link::ErrorOwner error;
    {
        const Alarm alarm(std::chrono::milliseconds(kConnectLimitMs), [&] { g_cancellable_cancel(cancellable.get()); });
        bus_ = ConnectToSystemBus(error.Out(), cancellable.get());
    }
    if (bus_ != nullptr) {
        return {State::kOk, "reached at " + BusAddress()};
    }
    if (IsSilence(error.get())) {
        return {
            State::kProblem, fmt::format("does not answer at {}: {}", BusAddress(), NoAnswer(kConnectLimitMs)),
            kWakeTheBus};
    }
    if (g_dbus_error_is_remote_error(error.get()) != FALSE) {
        return {State::kProblem, "answers with the error " + ErrorText(error.get()), "see the log of the bus daemon"};
    }
    const bool isKeptOut = g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_PERMISSION_DENIED) != FALSE;
    return {State::kProblem, NoBusText(error->message), isKeptOut ? kMendSocket : NoBusAdvice(kMakeBus)};
}

Finding Checks::ClientName()
{
    const std::string name = fmt::format("{}doctor_{}", simulator::kClientNamePrefix, getpid());
    link::ErrorOwner error;
    const auto reply =
        CallBus(bus_.get(), "RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue), error.Out());
    if (reply == nullptr) {
        return BusProblem("may not be owned", error.get(), kInstallPolicy);
    }
    return {State::kOk, "the bus lets this user own a client's name"};
}

Finding Checks::Activation()
{
    link::ErrorOwner error;
    const auto reply = CallBus(bus_.get(), "ListActivatableNames", nullptr, error.Out());
    if (reply == nullptr) {
        Finding finding =
            BusProblem("the bus does not say what it can start", error.get(), "see the policy of the bus");
        finding.state = finding.isOfBus ? State::kProblem : State::kNote;
        return finding;
    }
    g_autofree const char** names = nullptr;
    g_variant_get(reply.get(), "(^a&s)", &names);
    if (g_strv_contains(names, kServerName)) {
        return {State::kOk, "the bus can start the server"};
    }
    const bool runs = !OwnerOf(bus_.get(), kServerName).empty();
    return {
        runs ? State::kNote : State::kProblem,
        runs ? "the bus cannot start the server; if the server ends, it stays away" : kCannotStartServer,
        kInstallServiceFile};
}

Finding Checks::Server()
{
    link::ErrorOwner error;
    const auto start = std::chrono::steady_clock::now();
    if (!StartServer(bus_.get(), error.Out())) {
        const Diagnosis diagnosis = ServerDoesNotRun(ReasonOf(error.get(), kBusLimitMs));
        return {State::kProblem, diagnosis.found, diagnosis.advice};
    }
    const auto taken = std::chrono::steady_clock::now() - start;
    const std::string text = fmt::format(
        "runs as process {} of user {}", ProcessOf(bus_.get(), kServerName), UserOf(bus_.get(), kServerName));
    if (taken <= std::chrono::milliseconds(kServerLimitMs)) {
        return {State::kOk, text};
    }
    Finding finding = {
        State::kProblem,
        fmt::format(
            "{}, but started in over {} s: a call waits no longer for that, and fails", text, kServerLimitMs / 1000),
        "start the server before the applications, or have it start faster"};
    finding.hindersOthers = false;
    return finding;
}

link::VariantOwner Checks::AskForId(GError** error)
{
    return link::VariantOwner(g_dbus_connection_call_sync(
        bus_.get(), kServerName, simulator::kServerPath, simulator::kServerInterface, kIdMethod,
        g_variant_new("(i)", getpid()), nullptr, G_DBUS_CALL_FLAGS_NONE, kServerLimitMs, nullptr, error));
}

std::string Checks::ServerAdvice(const std::string& error)
{
    if (error.empty()) {
        const unsigned process = ProcessOf(bus_.get(), kServerName);
        return fmt::format(
            "wake the server, process {}, if it is stopped (state T in ps; kill -CONT {}), or look into its own log to "
            "see what keeps it busy",
            process, process);
    }
    const std::string advice = ServerErrorAdvice(error);
    return error.starts_with(kUnknownMethod)
               ? fmt::format("{}; process {} has the server's name", advice, ProcessOf(bus_.get(), kServerName))
               : advice;
}

Finding Checks::Call()
{
    link::ErrorOwner error;
    const auto reply = AskForId(error.Out());
    if (reply == nullptr) {
        const link::TextOwner name(g_dbus_error_get_remote_error(error.get()));
        return {
            State::kProblem, PeerFailed("the server", error.get(), kServerLimitMs),
            ServerAdvice(name == nullptr ? "" : name.get())};
    }
    if (!g_variant_is_of_type(reply.get(), G_VARIANT_TYPE("(s)"))) {
        return NoId("the server answers", g_variant_get_type_string(reply.get()));
    }
    const char* text = nullptr;
    g_variant_get(reply.get(), "(&s)", &text);
    id_ = text;
    return {
        State::kOk,
        fmt::format("the server answers {}; other methods are not tried: try one with kivctl call", kIdMethod)};
}

Finding Checks::ClientId()
{
    if (!ClientNames(id_).Fit()) {
        return {
            State::kProblem, fmt::format("\"{}\" does not fit into a D-Bus name, so no events can come", id_),
            "have the server give ids of letters, digits and '_', not too long"};
    }
    return {State::kOk, fmt::format("\"{}\"", id_)};
}

Finding Checks::Subscription()
{
    // The calls are watched, because the library returns neither the answer nor the reason why there is none.
    WatchCalls();
    subscribed_ = SubscribeNamServiceCallback(kSubscription, OnEvent) == 1;
    return subscribed_ ? LookAtSubscription() : WhyNotSubscribed();
}

Finding Checks::LookAtSubscription()
{
    const std::optional<SeenCall> call = CallsSeen().server;
    if (!call || call->method != kSubscribeMethod) {
        return {State::kProblem, "the library's request was not seen on the shared connection", kSeeTheLibrarysLog};
    }
    if (call->type != "(s)") {
        return NoId("the server answers the subscription with", call->type);
    }
    if (call->text != id_) {
        return {State::kProblem, OtherIdText(call->text, id_), kKeepTheId};
    }
    return {State::kOk, "the server accepts the subscription"};
}

Finding Checks::WhyNotSubscribed()
{
    const SeenCalls seen = CallsSeen();
    if (seen.lost) {
        return {State::kProblem, "the connection to the bus is lost", kMakeBus, true};
    }
    if (seen.ownerQuery && seen.ownerQuery->outcome == SeenCall::Outcome::kError) {
        return {
            State::kProblem, "the bus does not tell the library whether the server runs: " + seen.ownerQuery->error,
            "have the policy of the bus allow calls of org.freedesktop.DBus, NameHasOwner above all"};
    }
    if (!seen.server || seen.server->outcome == SeenCall::Outcome::kAnswered) {
        return {State::kProblem, "the library has not subscribed", kSeeTheLibrarysLog};
    }
    return {State::kProblem, NotSubscribedText(*seen.server), ServerAdvice(seen.server->error)};
}

// Waits for the client's bus name, because the library's monitor thread serves the object some time after the
// subscription.
Finding Checks::Endpoint()
{
    const ClientNames client(id_);
    if (!AwaitOwner(bus_.get(), client.name, std::chrono::milliseconds(kEndpointLimitMs))) {
        return {State::kProblem, client.name + " has no owner: the library serves no object", kSeeTheLibrarysLog};
    }
    const unsigned process = ProcessOf(bus_.get(), client.name);
    if (std::cmp_not_equal(process, getpid())) {
        return {
            State::kProblem,
            fmt::format("{} is owned by process {}, which gets the events of this process", client.name, process),
            "have the server give each process an id of its own"};
    }
    return {State::kOk, "the library serves " + client.path};
}

Finding Checks::Events()
{
    const ClientNames client(id_);
    link::ErrorOwner error;
    const link::VariantOwner reply(g_dbus_connection_call_sync(
        bus_.get(), client.name.c_str(), client.path.c_str(), client.interface.c_str(), "nam_notify_subscriber",
        TestEvent(), nullptr, G_DBUS_CALL_FLAGS_NONE, kEndpointLimitMs, nullptr, error.Out()));
    if (reply == nullptr && IsDenied(error.get())) {
        return DeniedEvent(bus_.get(), error.get());
    }
    if (reply == nullptr) {
        return {State::kProblem, PeerFailed("the library", error.get(), kEndpointLimitMs), kSeeTheLibrarysLog};
    }
    if (!WaitUntil([] { return g_eventCame.load(); }, std::chrono::milliseconds(kEndpointLimitMs))) {
        return {State::kProblem, "a test event was sent, but did not arrive", kSeeTheLibrarysLog};
    }
    if (!IsServersUser(bus_.get())) {
        return UnprovenEvents(
            bus_.get(), "a test event of this user arrived, but the bus may refuse the server's events");
    }
    return {State::kOk, "a test event arrived"};
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
        {"feature", "reading whether this device has network speakers", 0, {}, &Checks::Feature},
        {"bus", "connecting to the bus", kConnectLimitMs / 1000, {}, &Checks::Bus},
        {"client name", "asking the bus for a client's name", kBusLimitMs / 1000, {"bus"}, &Checks::ClientName},
        {"activation", "asking the bus what it can start", kBusLimitMs / 1000, {"bus"}, &Checks::Activation},
        {"server", "starting the server unless it runs", kBusLimitMs / 1000, {"bus", "activation"}, &Checks::Server},
        {"call", "asking the server", kServerLimitMs / 1000, {"server"}, &Checks::Call},
        {"client id", "looking at the client id", 0, {"call"}, &Checks::ClientId},
        {"subscription",
         "having the library subscribe",
         kCallLimitSeconds,
         {"feature", "client name", "client id"},
         &Checks::Subscription},
        {"endpoint",
         "waiting for the library to serve its object",
         kEndpointLimitMs / 1000,
         {"subscription"},
         &Checks::Endpoint},
        {"events", "sending the library an event", 2 * kEndpointLimitMs / 1000, {"endpoint"}, &Checks::Events},
    };
    return checks;
}

} // namespace kiv::ctl
