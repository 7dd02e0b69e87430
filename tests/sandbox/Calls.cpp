#include "Calls.h"

#include <climits>
#include <stdexcept>

namespace kiv::sandbox {

namespace {

std::string ErrorName(GError* error)
{
    char* name = g_dbus_error_get_remote_error(error);
    std::string copy = name == nullptr ? error->message : name;
    g_free(name);
    g_error_free(error);
    return copy;
}

GVariant* Call(
    const Connection& connection, const char* name, const char* interface, const char* method, GVariant* arguments,
    GError** error)
{
    return g_dbus_connection_call_sync(
        connection.Get(), name, "/org/freedesktop/DBus", interface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE,
        INT_MAX, nullptr, error);
}

// Calls the daemon. Expects a reply with one value, whose type the format gives.
template <typename T>
T AskDaemon(const Connection& connection, const char* method, const char* name, const char* format)
{
    GError* error = nullptr;
    GVariant* reply =
        Call(connection, "org.freedesktop.DBus", "org.freedesktop.DBus", method, g_variant_new("(s)", name), &error);
    if (reply == nullptr) {
        throw std::runtime_error(std::string(method) + ": " + ErrorName(error));
    }
    T value{};
    g_variant_get(reply, format, &value);
    g_variant_unref(reply);
    return value;
}

} // namespace

std::string Ping(const Connection& connection, const std::string& name)
{
    GError* error = nullptr;
    GVariant* reply = Call(connection, name.c_str(), "org.freedesktop.DBus.Peer", "Ping", nullptr, &error);
    if (reply == nullptr) {
        return ErrorName(error);
    }
    g_variant_unref(reply);
    return "";
}

bool HasOwner(const Connection& connection, const std::string& name)
{
    return AskDaemon<gboolean>(connection, "NameHasOwner", name.c_str(), "(b)") != FALSE;
}

pid_t OwnerPid(const Connection& connection, const std::string& name)
{
    return static_cast<pid_t>(AskDaemon<guint32>(connection, "GetConnectionUnixProcessID", name.c_str(), "(u)"));
}

std::string RequestName(const Connection& connection, const std::string& name)
{
    GError* error = nullptr;
    GVariant* reply = Call(
        connection, "org.freedesktop.DBus", "org.freedesktop.DBus", "RequestName",
        g_variant_new("(su)", name.c_str(), 0U), &error);
    if (reply == nullptr) {
        return ErrorName(error);
    }
    g_variant_unref(reply);
    return "";
}

} // namespace kiv::sandbox
