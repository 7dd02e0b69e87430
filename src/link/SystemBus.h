#pragma once

#include "link/Owners.h"

#include <mutex>

namespace kiv::link {

/*
 * Gets the system bus connection that the process shares, as g_bus_get_sync() does, but such that its loss neither ends
 * the host nor lasts:
 *
 * GIO hands out a closed connection for as long as anybody refers to it, and the delivery of its "closed" signal does,
 * which happens in the context under which the connection was opened. So it is opened under a context of the library's
 * own, and when it is found closed, that context is run here, what the library holds of it is let go, and a new one is
 * opened. While somebody else holds on to the closed connection, the library uses one of its own, which the process
 * does not share.
 *
 * held: the connection in use so far, or null; any other reference of the caller's must have been dropped if it is
 * closed.
 */
ConnectionOwner GetSystemBus(ConnectionOwner held, GError** error);

// Whether this is the library's own, as above.
bool IsPrivate(GDBusConnection* connection);

// Held while the "closed" signal is delivered. GIO's bus-name owner gives up its connection then, and does not expect
// to be ended by another thread at that moment.
std::recursive_mutex& ClosedDelivery();

} // namespace kiv::link
