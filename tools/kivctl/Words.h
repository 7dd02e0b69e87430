#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

// The commands and arguments that the words of a command line have named so far.
struct Words {
    // The last command that the words name.
    const CLI::App* command = nullptr;
    // The option whose value must follow, or the positional argument that may follow. Null if there is neither.
    const CLI::Option* awaited = nullptr;
    // Whether awaited is an option.
    bool valueFollows = false;
    // The first word that is neither a command nor an option, where only these are allowed. Empty if there is none.
    std::string unknown;
    // The command in which that word is.
    const CLI::App* unknownIn = nullptr;
};

Words ReadWords(const CLI::App& app, const std::vector<std::string>& words);

// Returns a message about the first unknown word, and about the word that may be meant. Empty if there is none.
std::string UnknownWordText(const CLI::App& app, const std::vector<std::string>& words);

// Returns the command's name with those of the commands before it, and with a blank in front. Empty for the program
// itself.
std::string PathOf(const CLI::App& command);

// Returns an option, or a positional argument, in the form of a command line.
std::string Usage(const CLI::Option& option);

// Returns all options and arguments of a command, in order, each with a blank in front. Optional ones are in brackets.
std::string UsageOfArguments(const CLI::App& command);

// Returns the subcommand of that name, or null.
const CLI::App* FindCommand(const CLI::App& app, const std::string& name);

} // namespace kiv::ctl
