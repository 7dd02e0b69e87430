#pragma once

#include "src/link/Owners.h"

#include <gio/gio.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace kiv::sandbox {

// Thrown when a call of the bus daemon fails. The name is that of the D-Bus error, or empty if the daemon did not
// answer.
class DaemonError : public std::runtime_error {
public:
    DaemonError(std::string name, const std::string& reason) : std::runtime_error(reason), name_(std::move(name)) {}

    const std::string& Name() const { return name_; }

private:
    std::string name_;
};

// A connection to a bus that is not shared. Failures are thrown as std::runtime_error.
//
// GIO delivers the loss of a connection in a main context, and keeps the connection until then. This class has a
// context of its own, so that the connection ends with the object.
class Connection {
public:
    explicit Connection(const std::string& address);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    GDBusConnection* Get() const { return connection_.get(); }
    GMainContext* Context() const { return context_.get(); }
    std::string UniqueName() const { return g_dbus_connection_get_unique_name(Get()); }

    // Calls a method of the bus daemon itself and waits for the answer. The arguments may be floating or null.
    // Returns the serial number of the call. Throws DaemonError.
    guint32 CallDaemon(const char* interface, const char* method, GVariant* arguments = nullptr) const;

private:
    link::ContextOwner context_;
    link::ConnectionOwner connection_;
};

} // namespace kiv::sandbox
