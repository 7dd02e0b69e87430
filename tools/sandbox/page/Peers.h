#pragma once

#include <string_view>

namespace kiv::sandbox {

inline constexpr std::string_view kDaemonName = "org.freedesktop.DBus";
inline constexpr std::string_view kServerInterface = "org.lumra.tv.networkspeaker.server.interface";
/// The client's id follows each of these.
inline constexpr std::string_view kClientName = "org.lumra.tv.networkspeaker.client.";
inline constexpr std::string_view kClientPath = "/org/lumra/tv/networkspeaker/client/";
inline constexpr std::string_view kClientInterface = "org.lumra.tv.networkspeaker.client.interface.";

} // namespace kiv::sandbox
