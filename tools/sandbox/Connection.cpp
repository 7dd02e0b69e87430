#include "tools/sandbox/Connection.h"

#include "simulator/Glib.h"
#include "simulator/Interfaces.h"

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
    link::ErrorOwner error;
    g_main_context_push_thread_default(Context());
    connection_.reset(g_dbus_connection_new_for_address_sync(
        address.c_str(), simulator::kOwnConnection, nullptr, nullptr, error.Out()));
    g_main_context_pop_thread_default(Context());
    if (connection_ == nullptr) {
        Throw("no connection to " + address, error.get());
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
        g_dbus_message_new_method_call(simulator::kBusName, simulator::kBusPath, interface, method));
    if (arguments != nullptr) {
        g_dbus_message_set_body(call.get(), arguments);
    }
    guint32 serial = 0;
    link::ErrorOwner error;
    // The call has no time limit: the daemon always answers, or the connection breaks.
    const link::MessageOwner reply(g_dbus_connection_send_message_with_reply_sync(
        Get(), call.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, INT_MAX, &serial, nullptr, error.Out()));
    if (reply == nullptr || g_dbus_message_to_gerror(reply.get(), error.Out()) != FALSE) {
        Throw(method, error.get());
    }
    return serial;
}

} // namespace kiv::sandbox
