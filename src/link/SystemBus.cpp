#include "link/SystemBus.h"

#include "link/Lifetime.h"

#include <mutex>
#include <utility>

namespace kiv::link {

namespace {

// A connection that the library opened for itself, and the context in which GIO delivers its "closed" signal.
struct OwnConnection {
    ContextOwner context;
    ConnectionOwner connection;
};

std::mutex g_ownMutex;

// Guarded by g_ownMutex. With a connection here, the state is Own. Without, it is None or Shared: no variable tells
// which.
constinit NeverDestroyed<OwnConnection> g_own;

// Delivers the "closed" signal of a lost connection, because the queued signal keeps the connection alive. GIO marks
// the connection as closed, and queues the signal, under one lock. g_dbus_connection_get_last_serial() takes that lock,
// so the signal is in the context when it returns.
void DeliverClosed(const OwnConnection& lost)
{
    g_dbus_connection_get_last_serial(lost.connection.get());
    while (g_main_context_iteration(lost.context.get(), FALSE)) {
    }
}

ConnectionOwner CurrentOwn()
{
    const std::lock_guard lock(g_ownMutex);
    return NewReference(g_own->connection.get());
}

// Own -> None. If several threads find the connection closed, one of them takes it out.
void RetireOwn(GDBusConnection* closed)
{
    OwnConnection lost;
    {
        const std::lock_guard lock(g_ownMutex);
        if (g_own->connection.get() == closed) {
            lost = std::exchange(*g_own, {});
        }
    }
    if (lost.connection) {
        DeliverClosed(lost);
    }
}

// None -> Own. If another thread was faster, and its connection is not lost, returns that one and drops this one.
ConnectionOwner PublishOwn(OwnConnection opened)
{
    ConnectionOwner own;
    {
        const std::lock_guard lock(g_ownMutex);
        if (!g_own->connection || IsClosed(g_own->connection.get())) {
            std::swap(*g_own, opened);
        }
        own = NewReference(g_own->connection.get());
    }
    if (opened.connection) {
        DeliverClosed(opened); // it may have been lost already
    }
    return own;
}

// Returns the flags with which g_bus_get_sync() opens a connection. GLib 2.74 added the last one, for containers.
GDBusConnectionFlags BusConnectionFlags()
{
    constexpr int kCrossNamespace = 1 << 6; // the headers of older GLib versions lack its name
    const int since = glib_check_version(2, 74, 0) == nullptr ? kCrossNamespace : 0;
    return static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION | since);
}

ConnectionOwner OpenOwn(GError** error)
{
    const TextOwner address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, error));
    if (!address) {
        return nullptr;
    }
    OwnConnection opened;
    opened.context.reset(g_main_context_new());
    g_main_context_push_thread_default(opened.context.get());
    opened.connection.reset(static_cast<GDBusConnection*>(
        g_object_new(G_TYPE_DBUS_CONNECTION, "address", address.get(), "flags", BusConnectionFlags(), nullptr)));
    const bool isOpen = g_initable_init(G_INITABLE(opened.connection.get()), nullptr, error) != FALSE;
    g_main_context_pop_thread_default(opened.context.get());
    if (!isOpen) {
        DeliverClosed(opened); // the bus may have been lost meanwhile
        return nullptr;
    }
    return PublishOwn(std::move(opened));
}

ConnectionOwner Share(GError** error)
{
    ConnectionOwner connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error));
    if (connection && g_dbus_connection_get_exit_on_close(connection.get()) != FALSE) {
        g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
    }
    return connection;
}

} // namespace

bool IsClosed(GDBusConnection* connection)
{
    return connection != nullptr && g_dbus_connection_is_closed(connection) != FALSE;
}

ConnectionOwner GetSystemBus(GError** error)
{
    if (ConnectionOwner own = CurrentOwn()) {
        if (!IsClosed(own.get())) {
            return own;
        }
        RetireOwn(own.get());
    }
    ErrorOwner stale;
    ConnectionOwner shared = Share(stale.Out());
    // GIO returns a lost connection, or the error with which opening it failed, for as long as anything refers to that
    // connection. So the error may be an old one, and the library opens a connection itself.
    return stale || IsClosed(shared.get()) ? OpenOwn(error) : std::move(shared);
}

void DropOwnConnection()
{
    if (g_own->connection) {
        DeliverClosed(*g_own);
    }
    g_own.Destroy();
}

} // namespace kiv::link
