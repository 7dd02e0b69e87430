#include "Connection.h"

#include <climits>
#include <utility>

namespace kiv::sandbox {

namespace {

[[noreturn]] void Throw(const std::string& what, GError* error)
{
    char* const remoteName = g_dbus_error_get_remote_error(error);
    const std::string name = remoteName == nullptr ? "" : remoteName;
    g_free(remoteName);
    g_dbus_error_strip_remote_error(error);
    throw DaemonError(name, what + ": " + error->message);
}

} // namespace

DaemonError::DaemonError(std::string name, const std::string& reason)
    : std::runtime_error(reason), name_(std::move(name))
{
}

Connection::Connection(const std::string& address) : context_(g_main_context_new())
{
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GError) error = nullptr;
    g_main_context_push_thread_default(context_);
    connection_ = g_dbus_connection_new_for_address_sync(address.c_str(), kFlags, nullptr, nullptr, &error);
    g_main_context_pop_thread_default(context_);
    if (connection_ == nullptr) {
        g_main_context_unref(context_);
        Throw("no connection to " + address, error);
    }
}

Connection::~Connection()
{
    g_dbus_connection_close_sync(connection_, nullptr, nullptr);
    while (g_main_context_iteration(context_, FALSE) != FALSE) {
    }
    g_object_unref(connection_);
    g_main_context_unref(context_);
}

guint32 Connection::CallDaemon(const char* interface, const char* method, GVariant* arguments) const
{
    GDBusMessage* call =
        g_dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus", interface, method);
    if (arguments != nullptr) {
        g_dbus_message_set_body(call, arguments);
    }
    guint32 serial = 0;
    g_autoptr(GError) error = nullptr;
    // The call has no time limit: the daemon always answers, or the connection breaks.
    GDBusMessage* reply = g_dbus_connection_send_message_with_reply_sync(
        connection_, call, G_DBUS_SEND_MESSAGE_FLAGS_NONE, INT_MAX, &serial, nullptr, &error);
    g_object_unref(call);
    if (reply != nullptr) {
        g_dbus_message_to_gerror(reply, &error);
        g_object_unref(reply);
    }
    if (error != nullptr) {
        Throw(method, error);
    }
    return serial;
}

} // namespace kiv::sandbox
