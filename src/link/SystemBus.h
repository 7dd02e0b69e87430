#pragma once

#include "link/Owners.h"

namespace kiv::link {

// The bus itself answers calls, too.
inline constexpr const char* kBusName = "org.freedesktop.DBus";
inline constexpr const char* kBusPath = "/org/freedesktop/DBus";
inline constexpr const char* kBusInterface = "org.freedesktop.DBus";
// As long as GIO waits for an answer.
inline constexpr int kDefaultTimeoutMs = -1;

/*
 * Gets the system bus connection that the process shares, as g_bus_get_sync() does, but such that its loss does not end
 * the host. If the shared connection was lost, gets one that the library opens for itself. README.md states the
 * machine.
 */
ConnectionOwner GetSystemBus(GError** error);

bool IsClosed(GDBusConnection* connection);

// Drops what the library opened for itself. At unload only.
void DropOwnConnection();

} // namespace kiv::link
