#pragma once

namespace kiv::bench {

// The names by which every peer calls the server and the bus.
inline constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";
inline constexpr const char* kServerPath = "/org/lumra/tv/networkspeaker/server";
inline constexpr const char* kServerInterface = "org.lumra.tv.networkspeaker.server.interface";
inline constexpr const char* kBusName = "org.freedesktop.DBus";
inline constexpr const char* kBusPath = "/org/freedesktop/DBus";
inline constexpr const char* kOwnerMethod = "NameHasOwner";
inline constexpr const char* kIdMethod = "check_dbus_connection";
inline constexpr int kCallTimeoutMs = 8000;

// The names of a client's object for events. The id of the client follows each.
inline constexpr const char* kClientName = "org.lumra.tv.networkspeaker.client.";
inline constexpr const char* kClientPath = "/org/lumra/tv/networkspeaker/client/";
inline constexpr const char* kClientInterface = "org.lumra.tv.networkspeaker.client.interface.";
inline constexpr const char* kEventMethod = "nam_notify_subscriber";

// The server's second interface, by which the benchmarks control it.
inline constexpr const char* kControlInterface = "org.lumra.tv.networkspeaker.bench";

} // namespace kiv::bench
