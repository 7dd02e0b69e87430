#include "tools/sandbox/Connection.h"

#include <climits>

namespace kiv::sandbox {

namespace {

[[noreturn]] void Throw(const std::string& what, GError* error)
{
    const link::TextOwner name(g_dbus_error_get_remote_error(error));
    g_dbus_error_strip_remote_error(error);
    throw DaemonError(name == nullptr ? "" : name.get(), what + ": " + error->message);
}

} // namespace

Connection::Connection(const std::string& address) : context_(g_main_context_new())
{
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GError) error = nullptr;
    g_main_context_push_thread_default(Context());
    connection_.reset(g_dbus_connection_new_for_address_sync(address.c_str(), kFlags, nullptr, nullptr, &error));
    g_main_context_pop_thread_default(Context());
    if (connection_ == nullptr) {
        Throw("no connection to " + address, error);
    }
}

Connection::~Connection()
{
    g_dbus_connection_close_sync(Get(), nullptr, nullptr);
    while (g_main_context_iteration(Context(), FALSE) != FALSE) {
    }
}

guint32 Connection::CallDaemon(const char* interface, const char* method, GVariant* arguments) const
{
    const link::MessageOwner call(
        g_dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus", interface, method));
    if (arguments != nullptr) {
        g_dbus_message_set_body(call.get(), arguments);
    }
    guint32 serial = 0;
    g_autoptr(GError) error = nullptr;
    // The call has no time limit: the daemon always answers, or the connection breaks.
    const link::MessageOwner reply(g_dbus_connection_send_message_with_reply_sync(
        Get(), call.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, INT_MAX, &serial, nullptr, &error));
    if (reply == nullptr || g_dbus_message_to_gerror(reply.get(), &error) != FALSE) {
        Throw(method, error);
    }
    return serial;
}

} // namespace kiv::sandbox
