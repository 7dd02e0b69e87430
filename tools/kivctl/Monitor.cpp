#include "Monitor.h"

#include "Bus.h"
#include "Event.h"
#include "KeptLines.h"
#include "Values.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <glib-unix.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <utility>

namespace kiv::ctl {
namespace {

constexpr guint kPatienceMs = 1000;

// An event callback gets no user data.
Monitor* g_running = nullptr;

// The time of an event as the log and the sandbox's trace have it, and with the day for scripts.
struct Stamp {
    std::string clock;
    std::string iso;
};

Stamp Now()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    return {
        fmt::format("{:%H:%M:%S}.{:03}", fmt::localtime(seconds), milliseconds),
        fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(seconds), milliseconds)};
}

Result BusFailed(const std::string& reason)
{
    return {kFailed, reason, {{"error", reason}}, kDoctorTellsWhy};
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
    g_clear_object(&bus_);
}

Result Monitor::Run()
{
    if (GetWhetherKivDisabled()) {
        return NotSent("SubscribeNamServiceCallback");
    }
    g_autoptr(GError) error = nullptr;
    bus_ = ConnectToSystemBus(&error);
    if (bus_ == nullptr) {
        return BusFailed(fmt::format("the system bus cannot be reached: {}", error->message));
    }
    StartServerOrWait();
    const guint end =
        options_.duration ? g_timeout_add(static_cast<guint>(options_.duration->count()), OnEnd, this) : 0;
    WatchEvents();
    // This would start a server that has gone.
    if (subscribed_ && serverThere_ && !busLost_) {
        unregister_atmos_support_cb(OnAtmos);
        UnsubscribeNamServiceCallback(options_.name.c_str());
    }
    if (end != 0) {
        g_source_remove(end);
    }
    return busLost_ ? BusFailed("the connection to the system bus is lost") : result_;
}

void Monitor::StartServerOrWait()
{
    g_autoptr(GError) error = nullptr;
    if (StartServer(bus_, &error)) {
        return;
    }
    g_dbus_error_strip_remote_error(error);
    const std::string reason =
        fmt::format("waiting for the server, which does not run and cannot be started: {}", error->message);
    output_.Notify(reason, {{"server", false}, {"error", reason}});
    CatchSignals();
}

// A signal ends the process at once while it asks a server for the first time, which may not answer.
void Monitor::CatchSignals()
{
    if (signals_.empty()) {
        signals_ = {g_unix_signal_add(SIGINT, OnEnd, this), g_unix_signal_add(SIGTERM, OnEnd, this)};
    }
}

void Monitor::WatchEvents()
{
    const guint serverWatch = g_bus_watch_name_on_connection(
        bus_, kServerName, G_BUS_NAME_WATCHER_FLAGS_NONE, OnServer, OnNoServer, this, nullptr);
    while (!ended_) {
        g_main_context_iteration(nullptr, TRUE);
    }
    g_bus_unwatch_name(serverWatch);
    if (clientWatch_ != 0) {
        g_bus_unwatch_name(clientWatch_);
    }
    if (patience_ != 0) {
        g_source_remove(patience_);
    }
    std::ranges::for_each(signals_, g_source_remove);
}

void Monitor::OnServer(GDBusConnection*, const char*, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    self->serverThere_ = true;
    if (self->subscribed_) {
        self->SubscribeAgain();
    } else {
        self->Subscribe();
    }
}

void Monitor::Subscribe()
{
    const bool subscribed = SubscribeNamServiceCallback(options_.name.c_str(), OnEvent) == 1;
    if (subscribed && register_atmos_support_cb(OnAtmos, this) == 0) {
        subscribed_ = true;
        CatchSignals();
        WatchClient();
        return;
    }
    const Result failed =
        subscribed ? Failed("register_atmos_support_cb", -1) : Failed("SubscribeNamServiceCallback", 0);
    // One that has ended in between is waited for.
    if (!OwnerOf(bus_, kServerName).empty()) {
        Fail(failed);
    }
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

// The library serves the client object from a thread of its own, some time after the subscription. The object is there
// as soon as this process owns the client's bus name.
void Monitor::WatchClient()
{
    const std::string& id = CNSGdbus::m_pInstance->m_strClientName;
    const ClientNames client(id);
    if (!client.Fit()) {
        Fail(BusFailed(fmt::format("no events can come to a client with the id \"{}\" that the server gave", id)));
        return;
    }
    client_ = client.name;
    ExpectClient();
    clientWatch_ = g_bus_watch_name_on_connection(
        bus_, client_.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, OnNameOwned, OnNameNotOwned, this, nullptr);
}

void Monitor::ExpectClient()
{
    if (patience_ == 0) {
        patience_ = g_timeout_add(kPatienceMs, OnNotReady, this);
    }
}

void Monitor::OnNoServer(GDBusConnection* bus, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (bus == nullptr || g_dbus_connection_is_closed(bus) != FALSE) {
        self->busLost_ = true;
        self->End();
        return;
    }
    // A server that never was there has been told of.
    if (std::exchange(self->serverThere_, false)) {
        self->output_.Notify("the server has gone", {{"server", false}});
    }
}

void Monitor::OnNameOwned(GDBusConnection* bus, const char* name, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (self->patience_ != 0) {
        g_source_remove(std::exchange(self->patience_, 0));
    }
    const unsigned process = ProcessOf(bus, name);
    if (std::cmp_not_equal(process, getpid())) {
        self->TellNotReady(fmt::format("the bus name {} is owned by process {}, which gets them", name, process));
        return;
    }
    // The lines of a first attempt are moot, and those that come now are about events.
    DropMootLogLines();
    self->output_.Notify("ready, waiting for events", {{"ready", true}});
}

void Monitor::OnNameNotOwned(GDBusConnection* bus, const char*, gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (bus == nullptr) {
        self->busLost_ = true;
        self->End();
    } else {
        self->ExpectClient();
    }
}

gboolean Monitor::OnNotReady(gpointer monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    self->patience_ = 0;
    self->TellNotReady(NoOwnerText(self->client_));
    return G_SOURCE_REMOVE;
}

void Monitor::TellNotReady(const std::string& reason)
{
    const std::string text = fmt::format("not ready, events cannot come: {}; {}", reason, kDoctorTellsWhy);
    output_.Notify(text, {{"ready", false}, {"error", text}});
}

gboolean Monitor::OnEnd(gpointer monitor)
{
    static_cast<Monitor*>(monitor)->End();
    return G_SOURCE_CONTINUE;
}

void Monitor::OnAtmos(int supported, void* monitor)
{
    auto* self = static_cast<Monitor*>(monitor);
    if (!self->ended_) {
        const Stamp now = Now();
        self->output_.Show(fmt::format("{} atmos {}", now.clock, supported), {{"time", now.iso}, {"atmos", supported}});
    }
}

void Monitor::OnEvent(int id, void* data, int length)
{
    Monitor& self = *g_running;
    if (self.ended_) {
        return;
    }
    const Stamp now = Now();
    const EventTexts event =
        DescribeEvent(id, EventData(data, length), length, self.options_.layout, self.options_.raw);
    Json fields = {{"time", now.iso}};
    fields.update(event.fields);
    self.output_.Show(fmt::format("{} {}", now.clock, event.text), fields);
    ++self.shown_;
    if (self.shown_ == self.options_.count) {
        self.End();
    }
}

void Monitor::Fail(Result result)
{
    result_ = std::move(result);
    End();
}

void Monitor::End()
{
    ended_ = true;
    g_main_context_wakeup(nullptr);
}

} // namespace kiv::ctl
