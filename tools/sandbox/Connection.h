#pragma once

#include <gio/gio.h>

#include <string>

namespace kiv::sandbox {

/**
 * A connection to a bus that nobody shares. Failures are reported as std::runtime_error.
 *
 * GIO delivers the loss of the connection in a main context, and keeps the connection until it has done so. This one
 * has a context of its own, so that the end of the object is the end of the connection.
 */
class Connection {
public:
    explicit Connection(const std::string& address);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    GDBusConnection* Get() const { return connection_; }
    GMainContext* Context() const { return context_; }
    std::string UniqueName() const { return g_dbus_connection_get_unique_name(connection_); }

    /// Calls a method of the bus daemon itself and waits for the answer. The arguments may be floating or null.
    /// Returns the serial number of the call.
    guint32 CallDaemon(const char* interface, const char* method, GVariant* arguments = nullptr) const;

private:
    GMainContext* context_;
    GDBusConnection* connection_;
};

} // namespace kiv::sandbox
