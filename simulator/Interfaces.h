#pragma once

namespace kiv::simulator {

// The bus daemon. Its interface has the same name.
inline constexpr char kBusName[] = "org.freedesktop.DBus";
inline constexpr char kBusPath[] = "/org/freedesktop/DBus";

inline constexpr char kServerName[] = "org.lumra.tv.networkspeaker.server";
inline constexpr char kServerPath[] = "/org/lumra/tv/networkspeaker/server";
inline constexpr char kServerInterface[] = "org.lumra.tv.networkspeaker.server.interface";

inline constexpr char kControlName[] = "org.lumra.tv.networkspeaker.simulator";
inline constexpr char kControlInterface[] = "org.lumra.tv.networkspeaker.simulator.control";
inline constexpr char kControlPath[] = "/org/lumra/tv/networkspeaker/simulator";

// The introspection XML of the two objects, from the .xml files in this folder.
extern const char* const kServerXml;
extern const char* const kControlXml;

} // namespace kiv::simulator
