#pragma once

#include <gio/gio.h>

namespace kiv::link {

// Returns why a call cannot be sent as a D-Bus message, or null if it can. For such calls, GLib would log a critical or
// end the process, or the bus would close the connection. The arguments may be null.
const char* WhyUnsendable(const char* method, GVariant* arguments);

} // namespace kiv::link
