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
    const guint interrupt = g_unix_signal_add(SIGINT, OnInterrupt, this);
    const guint terminate = g_unix_signal_add(SIGTERM, OnInterrupt, this);

    Result result;
    if (SubscribeNamServiceCallback(options_.name.c_str(), OnEvent) != 1) {
        result = Failed("SubscribeNamServiceCallback", 0);
    } else if (register_atmos_support_cb(OnAtmos, this) != 0) {
        result = Failed("register_atmos_support_cb", -1);
    } else {
        result = WatchEvents();
        if (!busLost_) {
            unregister_atmos_support_cb(OnAtmos);
            UnsubscribeNamServiceCallback(options_.name.c_str());
        }
    }

    g_source_remove(terminate);
    g_source_remove(interrupt);
    return result;
}

Result Monitor::WatchEvents()
{
    // The library serves the client object from a thread of its own, some time after the subscription. The object is
    // there as soon as this process owns the client's bus name.
    const std::string& id = CNSGdbus::m_pInstance->m_strClientName;
    const std::string clientName = "org.lumra.tv.networkspeaker.client." + id;
    const std::string clientPath = "/org/lumra/tv/networkspeaker/client/" + id;
    if (!g_dbus_is_name(clientName.c_str()) || !g_variant_is_object_path(clientPath.c_str())) {
        return BusFailed(fmt::format("no events can come to a client with the id \"{}\" that the server gave", id));
    }

    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) bus = ConnectToSystemBus(&error);
    if (bus == nullptr) {
        return BusFailed(error->message);
    }
    const guint watch = g_bus_watch_name_on_connection(
        bus, clientName.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, OnNameOwned, OnNameNotOwned, this, nullptr);
    while (!ended_) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_bus_unwatch_name(watch);
    return busLost_ ? BusFailed("the connection to the system bus is lost") : Result{};
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
