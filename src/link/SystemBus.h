#pragma once

#include "link/Owners.h"

namespace kiv::link {

// The bus itself answers calls to this name and object.
inline constexpr const char* kBusName = "org.freedesktop.DBus";
inline constexpr const char* kBusPath = "/org/freedesktop/DBus";
inline constexpr const char* kBusInterface = "org.freedesktop.DBus";
// GIO's own time limit for an answer.
inline constexpr int kDefaultTimeoutMs = -1;

// Returns the system bus connection that the process shares, as g_bus_get_sync() does. Switches exit-on-close off, so
// that the loss of the connection does not end the host. If the shared connection is lost, returns one that the library
// opens for itself. README.md has the states of this machine.
ConnectionOwner GetSystemBus(GError** error);

bool IsClosed(GDBusConnection* connection);

// Drops the connection that the library opened for itself. Called at unload only.
void DropOwnConnection();

} // namespace kiv::link
