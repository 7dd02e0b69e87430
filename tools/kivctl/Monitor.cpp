#include "Monitor.h"

#include "Bus.h"
#include "Values.h"

#include <fmt/format.h>
#include <glib-unix.h>

#include <algorithm>
#include <csignal>

namespace kiv::ctl {
namespace {

constexpr size_t kShortLength = 32;

// An event callback gets no user data.
Monitor* g_running = nullptr;

const char* EventName(int id)
{
    switch (id) {
    case NAMSERVICE_EXIT_STATE:
        return "NAMSERVICE_EXIT_STATE";
    case NAMSERVICE_ATMOS_STATE:
        return "NAMSERVICE_ATMOS_STATE";
    default:
        return nullptr;
    }
}

std::string ShortHexText(Bytes data, size_t most)
{
    const Bytes shown = data.first(std::min(data.size(), most));
    std::string text = HexText(shown, " ");
    if (shown.size() < data.size()) {
        text += fmt::format(" ... ({} more)", data.size() - shown.size());
    }
    return text;
}

Result BusFailed(const std::string& reason)
{
    return {kFailed, reason, {{"error", reason}}};
}

} // namespace

Monitor::Monitor(MonitorOptions options, const Output& output) : options_(std::move(options)), output_(output)
{
    g_running = this;
}

Monitor::~Monitor()
{
    // No callback runs after this.
    CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    g_running = nullptr;
}

Result Monitor::Run()
{
    g_autoptr(GDBusConnection) bus = ConnectToSystemBus(nullptr);
    // A server that the subscription started would be taken for one that came back.
    if (bus != nullptr && !GetWhetherKivDisabled() && StartServer(bus, nullptr)) {
        server_ = OwnerOf(bus, kServerName);
    }
    Result result = Subscribe();
    if (result.exitCode != kDone) {
        return result;
    }
    const guint interrupt = g_unix_signal_add(SIGINT, OnInterrupt, this);
    const guint terminate = g_unix_signal_add(SIGTERM, OnInterrupt, this);
    result = bus != nullptr ? WatchEvents(bus) : BusFailed("the system bus cannot be reached");
    // This would start a server that has gone.
    if (!busLost_ && !server_.empty()) {
        unregister_atmos_support_cb(OnAtmos);
        UnsubscribeNamServiceCallback(options_.name.c_str());
    }
    g_source_remove(terminate);
    g_source_remove(interrupt);
    return result;
}

Result Monitor::Subscribe()
{
    if (SubscribeNamServiceCallback(options_.name.c_str(), OnEvent) != 1) {
        return Failed("SubscribeNamServiceCallback", 0);
    }
    if (register_atmos_support_cb(OnAtmos, this) != 0) {
        return Failed("register_atmos_support_cb", -1);
    }
    return {};
}

Result Monitor::WatchEvents(GDBusConnection* bus)
{
    // The library serves the client object from a thread of its own, some time after the subscription. The object is
    // there as soon as this process owns the client's bus name.
    const std::string& id = CNSGdbus::m_pInstance->m_strClientName;
    const ClientNames client(id);
    if (!client.Fit()) {
        return BusFailed(fmt::format("no events can come to a client with the id \"{}\" that the server gave", id));
    }
    const guint clientWatch = g_bus_watch_name_on_connection(
        bus, client.name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, OnNameOwned, OnNameNotOwned, this, nullptr);
    const guint serverWatch = g_bus_watch_name_on_connection(
        bus, kServerName, G_BUS_NAME_WATCHER_FLAGS_NONE, OnServer, OnNoServer, this, nullptr);
    while (!ended_) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_bus_unwatch_name(serverWatch);
    g_bus_unwatch_name(clientWatch);
    return busLost_ ? BusFailed("the connection to the system bus is lost") : Result{};
}

void Monitor::SubscribeAgain()
{
    // The other registration is the library's own affair.
    if (SubscribeNamServiceCallback(options_.name.c_str(), OnEvent) == 1) {
        output_.Notify("the server is back, waiting for its events", {{"server", true}});
    } else {
        const Result failed = Failed("SubscribeNamServiceCallback", 0);
        output_.Notify(failed.text, failed.fields);
    }
}

void Monitor::OnServer(GDBusConnection*, const char*, const char* owner, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (self->server_ != owner) {
        self->server_ = owner;
        self->SubscribeAgain();
    }
}

void Monitor::OnNoServer(GDBusConnection* bus, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    self->server_.clear();
    // With the bus everything is gone, and that is told by itself.
    if (bus != nullptr && g_dbus_connection_is_closed(bus) == FALSE) {
        self->output_.Notify("the server has gone", {{"server", false}});
    }
}

void Monitor::OnNameOwned(GDBusConnection*, const char*, const char*, gpointer monitor)
{
    static_cast<Monitor*>(monitor)->output_.Notify("ready, waiting for events", {{"ready", true}});
}

void Monitor::OnNameNotOwned(GDBusConnection* bus, const char*, gpointer monitor)
{
    if (bus == nullptr) {
        auto* self = static_cast<Monitor*>(monitor);
        self->busLost_ = true;
        self->End();
    }
}

gboolean Monitor::OnInterrupt(gpointer monitor)
{
    static_cast<Monitor*>(monitor)->End();
    return G_SOURCE_CONTINUE;
}

void Monitor::OnAtmos(int supported, void* monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (!self->ended_) {
        self->output_.Show(fmt::format("atmos {}", supported), {{"atmos", supported}});
    }
}

void Monitor::OnEvent(int id, void* data, int length)
{
    if (!g_running->ended_) {
        g_running->ShowEvent(id, static_cast<const unsigned char*>(data), length);
    }
}

void Monitor::ShowEvent(int id, const unsigned char* data, int length)
{
    const Bytes bytes(data, static_cast<size_t>(std::max(length, 0)));
    const char* name = EventName(id);
    const std::string hexId = fmt::format("{:#010x}", static_cast<unsigned>(id));

    std::string text = fmt::format("event {}{}{}, length {}", hexId, name ? " " : "", name ? name : "", length);
    if (!bytes.empty()) {
        text += ": " + ShortHexText(bytes, options_.raw ? bytes.size() : kShortLength);
    }
    output_.Show(
        text, {{"event", hexId},
               {"name", name ? Json(name) : Json(nullptr)},
               {"length", length},
               {"data", HexText(bytes, "")}});

    ++shown_;
    if (shown_ == options_.count) {
        End();
    }
}

void Monitor::End()
{
    ended_ = true;
    g_main_context_wakeup(nullptr);
}

} // namespace kiv::ctl
