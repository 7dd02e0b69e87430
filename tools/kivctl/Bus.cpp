#include "tools/kivctl/Bus.h"

#include "tools/kivctl/MainLoop.h"

#include <fmt/format.h>

#include <cstdlib>

namespace kiv::ctl {
namespace {

constexpr const char* kAddressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

} // namespace

ClientNames::ClientNames(const std::string& id)
    : name(kClientNamePrefix + id), path("/org/lumra/tv/networkspeaker/client/" + id),
      interface("org.lumra.tv.networkspeaker.client.interface." + id)
{
}

bool ClientNames::Fit() const
{
    return g_dbus_is_name(name.c_str()) != FALSE && g_variant_is_object_path(path.c_str()) != FALSE &&
           g_dbus_is_interface_name(interface.c_str()) != FALSE;
}

std::string BusAddress()
{
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    return fmt::format(
        "{}{}", address == nullptr ? "an unknown address" : address,
        std::getenv(kAddressVariable) == nullptr ? "" : fmt::format(" (from {})", kAddressVariable));
}

std::string NoBusText(const std::string& reason)
{
    return fmt::format("cannot be reached at {}: {}", BusAddress(), reason);
}

std::string NoBusAdvice(const std::string& otherwise)
{
    return std::getenv(kAddressVariable) == nullptr
               ? otherwise
               : fmt::format("correct or unset {}, or start the bus that it names", kAddressVariable);
}

GDBusConnection* ConnectToSystemBus(GError** error, GCancellable* cancellable)
{
    g_autofree char* address = g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, error);
    if (address == nullptr) {
        return nullptr;
    }
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
        G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    return g_dbus_connection_new_for_address_sync(address, kFlags, nullptr, cancellable, error);
}

GVariant* CallBus(GDBusConnection* bus, const char* method, GVariant* arguments, GError** error)
{
    return g_dbus_connection_call_sync(
        bus, kBusName, "/org/freedesktop/DBus", kBusName, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1,
        nullptr, error);
}

bool StartServer(GDBusConnection* bus, GError** error)
{
    // The owner is checked first, because the bus refuses to start a program that it has no service file for, even if
    // it runs.
    if (!OwnerOf(bus, kServerName).empty()) {
        return true;
    }
    g_autoptr(GVariant) reply = CallBus(bus, "StartServiceByName", g_variant_new("(su)", kServerName, 0U), error);
    return reply != nullptr;
}

bool StartServer(std::string& reason)
{
    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) bus = ConnectToSystemBus(&error);
    if (bus != nullptr && StartServer(bus, &error)) {
        return true;
    }
    reason = ErrorText(error);
    return false;
}

std::string NamedError(const std::string& name, const std::string& text)
{
    return text.empty() ? name : fmt::format("{}: {}", name, text);
}

std::string ErrorText(GError* error)
{
    g_autofree char* name = g_dbus_error_get_remote_error(error);
    if (name == nullptr) {
        return error->message;
    }
    g_dbus_error_strip_remote_error(error);
    return NamedError(name, error->message);
}

std::string OwnerOf(GDBusConnection* bus, const std::string& name)
{
    g_autoptr(GVariant) reply = CallBus(bus, "GetNameOwner", g_variant_new("(s)", name.c_str()), nullptr);
    const char* owner = "";
    if (reply != nullptr) {
        g_variant_get(reply, "(&s)", &owner);
    }
    return owner;
}

unsigned ProcessOf(GDBusConnection* bus, const std::string& name)
{
    g_autoptr(GVariant) reply = CallBus(bus, "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), nullptr);
    unsigned process = 0;
    if (reply != nullptr) {
        g_variant_get(reply, "(u)", &process);
    }
    return process;
}

bool AwaitOwner(GDBusConnection* bus, const std::string& name, std::chrono::milliseconds limit)
{
    bool owned = false;
    const auto onOwned = [](GDBusConnection*, const char*, const char*, gpointer flag) {
        *static_cast<bool*>(flag) = true;
    };
    const guint watch = g_bus_watch_name_on_connection(
        bus, name.c_str(), G_BUS_NAME_WATCHER_FLAGS_NONE, onOwned, nullptr, &owned, nullptr);
    WaitUntil([&owned] { return owned; }, limit);
    g_bus_unwatch_name(watch);
    return owned;
}

std::string NoOwnerText(const std::string& name)
{
    return fmt::format("nobody owns the bus name {}, and the bus may not let this user own it", name);
}

std::string OtherIdText(const std::string& id, const std::string& served)
{
    return fmt::format(
        "the server answers the subscription with the client id \"{}\", but gave \"{}\" before, for which alone the "
        "library receives events",
        id, served);
}

} // namespace kiv::ctl
