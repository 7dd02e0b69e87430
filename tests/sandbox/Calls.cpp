#include "sandbox/Calls.h"

#include <climits>
#include <stdexcept>

namespace kiv::sandbox {

namespace {

constexpr auto kDaemon = "org.freedesktop.DBus";

// Calls the daemon with a name. Expects a reply with one value, whose type the format gives.
template <typename T>
T AskDaemon(const Connection& connection, const char* method, const std::string& name, const char* format)
{
    link::VariantOwner reply;
    const std::string error = ErrorOf(
        connection, {kDaemon, "/org/freedesktop/DBus", kDaemon, method}, g_variant_new("(s)", name.c_str()), &reply);
    if (!error.empty()) {
        throw std::runtime_error(std::string(method) + ": " + error);
    }
    T value{};
    g_variant_get(reply.get(), format, &value);
    return value;
}

} // namespace

std::string ErrorOf(const Connection& connection, const Callee& callee, GVariant* arguments, link::VariantOwner* reply)
{
    link::ErrorOwner error;
    link::VariantOwner answer(g_dbus_connection_call_sync(
        connection.Get(), callee.name.c_str(), callee.path.c_str(), callee.interface.c_str(), callee.method.c_str(),
        arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, INT_MAX, nullptr, error.Out()));
    if (answer == nullptr) {
        const link::TextOwner name(g_dbus_error_get_remote_error(error.get()));
        return name == nullptr ? error->message : name.get();
    }
    if (reply != nullptr) {
        *reply = std::move(answer);
    }
    return "";
}

std::string Ping(const Connection& connection, const std::string& name)
{
    return ErrorOf(connection, {name, "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer", "Ping"});
}

bool HasOwner(const Connection& connection, const std::string& name)
{
    return AskDaemon<gboolean>(connection, "NameHasOwner", name, "(b)") != FALSE;
}

pid_t OwnerPid(const Connection& connection, const std::string& name)
{
    return static_cast<pid_t>(AskDaemon<guint32>(connection, "GetConnectionUnixProcessID", name, "(u)"));
}

std::string RequestName(const Connection& connection, const std::string& name)
{
    return ErrorOf(
        connection, {kDaemon, "/org/freedesktop/DBus", kDaemon, "RequestName"},
        g_variant_new("(su)", name.c_str(), 0U));
}

} // namespace kiv::sandbox
