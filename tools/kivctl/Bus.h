#pragma once

#include <gio/gio.h>

#include <string>

namespace kiv::ctl {

inline constexpr const char* kBusName = "org.freedesktop.DBus";
inline constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";
inline constexpr const char* kClientNamePrefix = "org.lumra.tv.networkspeaker.client.";

// Where a process that the server gave an id receives events.
struct ClientNames {
    explicit ClientNames(const std::string& id);

    // Whether D-Bus allows such names.
    bool Fit() const;

    std::string name;
    std::string path;
    std::string interface;
};

// A connection of its own: the library's may be closed and opened anew.
GDBusConnection* ConnectToSystemBus(GError** error, GCancellable* cancellable = nullptr);

// Calls the bus itself. The arguments may be floating or null. Returns null after a failure.
GVariant* CallBus(GDBusConnection* bus, const char* method, GVariant* arguments, GError** error);

// Has the bus start the server unless it runs. Returns whether it runs now.
bool StartServer(GDBusConnection* bus, GError** error);
// The same over a connection of its own. The reason is that of a failure.
bool StartServer(std::string& reason);

// A D-Bus error: "NAME: TEXT", and the name alone if there is no text.
std::string NamedError(const std::string& name, const std::string& text);

// The same of an error that GLib gives; its text alone if D-Bus has no name for it.
std::string ErrorText(GError* error);

// The connection that owns a name, and its process; empty and 0 if nobody does.
std::string OwnerOf(GDBusConnection* bus, const std::string& name);
unsigned ProcessOf(GDBusConnection* bus, const std::string& name);

// Tells whether the name has an owner, now or within a moment.
bool AwaitOwner(GDBusConnection* bus, const std::string& name);

// Why events do not come to the client of that name when nobody owns it.
std::string NoOwnerText(const std::string& name);

} // namespace kiv::ctl
