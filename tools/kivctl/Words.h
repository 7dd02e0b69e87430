#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

// Describes how far the words of a command line have led.
struct Words {
    // The last command that they name.
    const CLI::App* command = nullptr;
    // The option whose value is to follow, or the positional argument that may. Null if none is.
    const CLI::Option* awaited = nullptr;
    // True if it is an option.
    bool valueFollows = false;
    // The first word that is neither a command nor an option where only these may stand. Empty if there is none.
    std::string unknown;
    // The command in which that word stands.
    const CLI::App* unknownIn = nullptr;
};

Words ReadWords(const CLI::App& app, const std::vector<std::string>& words);

// Says that the first unknown word is unknown, and which one may be meant. Empty if there is none.
std::string UnknownWordText(const CLI::App& app, const std::vector<std::string>& words);

// The command's name as it is written behind the program's, with a blank in front. Empty for the program itself.
std::string PathOf(const CLI::App& command);

// An option, or a positional argument, as it is written in a command line.
std::string Usage(const CLI::Option& option);

// All that a command takes, in order, each with a blank in front, and in brackets what may be left out.
std::string UsageOfArguments(const CLI::App& command);

// The command of that name in the command given, or null.
const CLI::App* FindCommand(const CLI::App& app, const std::string& name);

} // namespace kiv::ctl
