#pragma once

#include "Output.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kiv::ctl {

enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kBadArguments = 2,
    kNoNetworkSpeakers = 3,
    kTimedOut = 4,
};

// Thrown by a command before it has sent anything.
class BadArguments : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The advice where a failure lies on the way that doctor goes. Of a single request doctor knows nothing.
inline constexpr const char* kDoctorTellsWhy = "kivctl doctor tells why";
// The advice where the server has got a request and did not answer it well.
inline constexpr const char* kServersLogTellsWhy = "the server's own log tells why";

// The peer that a command has the library ask.
enum class Asks {
    kNobody,
    kServer,
    kServerOnOwnThread, // which begins to watch the calls itself
};

// How a command ended. An empty text shows nothing: the command has shown all there is.
struct Result {
    ExitCode exitCode = kDone;
    std::string text;
    Json fields;
    std::string advice = {}; // for people, what to do about a failure
    // A call of the library's that the command no longer waits for still runs on another thread.
    bool isAbandoned = false;
};

// A text for people, and the fields of the JSON object that says the same.
Result Done(std::string text, Json fields);

// The reason for which a function fails that the server has answered, and what to do about it.
struct Refusal {
    const char* reason = "the server refused it";
    const char* advice = kServersLogTellsWhy;
};

inline constexpr Refusal kNothingUsable = {
    "the server sent nothing usable", "there may be nothing to tell of, or it serves another version of the interface"};
inline constexpr Refusal kUnknownSpeaker = {
    "the server refused it", "kivctl list nodes shows which speakers there are"};

// The library function of that name returned this and failed, or the server answered so. The refusal is told only if
// the request got its answer.
Result Failed(const char* function, const Json& value, const Refusal& refusal = {});

// The outcome of a library function that returns the server's answer, and -1 for a failure. The meaning is that of the
// answer.
Result Answered(const char* function, int value, const char* meaning = "", const Refusal& refusal = {});

// The same for one that also returns 0 for a failure.
Result AnsweredNotZero(const char* function, int value, const char* meaning = "", const Refusal& refusal = {});

// The outcome of a library function that returns false for a failure.
Result AnsweredYesOrNo(const char* function, bool value, const char* yes = "yes", const char* no = "no");

// The outcome of a library function that returns nothing. The server's answer of -1, which the library does not look
// at, is a refusal.
Result Sent(const char* function, const Refusal& refusal = {});

// The library function of that name had nobody to ask. The reason is one that a command itself has found.
Result NotSent(const char* function, const std::string& reason = {});

// A command was not done within its time. One that asks the server waits for the bus, the server or events.
Result TimedOut(const std::string& command, std::chrono::milliseconds limit, Asks asks);

// Tells whether the library's last call got through to the server.
bool ServerReached();

// Tells whether the library's last call on this thread did not get the server's answer, whatever it returned.
bool CallFailed();

using Action = std::function<Result(const Output&)>;

struct Command {
    const char* name;
    const char* description;
    // Declares the command's arguments; the action finds their values when the command line has been read.
    std::function<Action(CLI::App& app)> declare;
    // The commands of a group, which declares nothing itself.
    std::vector<Command> parts = {};
    Asks asks = Asks::kServer;
};

// What people want to do.
std::vector<Command> ConnectCommands();
std::vector<Command> DeviceCommands();
std::vector<Command> EventCommands();
std::vector<Command> LinkCommands();
std::vector<Command> ListCommands();
std::vector<Command> ModeCommands();
std::vector<Command> NameAndVolumeCommands();
std::vector<Command> SoundbarCommands();
std::vector<Command> SpeakerCommands();
std::vector<Command> ToneCommands();

// The library's functions by name.
std::vector<Command> ConnectFunctions();
std::vector<Command> DeviceFunctions();
std::vector<Command> EventFunctions();
std::vector<Command> LinkFunctions();
std::vector<Command> ListFunctions();
std::vector<Command> ModeFunctions();
std::vector<Command> NameAndVolumeFunctions();
std::vector<Command> OlderFunctions();
std::vector<Command> SoundbarFunctions();
std::vector<Command> SpeakerFunctions();
std::vector<Command> ToneFunctions();

} // namespace kiv::ctl
