#include "link/SystemBus.h"

#include "link/ClientEndpoint.h"
#include "link/Lifetime.h"

namespace kiv::link {

namespace {

// How long a call waits for other threads to drop the closed connection. They do as soon as they run; a callback that
// takes its time on the monitor thread is not waited for longer than this.
constexpr gint64 kPatience = 500 * G_TIME_SPAN_MILLISECOND;
constexpr gulong kPause = 1 * G_TIME_SPAN_MILLISECOND;

// Recursive, because a handler of the host's for the "closed" signal may call the library.
std::recursive_mutex g_opening;
std::recursive_mutex g_closedDelivery;

// Made by the first opener, and only used by the thread that holds g_opening: a context has one user at a time.
GMainContext* g_context;

// The connection of the library's own, if there is one.
GWeakRef g_private;

GMainContext* Context()
{
    if (g_context == nullptr) {
        g_context = g_main_context_new();
    }
    return g_context;
}

void DropAll()
{
    // Not cleared, which would leave it unfit for threads that still call while the process exits.
    g_weak_ref_set(&g_private, nullptr);
    const std::unique_lock lock(g_opening, std::try_to_lock);
    if (lock) {
        g_clear_pointer(&g_context, g_main_context_unref);
    }
}

const AtUnload<DropAll> g_allAtUnload;

bool IsClosed(const ConnectionOwner& connection)
{
    return connection && g_dbus_connection_is_closed(connection.get()) != FALSE;
}

ConnectionOwner Share(GError** error)
{
    ConnectionOwner connection(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, error));
    if (connection && g_dbus_connection_get_exit_on_close(connection.get())) {
        g_dbus_connection_set_exit_on_close(connection.get(), FALSE);
    }
    return connection;
}

ConnectionOwner ShareUnderOwnContext(GError** error)
{
    g_main_context_push_thread_default(Context());
    ConnectionOwner connection = Share(error);
    g_main_context_pop_thread_default(Context());
    return connection;
}

ConnectionOwner Private()
{
    return ConnectionOwner(static_cast<GDBusConnection*>(g_weak_ref_get(&g_private)));
}

ConnectionOwner OpenPrivate(GError** error)
{
    const std::unique_ptr<char, Releaser<g_free>> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, error));
    if (!address) {
        return nullptr;
    }
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_main_context_push_thread_default(Context());
    ConnectionOwner connection(g_dbus_connection_new_for_address_sync(address.get(), kFlags, nullptr, nullptr, error));
    g_main_context_pop_thread_default(Context());
    g_weak_ref_set(&g_private, connection.get());
    return connection;
}

void DeliverClosed()
{
    const std::lock_guard lock(ClosedDelivery());
    while (g_main_context_iteration(Context(), FALSE)) {
    }
}

// The connection that the process shares was closed, or the bus was lost while GIO opened it, which GIO then says for
// as long as anybody refers to what it opened.
bool IsLost(const ConnectionOwner& shared, const GError* failure)
{
    return IsClosed(shared) || g_error_matches(failure, G_IO_ERROR, G_IO_ERROR_CLOSED) != FALSE;
}

bool IsAlive(GWeakRef& connection)
{
    return ConnectionOwner(static_cast<GDBusConnection*>(g_weak_ref_get(&connection))) != nullptr;
}

// Waits until nobody refers to the closed connection any more, within limits, and once only: whoever keeps it longer
// costs the calls that come then no time.
void LetGo(ConnectionOwner closed)
{
    if (!closed) {
        DeliverClosed();
        return;
    }
    static const GQuark mark = g_quark_from_string("kiv-interface-api-waited");
    const bool isFirst = g_object_get_qdata(G_OBJECT(closed.get()), mark) == nullptr;
    g_object_set_qdata(G_OBJECT(closed.get()), mark, GINT_TO_POINTER(1));
    GWeakRef watched;
    g_weak_ref_init(&watched, closed.get());
    closed.reset();
    ReleaseClientName();

    // The monitor thread cannot drop what it holds while it waits here.
    const gint64 deadline = g_get_monotonic_time() + (isFirst && !IsMonitorThread() ? kPatience : 0);
    // Nor does GIO, where it asks for a name, expect the loss to be delivered by another thread.
    while (IsClientNameInUse() && g_get_monotonic_time() < deadline) {
        g_usleep(kPause);
    }
    DeliverClosed();
    while (IsAlive(watched) && g_get_monotonic_time() < deadline) {
        g_usleep(kPause);
        DeliverClosed();
    }
    g_weak_ref_clear(&watched);
}

} // namespace

bool IsPrivate(GDBusConnection* connection)
{
    return Private().get() == connection;
}

std::recursive_mutex& ClosedDelivery()
{
    return g_closedDelivery;
}

ConnectionOwner GetSystemBus(ConnectionOwner held, GError** error)
{
    if (held && !IsClosed(held) && !IsPrivate(held.get())) {
        return Share(error);
    }
    held.reset();

    const std::lock_guard lock(g_opening);
    GError* failure = nullptr;
    ConnectionOwner shared = ShareUnderOwnContext(&failure);
    if (IsLost(shared, failure)) {
        g_clear_error(&failure);
        if (ConnectionOwner own = Private()) {
            if (!IsClosed(own)) {
                // A loss that was not there yet when LetGo() looked: the process is to share a connection again.
                shared.reset();
                DeliverClosed();
                return own;
            }
            LetGo(std::move(own));
        }
        LetGo(std::move(shared));
        shared = ShareUnderOwnContext(&failure);
        if (IsLost(shared, failure)) {
            g_clear_error(&failure);
            shared = OpenPrivate(&failure);
        }
    }
    if (failure != nullptr) {
        DeliverClosed(); // or whoever opens the bus next gets this very failure
        g_propagate_error(error, failure);
    }
    return shared;
}

} // namespace kiv::link
