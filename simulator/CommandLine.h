#pragma once

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string>
#include <vector>

namespace kiv::simulator {

/** Has wrong arguments told by the program's name, as everything else that goes wrong. */
inline void TellWithName(CLI::App& app)
{
    app.failure_message([](const CLI::App* program, const CLI::Error& error) {
        return fmt::format("{0}: {1}\n{0}: see {0} --help\n", program->get_name(), error.what());
    });
}

/** Refuses an option or argument that is none of the words. */
inline CLI::Validator OneOf(const std::vector<std::string>& words)
{
    const auto complain = [words](const std::string& given) {
        const bool isKnown = std::ranges::find(words, given) != words.end();
        return isKnown ? "" : fmt::format("must be one of {}, got '{}'", fmt::join(words, ", "), given);
    };
    return {complain, ""};
}

} // namespace kiv::simulator
