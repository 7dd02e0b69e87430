#pragma once

#include "tools/kivctl/Output.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kiv::ctl {

enum ExitCode {
    kDone = 0,
    kFailed = 1,
    kBadArguments = 2,
    kNoNetworkSpeakers = 3,
    kTimedOut = 4,
};

// A command throws this before it has sent anything.
class BadArguments : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The advice for a failure in a step that kivctl doctor checks. It does not check single requests.
inline constexpr const char* kDoctorTellsWhy = "kivctl doctor tells why";
// The advice if the server received a request and did not answer it well.
inline constexpr const char* kServersLogTellsWhy = "the server's own log tells why";

// The peer that the library calls for a command.
enum class Asks {
    kNobody,
    kServer,
    kServerOnOwnThread, // the command calls WatchCalls() itself
};

// The result of a command. An empty text shows nothing, because the command has shown everything itself.
struct Result {
    ExitCode exitCode = kDone;
    std::string text;
    Json fields;
    std::string advice = {}; // what people can do about a failure
    // Another thread still runs a call of the library for which the command does not wait any more.
    bool isAbandoned = false;
};

// Returns a success: a text for people, and the same as fields of a JSON object.
Result Done(std::string text, Json fields);

// The reason for the failure of a function that the server has answered, and what to do about it.
struct Refusal {
    const char* reason = "the server refused it";
    const char* advice = kServersLogTellsWhy;
};

inline constexpr Refusal kNothingUsable = {
    "the server sent nothing usable",
    "there may be nothing to report, or the server has another version of the interface"};
inline constexpr Refusal kUnknownSpeaker = {
    "the server refused it", "kivctl list nodes shows which speakers there are"};
// The same for a request that needs a speaker with which the server is connected.
inline constexpr Refusal kNotConnected = {
    kUnknownSpeaker.reason,
    "kivctl list nodes shows which speakers there are; one that is only seen must be connected first: kivctl connect "
    "new MAC"};

// Returns a failure: its reason for people, and as the field "error".
Result Failure(const std::string& reason, const std::string& advice);

// Returns the failure of the library function of that name, which returned this value. The refusal is shown only if the
// request got its answer.
Result Failed(const char* function, const Json& value, const Refusal& refusal = {});

// Returns the result of a library function that returns the server's answer, and -1 for a failure. The meaning explains
// the answer.
Result Answered(const char* function, int value, const char* meaning = "", const Refusal& refusal = {});

// Does the same for a function that also returns 0 for a failure.
Result AnsweredNotZero(const char* function, int value, const char* meaning = "", const Refusal& refusal = {});

// Returns the result of a library function that returns false for a failure.
Result AnsweredYesOrNo(const char* function, bool value, const char* yes = "yes", const char* no = "no");

// Returns the result of a library function that returns nothing. If the server answers -1, which the library ignores,
// that is a refusal.
Result Sent(const char* function, const Refusal& refusal = {});

// Returns the failure of a library function that did not reach the server. A command may give a reason that it has
// found itself.
Result NotSent(const char* function, const std::string& reason = {});

// Returns the failure of a command that did not end within its time. A command that asks the server waits for the bus,
// the server or events.
Result TimedOut(const std::string& command, std::chrono::milliseconds limit, Asks asks);

// Remarks that the command waits for the bus, if it does.
void RemarkSilentBus(const Output& output);

// Returns whether the library's last call reached the server.
bool ServerReached();

// Returns whether the library's last call on this thread failed to get the server's answer, whatever it returned.
bool CallFailed();

using Action = std::function<Result(const Output&)>;

// Declares a command: one function adds its arguments, the other runs it with their values.
template <typename Arguments, typename Add, typename Run>
constexpr auto With(Add add, Run run)
{
    return [add, run](CLI::App& app) -> Action {
        const auto arguments = std::make_shared<Arguments>();
        add(app, *arguments);
        return [run, arguments](const Output&) { return run(*arguments); };
    };
}

// Declares a command without arguments.
template <typename Run>
constexpr auto Plain(Run run)
{
    return [run](CLI::App&) -> Action { return [run](const Output&) { return run(); }; };
}

struct Command {
    const char* name;
    const char* description;
    // Declares the command's arguments. The action reads their values after the command line has been parsed.
    std::function<Action(CLI::App& app)> declare;
    Asks asks = Asks::kServer;
    // The commands of a group, which declares nothing itself.
    std::vector<Command> parts = {};
};

inline Command Group(const char* name, const char* description, std::vector<Command> parts)
{
    return {name, description, nullptr, Asks::kServer, std::move(parts)};
}

// The commands for people.
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

// The commands of "kivctl call": the library's functions by name.
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
