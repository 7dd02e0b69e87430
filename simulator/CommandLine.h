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

// Leaves out of the help which options an option excludes or needs, because an error message says that, and whether an
// argument is required, because the usage line says that.
class HelpFormat : public CLI::Formatter {
    std::string make_option_opts(const CLI::Option* option) const override
    {
        return option->get_option_text().empty() ? "" : " " + option->get_option_text();
    }
};

// Makes messages about wrong arguments begin with the program's name, like all other errors, and end with the way to
// the help, which is that of the command if one is given.
inline void TellWithName(CLI::App& app)
{
    app.failure_message([](const CLI::App* program, const CLI::Error& error) {
        const std::string reason = Reason(*program, error);
        std::string command = program->get_name();
        for (const CLI::App* const given : program->get_subcommands()) {
            command += ' ' + given->get_name();
        }
        const std::string advice = reason.ends_with('?') ? "" : fmt::format("; see {} --help", command);
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

// Makes each option of the program that takes a value refuse a word that begins with "--", because CLI11 takes any next
// word for the value. A file of such a name can be given as "./--name".
inline void RefuseOptionsAsValues(CLI::App& app)
{
    for (CLI::Option* const option : app.get_options()) {
        if (!option->get_positional() && option->get_items_expected_max() > 0) {
            option->check([](const std::string& given) {
                return given.starts_with("--") ? fmt::format("needs a value, got \"{}\"", given) : "";
            });
        }
    }
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
