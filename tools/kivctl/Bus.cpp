#include "tools/kivctl/Bus.h"

#include "simulator/Glib.h"
#include "tools/kivctl/MainLoop.h"

#include <fmt/format.h>

#include <cstdlib>

namespace kiv::ctl {
namespace {

constexpr const char* kAddressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

} // namespace

std::string BusAddress()
{
    const link::TextOwner address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    return fmt::format(
        "{}{}", address == nullptr ? "an unknown address" : address.get(),
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

link::ConnectionOwner ConnectToSystemBus(GError** error, GCancellable* cancellable)
{
    const link::TextOwner address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, error));
    if (address == nullptr) {
        return nullptr;
    }
    return link::ConnectionOwner(
        g_dbus_connection_new_for_address_sync(address.get(), simulator::kOwnConnection, nullptr, cancellable, error));
}

link::VariantOwner CallBus(GDBusConnection* bus, const char* method, GVariant* arguments, GError** error)
{
    return link::VariantOwner(g_dbus_connection_call_sync(
        bus, kBusName, simulator::kBusPath, kBusName, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr,
        error));
}

bool StartServer(GDBusConnection* bus, GError** error)
{
    // The owner is checked first, because the bus refuses to start a program that it has no service file for, even if
    // it runs.
    if (!OwnerOf(bus, kServerName).empty()) {
        return true;
    }
    return CallBus(bus, "StartServiceByName", g_variant_new("(su)", kServerName, 0U), error) != nullptr;
}

bool StartServer(std::string& reason)
{
    link::ErrorOwner error;
    const auto bus = ConnectToSystemBus(error.Out());
    if (bus != nullptr && StartServer(bus.get(), error.Out())) {
        return true;
    }
    reason = ErrorText(error.get());
    return false;
}

std::string NamedError(const std::string& name, const std::string& text)
{
    return text.empty() ? name : fmt::format("{}: {}", name, text);
}

std::string ErrorText(GError* error)
{
    const link::TextOwner name(g_dbus_error_get_remote_error(error));
    if (name == nullptr) {
        return error->message;
    }
    g_dbus_error_strip_remote_error(error);
    return NamedError(name.get(), error->message);
}

std::string OwnerOf(GDBusConnection* bus, const std::string& name)
{
    const auto reply = CallBus(bus, "GetNameOwner", g_variant_new("(s)", name.c_str()), nullptr);
    const char* owner = "";
    if (reply != nullptr) {
        g_variant_get(reply.get(), "(&s)", &owner);
    }
    return owner;
}

unsigned ProcessOf(GDBusConnection* bus, const std::string& name)
{
    const auto reply = CallBus(bus, "GetConnectionUnixProcessID", g_variant_new("(s)", name.c_str()), nullptr);
    unsigned process = 0;
    if (reply != nullptr) {
        g_variant_get(reply.get(), "(u)", &process);
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
