#pragma once

#include <gio/gio.h>

namespace kiv::ctl {

// A connection of its own: the library's may be closed and opened anew.
GDBusConnection* ConnectToSystemBus(GError** error);

// Has the bus start the server unless it runs. Returns whether it runs now.
bool StartServer();

} // namespace kiv::ctl
