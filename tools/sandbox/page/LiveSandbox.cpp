#include "page/LiveSandbox.h"

#include "BusFault.h"
#include "BusTrace.h"
#include "simulator/Interfaces.h"
#include "tools/kivctl/LogLines.h"

#include <gio/gunixsocketaddress.h>

#include <array>
#include <climits>
#include <stdexcept>
#include <utility>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

constexpr guint kRetryMilliseconds = 50;
constexpr guint kLookMilliseconds = 80;
constexpr std::size_t kLongestLogLine = 4096;

/// Texts of the application and of the bus need not be valid UTF-8.
std::string Print(const json& line)
{
    return line.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

LiveSandbox::LiveSandbox(std::string address, History& history)
    : address_(std::move(address)), history_(history), begin_(g_get_real_time())
{
    Connect();
    g_timeout_add(kLookMilliseconds, &LiveSandbox::LookAtBus, this);
}

void LiveSandbox::Connect()
{
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    connection_ = g_dbus_connection_new_for_address_sync(address_.c_str(), kFlags, nullptr, nullptr, nullptr);
    try {
        if (connection_ == nullptr) {
            throw std::runtime_error("no bus");
        }
        trace_ = std::make_unique<BusTrace>(address_, [this](const Message& message) {
            if (auto line = lines_.Line(message)) {
                Post(std::move(*line));
            }
        });
    } catch (const std::runtime_error&) {
        g_clear_object(&connection_);
        SetUp("bus", false);
        g_timeout_add_once(
            kRetryMilliseconds, [](void* self) { static_cast<LiveSandbox*>(self)->Connect(); }, this);
        return;
    }
    SetUp("bus", true);
    g_signal_connect_swapped(connection_, "closed", G_CALLBACK(&LiveSandbox::OnClosed), this);
    g_bus_watch_name_on_connection(
        connection_, simulator::kServerName, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, void* self) {
            static_cast<LiveSandbox*>(self)->SetUp("server", true);
        },
        [](GDBusConnection*, const char*, void* self) { static_cast<LiveSandbox*>(self)->SetUp("server", false); },
        this, nullptr);
    // Each simulator is asked anew, also one that follows another after a crash.
    g_bus_watch_name_on_connection(
        connection_, simulator::kControlName, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, void* self) { static_cast<LiveSandbox*>(self)->AwaitChange(); },
        nullptr, this, nullptr);
}

/// A daemon that has been stopped does not say so.
gboolean LiveSandbox::LookAtBus(void* self)
{
    auto* const sandbox = static_cast<LiveSandbox*>(self);
    if (sandbox->connection_ == nullptr) {
        return G_SOURCE_CONTINUE;
    }
    GIOStream* const stream = g_dbus_connection_get_stream(sandbox->connection_);
    GCredentials* daemon =
        g_socket_get_credentials(g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream)), nullptr);
    const bool hangs = daemon != nullptr && IsStopped(g_credentials_get_unix_pid(daemon, nullptr));
    g_clear_object(&daemon);
    if (hangs != std::exchange(sandbox->hangs_, hangs)) {
        sandbox->history_.SetState("bus", hangs ? R"({"bus":"hangs"})" : R"({"bus":true})");
    }
    return G_SOURCE_CONTINUE;
}

void LiveSandbox::OnClosed(LiveSandbox* self)
{
    self->trace_.reset();
    g_clear_object(&self->connection_);
    self->SetUp("server", false);
    self->Connect();
}

void LiveSandbox::AwaitChange()
{
    if (connection_ != nullptr) {
        g_dbus_connection_call(
            connection_, simulator::kControlName, simulator::kControlPath, simulator::kControlInterface, "AwaitChange",
            g_variant_new("(s)", home_.c_str()), G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NO_AUTO_START, INT_MAX,
            nullptr, &LiveSandbox::OnState, this);
    }
}

void LiveSandbox::OnState(GObject* connection, GAsyncResult* result, void* self)
{
    auto* const sandbox = static_cast<LiveSandbox*>(self);
    GVariant* const reply = g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr);
    // It fails when the simulator goes, and where a replay has no home.
    if (reply != nullptr) {
        const char* state = nullptr;
        g_variant_get(reply, "(&s)", &state);
        sandbox->home_ = state;
        g_variant_unref(reply);
        sandbox->history_.SetState("home", Print({{"home", json::parse(sandbox->home_)}}));
        sandbox->AwaitChange();
    }
}

void LiveSandbox::SetUp(const char* name, bool isUp)
{
    history_.SetState(name, Print({{name, isUp}}));
}

std::int64_t LiveSandbox::Elapsed() const
{
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_).count();
}

void LiveSandbox::Post(json line)
{
    const std::int64_t elapsed = Elapsed();
    line["us"] = elapsed;
    line["ms"] = elapsed / 1000;
    const std::lock_guard lock(mutex_);
    if (posted_.empty()) {
        g_idle_add(&LiveSandbox::TakePosted, this);
    }
    posted_.push_back(Print(line));
}

gboolean LiveSandbox::TakePosted(void* self)
{
    auto* const sandbox = static_cast<LiveSandbox*>(self);
    std::vector<std::string> posted;
    {
        const std::lock_guard lock(sandbox->mutex_);
        posted.swap(sandbox->posted_);
    }
    for (std::string& line : posted) {
        sandbox->history_.Add(std::move(line));
    }
    return G_SOURCE_REMOVE;
}

void LiveSandbox::ReadLog(const std::string& socketName)
{
    GSocket* const socket =
        g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_DEFAULT, nullptr);
    GSocketAddress* const address = g_unix_socket_address_new_with_type(
        socketName.c_str(), static_cast<gint>(socketName.size()), G_UNIX_SOCKET_ADDRESS_ABSTRACT);
    const bool isBound = g_socket_bind(socket, address, FALSE, nullptr) != FALSE;
    g_object_unref(address);
    if (!isBound) {
        throw std::runtime_error("the page cannot listen for the application's log");
    }
    g_socket_set_blocking(socket, FALSE);
    GSource* const source = g_socket_create_source(socket, G_IO_IN, nullptr);
    g_source_set_callback(source, G_SOURCE_FUNC(&LiveSandbox::OnDatagram), this, nullptr);
    g_source_attach(source, nullptr);
    g_source_unref(source);
}

gboolean LiveSandbox::OnDatagram(GSocket* socket, GIOCondition, void* self)
{
    std::array<char, kLongestLogLine> buffer{};
    const gssize size = g_socket_receive(socket, buffer.data(), buffer.size(), nullptr, nullptr);
    if (size >= 0) {
        static_cast<LiveSandbox*>(self)->AddLogLine(std::string(buffer.data(), static_cast<std::size_t>(size)));
    }
    return G_SOURCE_CONTINUE;
}

void LiveSandbox::AddLogLine(const std::string& text)
{
    json line = {{"log", text}};
    if (const auto logged = ctl::LoggedBy(text)) {
        line["function"] = logged->function;
        line["text"] = logged->text;
        if (const ctl::LogLine* const known = ctl::FindLogLine(logged->function, logged->text)) {
            line["meaning"] = known->meaning;
            line["advice"] = known->advice;
        }
    }
    Post(std::move(line));
}

} // namespace kiv::sandbox
