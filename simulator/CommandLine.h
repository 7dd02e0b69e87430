#pragma once

#include "tools/Nearest.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace kiv::simulator {

// Returns what is wrong with the arguments, and which option or command may be meant.
inline std::string Reason(const CLI::App& app, const CLI::Error& error)
{
    // The words that no option or argument takes, those behind a subcommand included.
    const std::vector<std::string> words = app.remaining(true);
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::ExtrasError) || words.empty()) {
        return error.what();
    }
    const std::string& word = words.front();
    if (!word.starts_with('-')) {
        return fmt::format("unexpected argument \"{}\"", word);
    }
    const std::vector<CLI::App*> commands = app.get_subcommands();
    std::vector<std::string> names;
    for (const CLI::Option* const option : (commands.empty() ? &app : commands.front())->get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return fmt::format("unknown option {}{}", word, DidYouMean(word, names));
}

// Makes messages about wrong arguments begin with the program's name, like all other errors, and end with the way to
// the help.
inline void TellWithName(CLI::App& app)
{
    app.failure_message([](const CLI::App* program, const CLI::Error& error) {
        const std::string reason = Reason(*program, error);
        const std::string advice = reason.ends_with('?') ? "" : fmt::format("; see {} --help", program->get_name());
        return fmt::format("{}: {}{}\n", program->get_name(), reason, advice);
    });
}

// Refuses a value that is not one of the words.
inline CLI::Validator OneOf(const std::vector<std::string>& words)
{
    const auto complain = [words](const std::string& given) {
        const bool isKnown = std::ranges::find(words, given) != words.end();
        return isKnown ? "" : fmt::format("must be one of {}, got \"{}\"", fmt::join(words, ", "), given);
    };
    return {complain, ""};
}

// Refuses a value that is not an integer, or is out of the range.
inline CLI::Validator IntegerFrom(int least, int most = std::numeric_limits<int>::max())
{
    const auto complain = [least, most](const std::string& given) {
        int value = 0;
        const auto [end, error] = std::from_chars(given.data(), given.data() + given.size(), value);
        const bool isInteger =
            error == std::errc() && end == given.data() + given.size() && value >= least && value <= most;
        return isInteger ? "" : fmt::format("must be an integer from {} to {}, got \"{}\"", least, most, given);
    };
    return {complain, ""};
}

// Refuses a value that does not name a file.
inline CLI::Validator File()
{
    const auto complain = [](const std::string& given) {
        std::error_code ignored;
        const bool isFile = std::filesystem::exists(given, ignored) && !std::filesystem::is_directory(given, ignored);
        return isFile ? "" : fmt::format("must be a file, got \"{}\"", given);
    };
    return {complain, ""};
}

} // namespace kiv::simulator
