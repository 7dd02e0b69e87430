#include "Completion.h"

#include <fmt/format.h>

#include <algorithm>

namespace kiv::ctl {
namespace {

bool TakesValue(const CLI::Option& option)
{
    return !option.get_positional() && option.get_items_expected_max() > 0;
}

const CLI::App* FindCommand(const CLI::App& app, const std::string& name)
{
    const auto found = app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

const CLI::Option* FindOption(const CLI::App& app, const std::string& name)
{
    return name.starts_with('-') ? app.get_option_no_throw(name) : nullptr;
}

std::string OptionLines(const CLI::App& app)
{
    std::string lines;
    for (const CLI::Option* option : app.get_options()) {
        // Every command has the same.
        if (option == app.get_help_ptr() && app.get_parent() != nullptr) {
            continue;
        }
        for (const std::string& name : option->get_lnames()) {
            lines += fmt::format("--{}\t{}\n", name, option->get_description());
        }
    }
    return lines;
}

} // namespace

std::string Completions(const CLI::App& app, const std::vector<std::string>& words)
{
    const CLI::App* command = &app;
    bool valueFollows = false;
    for (const std::string& word : words) {
        if (valueFollows) {
            valueFollows = false;
        } else if (const CLI::App* part = FindCommand(*command, word)) {
            command = part;
        } else {
            const CLI::Option* option = FindOption(*command, word);
            option = option != nullptr ? option : FindOption(app, word);
            valueFollows = option != nullptr && TakesValue(*option);
        }
    }
    if (valueFollows) {
        return "";
    }
    std::string lines;
    for (const CLI::App* part : command->get_subcommands(nullptr)) {
        lines += fmt::format("{}\t{}\n", part->get_name(), part->get_description());
    }
    lines += OptionLines(*command);
    if (command != &app) {
        lines += OptionLines(app);
    }
    return lines;
}

} // namespace kiv::ctl
