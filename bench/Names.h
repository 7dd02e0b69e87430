#pragma once

namespace kiv::bench {

// The server as every peer calls it, and the bus.
inline constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";
inline constexpr const char* kServerPath = "/org/lumra/tv/networkspeaker/server";
inline constexpr const char* kServerInterface = "org.lumra.tv.networkspeaker.server.interface";
inline constexpr const char* kBusName = "org.freedesktop.DBus";
inline constexpr const char* kBusPath = "/org/freedesktop/DBus";
inline constexpr const char* kOwnerMethod = "NameHasOwner";
inline constexpr const char* kIdMethod = "check_dbus_connection";
inline constexpr int kCallTimeoutMs = 8000;

// The object on which a client receives events; the id of the client follows.
inline constexpr const char* kClientName = "org.lumra.tv.networkspeaker.client.";
inline constexpr const char* kClientPath = "/org/lumra/tv/networkspeaker/client/";
inline constexpr const char* kClientInterface = "org.lumra.tv.networkspeaker.client.interface.";
inline constexpr const char* kEventMethod = "nam_notify_subscriber";

// The server's second interface, by which it is told what to do.
inline constexpr const char* kControlInterface = "org.lumra.tv.networkspeaker.bench";

} // namespace kiv::bench
