#include "Doctor.h"

#include "Bus.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace kiv::ctl {
namespace {

constexpr guint kLongestWaitMs = 5000;
constexpr int kServerTimeoutMs = 8000; // as the library's
constexpr unsigned kDoNotQueue = 4;
constexpr const char* kSubscription = "kivctl-doctor";
constexpr int32_t kTestEvent = 0x4b495644; // nobody else's

constexpr const char* kInstallPolicy =
    "put share/dbus-1/system.d/org.lumra.tv.networkspeaker.conf where the bus reads its policies, reload the bus, and "
    "run as a user whom the policy takes for a client";
constexpr const char* kSeeTheServersLog = "look into the server's own log, and start it by hand to see what it says";

enum class State { kOk, kNote, kProblem };

struct Finding {
    const char* subject;
    State state;
    std::string text;
    const char* advice = "";
};

const char* StateText(State state)
{
    switch (state) {
    case State::kOk:
        return "ok";
    case State::kNote:
        return "note";
    default:
        return "problem";
    }
}

std::string ErrorText(GError* error)
{
    g_dbus_error_strip_remote_error(error);
    return error->message;
}

bool IsDenied(const GError* error)
{
    return g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_ACCESS_DENIED) != FALSE;
}

// Runs the main context until then, though not forever. Returns whether it is so now.
bool WaitUntil(const std::function<bool()>& isSo)
{
    bool tooLate = false;
    const guint timer = g_timeout_add(
        kLongestWaitMs,
        [](gpointer late) -> gboolean {
            *static_cast<bool*>(late) = true;
            return G_SOURCE_CONTINUE;
        },
        &tooLate);
    while (!isSo() && !tooLate) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_source_remove(timer);
    return isSo();
}

Finding ExamineFeature()
{
    const bool disabled = GetWhetherKivDisabled();
    if (!g_GetSystemVal) {
        return {
            "feature", State::kNote, "whether this device has network speakers cannot be read; it counts as yes",
            "on a machine that is no TV, name a feature file in KIV_SYSTEM_INFO_FILE"};
    }
    if (disabled) {
        return {
            "feature", State::kProblem, "this device has no network speakers; the library sends nothing",
            "on a machine that is no TV, set kiv_multi_ch_support=true in the file that KIV_SYSTEM_INFO_FILE names"};
    }
    return {"feature", State::kOk, "this device has network speakers"};
}

Finding ExamineActivation(GDBusConnection* bus)
{
    g_autoptr(GVariant) reply = CallBus(bus, "ListActivatableNames", nullptr, nullptr);
    g_autofree const char** names = nullptr;
    if (reply != nullptr) {
        g_variant_get(reply, "(^a&s)", &names);
    }
    if (names != nullptr && g_strv_contains(names, kServerName)) {
        return {"activation", State::kOk, "the bus can start the server"};
    }
    const bool runs = !OwnerOf(bus, kServerName).empty();
    return {
        "activation", runs ? State::kNote : State::kProblem,
        runs ? "the bus cannot start the server; nobody will if it ends"
             : "the bus cannot start the server, which does not run",
        "start the server, or install its D-Bus service file, org.lumra.tv.networkspeaker.server.service"};
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

Finding ExamineServer(GDBusConnection* bus)
{
    g_autoptr(GError) error = nullptr;
    if (!StartServer(bus, &error)) {
        return {"server", State::kProblem, "does not run: " + ErrorText(error), kSeeTheServersLog};
    }
    return {
        "server", State::kOk,
        fmt::format("runs as process {} of user {}", ProcessOf(bus, kServerName), UserOf(bus, kServerName))};
}

Finding ExamineClientName(GDBusConnection* bus)
{
    const std::string name = fmt::format("{}doctor_{}", kClientNamePrefix, getpid());
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = CallBus(bus, "RequestName", g_variant_new("(su)", name.c_str(), kDoNotQueue), &error);
    if (reply == nullptr) {
        return {"client name", State::kProblem, "may not be owned: " + ErrorText(error), kInstallPolicy};
    }
    return {"client name", State::kOk, "the bus lets this user own one"};
}

// The id is set if the server gave one.
Finding ExamineCall(GDBusConnection* bus, std::optional<std::string>& id)
{
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, kServerName, "/org/lumra/tv/networkspeaker/server", "org.lumra.tv.networkspeaker.server.interface",
        "check_dbus_connection", g_variant_new("(i)", getpid()), nullptr, G_DBUS_CALL_FLAGS_NONE, kServerTimeoutMs,
        nullptr, &error);
    if (reply == nullptr) {
        const bool denied = IsDenied(error);
        return {
            "call", State::kProblem, "the server cannot be asked: " + ErrorText(error),
            denied ? kInstallPolicy : kSeeTheServersLog};
    }
    if (!g_variant_is_of_type(reply, G_VARIANT_TYPE("(s)"))) {
        return {
            "call", State::kProblem,
            fmt::format("the server answers {} where a client id is due", g_variant_get_type_string(reply)),
            "use a server that serves this version of the interface"};
    }
    const char* text = nullptr;
    g_variant_get(reply, "(&s)", &text);
    id = text;
    return {"call", State::kOk, "the server answers"};
}

Finding ExamineId(const std::string& id)
{
    if (!ClientNames(id).Fit()) {
        return {
            "client id", State::kProblem, fmt::format("\"{}\" makes no D-Bus name, so no events can come", id),
            "have the server give ids of letters, digits and '_', not too long"};
    }
    return {"client id", State::kOk, fmt::format("\"{}\"", id)};
}

std::atomic<bool> g_eventCame = false;

void OnEvent(int id, void*, int)
{
    if (id == kTestEvent) {
        g_eventCame = true;
        g_main_context_wakeup(nullptr);
    }
}

// The library serves its object from a thread of its own, some time after the subscription.
Finding ExamineEndpoint(GDBusConnection* bus, const ClientNames& client)
{
    bool owned = false;
    const auto onOwned = [](GDBusConnection*, const char*, const char*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    const guint watch = g_bus_watch_name_on_connection(
        bus, client.name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, nullptr, &owned, nullptr);
    const bool isServed = WaitUntil([&owned] { return owned; });
    g_bus_unwatch_name(watch);
    if (!isServed) {
        return {
            "endpoint", State::kProblem, client.name + " has no owner: the library serves no object",
            "see the library's log: kivctl --verbose doctor"};
    }
    const unsigned process = ProcessOf(bus, client.name);
    if (std::cmp_not_equal(process, getpid())) {
        return {
            "endpoint", State::kProblem,
            fmt::format("{} is owned by process {}, which gets this one's events", client.name, process),
            "have the server give each process an id of its own"};
    }
    return {"endpoint", State::kOk, "the library serves " + client.path};
}

GVariant* TestEvent()
{
    constexpr std::array<int32_t, 2> kHeader = {kTestEvent, 0};
    return g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, kHeader.data(), sizeof kHeader, 1));
}

Finding ExamineEvents(GDBusConnection* bus, const ClientNames& client)
{
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        bus, client.name.c_str(), client.path.c_str(), client.interface.c_str(), "nam_notify_subscriber", TestEvent(),
        nullptr, G_DBUS_CALL_FLAGS_NONE, kLongestWaitMs, nullptr, &error);
    if (reply == nullptr && IsDenied(error)) {
        return {
            "events", State::kNote, "the bus lets this user send none, which is as it should be for all but the server",
            "run this as the server's user to see whether events arrive"};
    }
    if (reply == nullptr) {
        return {
            "events", State::kProblem, "the library does not answer one: " + ErrorText(error),
            "see the library's log: kivctl --verbose doctor"};
    }
    if (!WaitUntil([] { return g_eventCame.load(); })) {
        return {
            "events", State::kProblem, "one that was sent did not arrive",
            "see the library's log: kivctl --verbose doctor"};
    }
    return {"events", State::kOk, "one that was sent arrived"};
}

bool IsProblem(const Finding& finding)
{
    return finding.state == State::kProblem;
}

void ExamineEventPath(GDBusConnection* bus, const std::string& id, std::vector<Finding>& findings)
{
    if (SubscribeNamServiceCallback(kSubscription, OnEvent) != 1) {
        findings.push_back(
            {"subscription", State::kProblem, "the request failed, or the server refused it", kSeeTheServersLog});
        return;
    }
    findings.push_back({"subscription", State::kOk, "the server promises events"});
    const ClientNames client(id);
    findings.push_back(ExamineEndpoint(bus, client));
    if (!IsProblem(findings.back())) {
        findings.push_back(ExamineEvents(bus, client));
    }
    UnsubscribeNamServiceCallback(kSubscription);
}

// Later steps need the earlier ones.
std::vector<Finding> ExamineAll()
{
    std::vector<Finding> findings = {ExamineFeature()};
    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) bus = ConnectToSystemBus(&error);
    if (bus == nullptr) {
        findings.push_back(
            {"bus", State::kProblem, "cannot be reached: " + ErrorText(error),
             "start the system bus, name one in DBUS_SYSTEM_BUS_ADDRESS, or bring one: kiv-sandbox -- kivctl doctor"});
        return findings;
    }
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    findings.push_back({"bus", State::kOk, fmt::format("reached at {}", address)});
    findings.push_back(ExamineClientName(bus));
    findings.push_back(ExamineActivation(bus));
    if (IsProblem(findings.back())) {
        return findings;
    }
    findings.push_back(ExamineServer(bus));
    if (IsProblem(findings.back())) {
        return findings;
    }
    std::optional<std::string> id;
    findings.push_back(ExamineCall(bus, id));
    if (id) {
        findings.push_back(ExamineId(*id));
    }
    if (std::ranges::none_of(findings, IsProblem)) {
        ExamineEventPath(bus, *id, findings);
    }
    return findings;
}

} // namespace

Result Examine()
{
    const std::vector<Finding> findings = ExamineAll();
    std::string text;
    Json checks = Json::array();
    for (const auto& [subject, state, found, advice] : findings) {
        text += fmt::format("{}{:8} {:13} {}", text.empty() ? "" : "\n", StateText(state), subject, found);
        if (*advice != '\0') {
            text += fmt::format("\n{:8} {:13} -> {}", "", "", advice);
        }
        checks.push_back({{"check", subject}, {"state", StateText(state)}, {"found", found}, {"advice", advice}});
    }
    const bool healthy = std::ranges::none_of(findings, IsProblem);
    return {healthy ? kDone : kFailed, text, {{"result", healthy}, {"checks", checks}}};
}

} // namespace kiv::ctl
