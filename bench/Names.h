#pragma once

namespace kiv::bench {

// The objects that the benchmarks call. The server's second interface controls it.
struct Destination {
    const char* name;
    const char* path;
    const char* interface;
};
inline constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";
inline constexpr const char* kServerPath = "/org/lumra/tv/networkspeaker/server";
inline constexpr Destination kServer = {kServerName, kServerPath, "org.lumra.tv.networkspeaker.server.interface"};
inline constexpr Destination kControl = {kServerName, kServerPath, "org.lumra.tv.networkspeaker.bench"};
inline constexpr Destination kBus = {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
inline constexpr int kCallTimeoutMs = 8000;

// The names of a client's object for events. The id of the client follows each.
inline constexpr const char* kClientName = "org.lumra.tv.networkspeaker.client.";
inline constexpr const char* kClientPath = "/org/lumra/tv/networkspeaker/client/";
inline constexpr const char* kClientInterface = "org.lumra.tv.networkspeaker.client.interface.";
inline constexpr const char* kEventMethod = "nam_notify_subscriber";

} // namespace kiv::bench
