#pragma once

#include <gio/gio.h>

namespace kiv::link {

// Why a call cannot be sent as a D-Bus message; null if it can. GLib logs a critical about some such calls or ends the
// process, and the bus closes the connection over others. Arguments may be null.
const char* WhyUnsendable(const char* method, GVariant* arguments);

} // namespace kiv::link
