#include "tools/sandbox/page/LiveSandbox.h"

#include "simulator/Interfaces.h"
#include "simulator/Wire.h"
#include "tools/kivctl/Diagnosis.h"
#include "tools/kivctl/Event.h"
#include "tools/kivctl/LogLines.h"
#include "tools/sandbox/BusFault.h"

#include <fmt/format.h>
#include <gio/gunixsocketaddress.h>
#include <nlohmann/json.hpp>

#include <array>
#include <climits>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

constexpr guint kLookMilliseconds = 50;
constexpr std::size_t kLongestLogLine = 4096;

constexpr const char* kUp = "up";
constexpr const char* kDown = "down";
constexpr const char* kHangs = "hangs";

bool AsksForServer(const Message& message)
{
    return message.type == G_DBUS_MESSAGE_TYPE_METHOD_CALL && message.destination == simulator::kBusName &&
           message.member == "NameHasOwner" && message.BodyText() == fmt::format("('{}',)", simulator::kServerName);
}

// Returns nothing for arguments that are not those of an event.
std::string EventText(const std::string& arguments)
{
    const link::VariantOwner tuple(
        g_variant_parse(G_VARIANT_TYPE("(ay)"), arguments.c_str(), nullptr, nullptr, nullptr));
    if (tuple == nullptr) {
        return "";
    }
    const link::VariantOwner array(g_variant_get_child_value(tuple.get(), 0));
    const simulator::Bytes payload = simulator::BytesOf(array.get());
    if (payload.size() < 2 * sizeof(std::int32_t)) {
        return fmt::format("event of {} bytes, without a whole head", payload.size());
    }
    simulator::Reader head(payload);
    const std::int32_t id = head.Int32();
    const std::int32_t length = head.Int32();
    const simulator::Bytes data = head.Rest();
    const std::string text = ctl::DescribeEvent(id, data, length, ServerLayout(), false).text;
    return data.size() == sizeof id ? fmt::format("{} = {}", text, simulator::Reader(data).Int32()) : text;
}

} // namespace

const ctl::Layout& ServerLayout()
{
    static const ctl::Layout layout = ctl::LayoutOf("");
    return layout;
}

std::string ShownLine(json line)
{
    if (const std::string text = line.contains("event") ? EventText(line.value("arguments", "")) : ""; !text.empty()) {
        line["decoded"] = text;
    }
    if (line.contains("error")) {
        const auto diagnosis =
            ctl::DiagnoseServerCall(fmt::format("{}: {}", line.value("error", ""), line.value("message", "")));
        line["found"] = diagnosis.found;
        line["advice"] = diagnosis.advice;
    }
    // The application's texts may be invalid UTF-8.
    return line.dump(-1, ' ', false, json::error_handler_t::replace);
}

LiveSandbox::LiveSandbox(std::string address, History& history) : address_(std::move(address)), history_(history)
{
    RequireAnsweringBus(address_);
    const auto look = [](void* self) -> gboolean {
        static_cast<LiveSandbox*>(self)->LookAtBus();
        return G_SOURCE_CONTINUE;
    };
    look(this);
    g_timeout_add(kLookMilliseconds, look, this);
}

void LiveSandbox::LookAtBus()
{
    if (connection_ == nullptr) {
        Connect();
        return;
    }
    // A connection to a stopped daemon stays open, so the state of its process is read.
    GIOStream* const stream = g_dbus_connection_get_stream(connection_.get());
    const link::ObjectOwner<GCredentials> daemon(
        g_socket_get_credentials(g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream)), nullptr));
    const bool hangs = daemon != nullptr && IsStopped(g_credentials_get_unix_pid(daemon.get(), nullptr));
    SetBus(hangs ? kHangs : kUp);
}

void LiveSandbox::SetBus(const char* state)
{
    if (state != std::exchange(bus_, state)) {
        const char* const advice = state == kHangs ? ctl::kWakeTheBus : state == kDown ? ctl::kMakeBus : "";
        history_.SetState("bus", ShownLine({{"bus", state}, {"advice", advice}}));
    }
}

void LiveSandbox::Connect()
{
    try {
        trace_ = std::make_unique<BusTrace>(address_, [this](const Message& message) { Take(message); });
        connection_.reset(g_dbus_connection_new_for_address_sync(
            address_.c_str(), simulator::kOwnConnection, nullptr, nullptr, nullptr));
    } catch (const std::runtime_error&) {
        trace_.reset();
    }
    SetBus(connection_ == nullptr ? kDown : kUp);
    if (connection_ == nullptr) {
        return;
    }
    g_signal_connect_swapped(connection_.get(), "closed", G_CALLBACK(&LiveSandbox::OnClosed), this);
    g_bus_watch_name_on_connection(
        connection_.get(), simulator::kServerName, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, void* history) {
            static_cast<History*>(history)->SetState("server", R"({"server":"up"})");
        },
        [](GDBusConnection*, const char*, void* history) {
            static_cast<History*>(history)->SetState("server", R"({"server":"down"})");
        },
        &history_, nullptr);
    // Each new owner of the name is asked, because a new simulator follows one that has crashed.
    g_bus_watch_name_on_connection(
        connection_.get(), simulator::kControlName, G_BUS_NAME_WATCHER_FLAGS_NONE,
        [](GDBusConnection*, const char*, const char*, void* self) { static_cast<LiveSandbox*>(self)->AwaitChange(); },
        nullptr, this, nullptr);
}

void LiveSandbox::OnClosed(LiveSandbox* self)
{
    self->trace_.reset();
    self->connection_.reset();
    self->SetBus(kDown);
}

void LiveSandbox::AwaitChange()
{
    if (connection_ != nullptr) {
        g_dbus_connection_call(
            connection_.get(), simulator::kControlName, simulator::kControlPath, simulator::kControlInterface,
            "AwaitChange", g_variant_new("(s)", home_.c_str()), G_VARIANT_TYPE("(s)"), G_DBUS_CALL_FLAGS_NO_AUTO_START,
            INT_MAX, nullptr, &LiveSandbox::OnState, this);
    }
}

void LiveSandbox::OnState(GObject* connection, GAsyncResult* result, void* self)
{
    auto* const sandbox = static_cast<LiveSandbox*>(self);
    const link::VariantOwner reply(g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
    // The call fails when the simulator ends, and if it replays a recording, because it has no home then.
    if (reply != nullptr) {
        const char* state = nullptr;
        g_variant_get(reply.get(), "(&s)", &state);
        sandbox->home_ = state;
        sandbox->history_.SetState("home", ShownLine({{"home", json::parse(sandbox->home_)}}));
        sandbox->AwaitChange();
    }
}

void LiveSandbox::Take(const Message& message)
{
    if (const auto line = messages_.Line(message, IsServerCall(message) || AsksForServer(message))) {
        json shown = simulator::LineObject(*line);
        shown["sender"] = message.sender;
        shown["serial"] = message.serial;
        Post(std::move(shown));
    }
}

void LiveSandbox::Post(json line)
{
    const std::int64_t elapsed = g_get_monotonic_time() - start_;
    line["us"] = elapsed;
    line["ms"] = elapsed / 1000;
    // The trace calls this on its own thread, and the history belongs to the main loop.
    simulator::After({}, [this, shown = ShownLine(std::move(line))] { history_.Add(shown); });
}

void LiveSandbox::ReadLog(const std::string& socketName)
{
    GSocket* const socket =
        g_socket_new(G_SOCKET_FAMILY_UNIX, G_SOCKET_TYPE_DATAGRAM, G_SOCKET_PROTOCOL_DEFAULT, nullptr);
    const link::ObjectOwner<GSocketAddress> address(g_unix_socket_address_new_with_type(
        socketName.c_str(), static_cast<gint>(socketName.size()), G_UNIX_SOCKET_ADDRESS_ABSTRACT));
    if (g_socket_bind(socket, address.get(), FALSE, nullptr) == FALSE) {
        throw std::runtime_error("the page cannot listen for the application's log");
    }
    g_socket_set_blocking(socket, FALSE);
    const link::SourceOwner source(g_socket_create_source(socket, G_IO_IN, nullptr));
    g_source_set_callback(source.get(), G_SOURCE_FUNC(&LiveSandbox::OnDatagram), this, nullptr);
    g_source_attach(source.get(), nullptr);
}

gboolean LiveSandbox::OnDatagram(GSocket* socket, GIOCondition, void* self)
{
    std::array<char, kLongestLogLine> buffer{};
    const gssize size = g_socket_receive(socket, buffer.data(), buffer.size(), nullptr, nullptr);
    if (size < 0) {
        return G_SOURCE_CONTINUE;
    }
    const std::string_view text(buffer.data(), static_cast<std::size_t>(size));
    json line = {{"log", text}};
    if (const auto logged = ctl::LoggedBy(text); logged && logged->text) {
        line["function"] = logged->function;
        line["text"] = *logged->text;
        if (const ctl::LogLine* const known = ctl::FindLogLine(logged->function, *logged->text)) {
            line["meaning"] = known->meaning;
            line["advice"] = known->advice;
        }
    }
    static_cast<LiveSandbox*>(self)->Post(std::move(line));
    return G_SOURCE_CONTINUE;
}

} // namespace kiv::sandbox
