#pragma once

#include <string>
#include <string_view>

namespace kiv::ctl {

inline constexpr const char* kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr const char* kNoReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr const char* kSpawnErrors = "org.freedesktop.DBus.Error.Spawn.";

inline constexpr const char* kInstallPolicy =
    "put share/dbus-1/system.d/org.lumra.tv.networkspeaker.conf where the bus reads its policies, reload the bus, and "
    "run as a user whom the policy takes for a client";
inline constexpr const char* kCannotStartServer = "the bus cannot start the server, which does not run";
inline constexpr const char* kInstallServiceFile =
    "start the server, or install its D-Bus service file, org.lumra.tv.networkspeaker.server.service";
inline constexpr const char* kSeeTheServersLog =
    "look into the server's own log, and start it by hand to see what it says";
inline constexpr const char* kUseThisInterface = "use a server that serves this interface (man kiv-dbus)";
inline constexpr const char* kRecordingLacksCall =
    "the server replays a recording that has no such call: record one that has it";
inline constexpr const char* kMakeBus =
    "start the system bus, name a bus in DBUS_SYSTEM_BUS_ADDRESS, or try a private bus: kiv-sandbox -- kivctl doctor";
inline constexpr const char* kWakeTheBus =
    "the bus daemon hangs, and the calls of applications with it: wake it if it is stopped (state T in ps; kill "
    "-CONT), see its log, or restart it";

// Doctor's finding about a problem, and its advice.
struct Diagnosis {
    std::string found;
    std::string advice;
};

// Returns a sentence about a failed call of a peer, which is the subject. The error, "NAME: TEXT", is the answer of the
// peer or of the bus.
std::string FailedBy(const std::string& peer, const std::string& error);

// Returns the advice for such an error as the answer to a call of the server.
std::string ServerErrorAdvice(std::string_view error);

// Returns the diagnosis for a server that could not be started. The reason begins with a D-Bus error if there is one.
Diagnosis ServerDoesNotRun(const std::string& reason);

// Returns the diagnosis for a failed call of the server. The error, "NAME: TEXT", is the answer of the server, or of
// the bus if the bus cannot start the server.
Diagnosis DiagnoseServerCall(const std::string& error);

} // namespace kiv::ctl
