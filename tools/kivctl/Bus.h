#pragma once

#include "simulator/ClientNames.h"
#include "simulator/Interfaces.h"
#include "src/link/Owners.h"

#include <gio/gio.h>

#include <chrono>
#include <string>

namespace kiv::ctl {

using simulator::ClientNames;
using simulator::kBusName;
using simulator::kServerName;

// Returns the address of the system bus, and where it comes from unless it is the usual one.
std::string BusAddress();

// Returns the predicate of a sentence about a bus that cannot be reached, and what to do. The advice is the given one
// unless the environment names the bus.
std::string NoBusText(const std::string& reason);
std::string NoBusAdvice(const std::string& otherwise);

// Returns a connection of kivctl's own, because the library may close its connection and open another.
link::ConnectionOwner ConnectToSystemBus(GError** error, GCancellable* cancellable = nullptr);

// Calls the bus itself. The arguments may be floating or null. Returns null after a failure.
link::VariantOwner CallBus(GDBusConnection* bus, const char* method, GVariant* arguments, GError** error);

// Makes the bus start the server, unless it runs. Returns whether it runs now.
bool StartServer(GDBusConnection* bus, GError** error);
// Does the same over a connection of its own. After a failure, the reason is set.
bool StartServer(std::string& reason);

// Returns a D-Bus error as "NAME: TEXT", or the name alone if there is no text.
std::string NamedError(const std::string& name, const std::string& text);

// Does the same for an error of GLib. Returns its text alone if D-Bus has no name for it.
std::string ErrorText(GError* error);

// Return the connection that owns a name, and its process. They return an empty text and 0 if the name has no owner.
std::string OwnerOf(GDBusConnection* bus, const std::string& name);
unsigned ProcessOf(GDBusConnection* bus, const std::string& name);

// Returns whether the name has an owner, now or within the limit.
bool AwaitOwner(GDBusConnection* bus, const std::string& name, std::chrono::milliseconds limit);

// Returns why a client receives no events when its name has no owner.
std::string NoOwnerText(const std::string& name);

// Returns why a client receives no events when the server gave another id in the subscription, and what to do.
std::string OtherIdText(const std::string& id, const std::string& served);
inline constexpr const char* kKeepTheId = "have the server keep the id of a process as long as the process lives";

} // namespace kiv::ctl
