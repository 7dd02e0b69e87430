#include "tools/kivctl/CallWatch.h"

#include "src/link/Owners.h"
#include "tools/kivctl/Bus.h"

#include <fmt/format.h>
#include <gio/gio.h>

#include <cstring>
#include <mutex>
#include <utility>

namespace kiv::ctl {
namespace {

// Guards the variables below, because GLib runs the filter on a thread of its own.
std::mutex g_seenMutex;
SeenCalls g_seen;
SeenCalls g_seenInFirstAttempt;
guint32 g_ownerSerial = 0;
guint32 g_serverSerial = 0;
GDBusConnection* g_watched = nullptr;

void SeeRequest(GDBusMessage* message)
{
    const char* destination = g_dbus_message_get_destination(message);
    const char* method = g_dbus_message_get_member(message);
    if (destination == nullptr || method == nullptr) {
        return;
    }
    const std::scoped_lock lock(g_seenMutex);
    if (std::strcmp(destination, kServerName) == 0) {
        g_seen.server = SeenCall{.method = method};
        g_serverSerial = g_dbus_message_get_serial(message);
    } else if (std::strcmp(method, "NameHasOwner") == 0) {
        g_seen.serverGone = false;
        g_seen.ownerQuery = SeenCall{.method = method};
        g_ownerSerial = g_dbus_message_get_serial(message);
    }
}

bool IsMinusOne(GVariant* body)
{
    gint32 value = 0;
    if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(i)")) != FALSE) {
        g_variant_get(body, "(i)", &value);
    }
    return value == -1;
}

void Complete(SeenCall& call, GDBusMessage* reply)
{
    const char* arg0 = g_dbus_message_get_arg0(reply);
    const std::string text = arg0 == nullptr ? "" : arg0;
    if (g_dbus_message_get_message_type(reply) == G_DBUS_MESSAGE_TYPE_ERROR) {
        const char* sender = g_dbus_message_get_sender(reply);
        call.outcome = SeenCall::Outcome::kError;
        call.isOfBus = sender != nullptr && std::strcmp(sender, kBusName) == 0;
        call.error = NamedError(g_dbus_message_get_error_name(reply), text);
        return;
    }
    call.outcome = SeenCall::Outcome::kAnswered;
    call.type = fmt::format("({})", g_dbus_message_get_signature(reply));
    call.text = text;
    GVariant* body = g_dbus_message_get_body(reply);
    call.isRefusal = IsMinusOne(body);
    call.size = body == nullptr ? 0 : g_variant_get_size(body);
}

bool IsFalse(GVariant* body)
{
    gboolean value = TRUE;
    if (body != nullptr && g_variant_is_of_type(body, G_VARIANT_TYPE("(b)")) != FALSE) {
        g_variant_get(body, "(b)", &value);
    }
    return value == FALSE;
}

void SeeReply(GDBusMessage* message)
{
    const guint32 serial = g_dbus_message_get_reply_serial(message);
    const std::scoped_lock lock(g_seenMutex);
    if (g_seen.server && serial == g_serverSerial) {
        Complete(*g_seen.server, message);
        if (g_seen.server->method == kIdMethod && g_seen.server->outcome == SeenCall::Outcome::kAnswered) {
            g_seen.clientId = g_seen.server->text;
        }
    } else if (g_seen.ownerQuery && serial == g_ownerSerial) {
        Complete(*g_seen.ownerQuery, message);
        g_seen.serverGone = IsFalse(g_dbus_message_get_body(message));
    }
}

GDBusMessage* See(GDBusConnection*, GDBusMessage* message, gboolean incoming, gpointer)
{
    const GDBusMessageType type = g_dbus_message_get_message_type(message);
    if (incoming == FALSE && type == G_DBUS_MESSAGE_TYPE_METHOD_CALL) {
        SeeRequest(message);
    } else if (incoming != FALSE && type != G_DBUS_MESSAGE_TYPE_METHOD_CALL && type != G_DBUS_MESSAGE_TYPE_SIGNAL) {
        SeeReply(message);
    }
    return message;
}

void SetConnecting(bool connecting)
{
    const std::scoped_lock lock(g_seenMutex);
    g_seen.connecting = connecting;
}

} // namespace

void WatchCalls()
{
    SetConnecting(true);
    link::ErrorOwner error;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error.Out());
    SetConnecting(false);
    const std::scoped_lock lock(g_seenMutex);
    if (bus == nullptr) {
        g_seen.noBus = error->message;
        return;
    }
    // Otherwise GLib would end the process when the bus is lost.
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    g_dbus_connection_add_filter(bus, See, nullptr, nullptr);
    g_watched = bus;
}

SeenCalls CallsSeen()
{
    const std::scoped_lock lock(g_seenMutex);
    SeenCalls seen = g_seen;
    seen.lost = g_watched != nullptr && g_dbus_connection_is_closed(g_watched) != FALSE;
    return seen;
}

void KeepFirstAttempt()
{
    SeenCalls seen = CallsSeen();
    const std::scoped_lock lock(g_seenMutex);
    g_seenInFirstAttempt = std::move(seen);
}

SeenCalls CallsSeenInFirstAttempt()
{
    const std::scoped_lock lock(g_seenMutex);
    return g_seenInFirstAttempt;
}

} // namespace kiv::ctl
