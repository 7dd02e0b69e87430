#pragma once

#include "Output.h"

#include <CLI/CLI.hpp>

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
};

// Thrown by a command before it has sent anything.
class BadArguments : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// How a command ended. An empty text shows nothing: the command has shown all there is.
struct Result {
    ExitCode exitCode = kDone;
    std::string text;
    Json fields;
};

// A text for people, and the fields of the JSON object that says the same.
Result Done(std::string text, Json fields);

// The library function of that name returned its failure value.
Result Failed(const char* function, const Json& value);

// The outcome of a library function that returns the server's answer, and -1 for a failure.
Result Answered(const char* function, int value);

// Whether the library's last call got through to the server.
bool ServerReached();

using Action = std::function<Result(const Output&)>;

struct Command {
    const char* name;
    const char* description;
    // Declares the command's arguments; the action finds their values when the command line has been read.
    Action (*declare)(CLI::App& app);
    // The commands of a group, which declares nothing itself.
    std::vector<Command> parts = {};
};

std::vector<Command> DeviceCommands();
std::vector<Command> EventCommands();
std::vector<Command> SpeakerCommands();

} // namespace kiv::ctl
