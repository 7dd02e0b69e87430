#include "tools/kivctl/Words.h"

#include "tools/Nearest.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <iterator>

namespace kiv::ctl {
namespace {

bool TakesValue(const CLI::Option& option)
{
    return !option.get_positional() && option.get_items_expected_max() > 0;
}

bool IsOption(const std::string& word)
{
    return word.size() > 1 && word.front() == '-' && std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

const CLI::Option* FindOption(const CLI::App& app, const CLI::App& command, const std::string& name)
{
    const CLI::Option* option = command.get_option_no_throw(name);
    return option != nullptr ? option : app.get_option_no_throw(name);
}

// Returns the positional argument that takes the word with this index, or null.
const CLI::Option* PositionalAt(const CLI::App& command, size_t number)
{
    for (const CLI::Option* option : command.get_options()) {
        if (!option->get_positional()) {
            continue;
        }
        const auto most = static_cast<size_t>(option->get_items_expected_max());
        if (number < most) {
            return option;
        }
        number -= most;
    }
    return nullptr;
}

std::vector<std::string> CommandsIn(const CLI::App& command)
{
    std::vector<std::string> names;
    std::ranges::transform(command.get_subcommands(nullptr), std::back_inserter(names), [](const CLI::App* part) {
        return part->get_name();
    });
    return names;
}

std::vector<std::string> OptionsOf(const CLI::App& app, const CLI::App& command)
{
    std::vector<std::string> names;
    for (const CLI::App* owner : {&command, &app}) {
        for (const CLI::Option* option : owner->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

} // namespace

Words ReadWords(const CLI::App& app, const std::vector<std::string>& words)
{
    Words read;
    read.command = &app;
    size_t positionals = 0;
    const auto noteUnknown = [&read](const std::string& word) {
        if (read.unknown.empty()) {
            read.unknown = word;
            read.unknownIn = read.command;
        }
    };
    for (const std::string& word : words) {
        if (read.valueFollows) {
            read.valueFollows = false;
        } else if (const CLI::App* part = FindCommand(*read.command, word)) {
            read.command = part;
        } else if (IsOption(word)) {
            const CLI::Option* option = FindOption(app, *read.command, word.substr(0, word.find('=')));
            read.valueFollows = option != nullptr && TakesValue(*option) && word.find('=') == std::string::npos;
            read.awaited = option;
            if (option == nullptr) {
                noteUnknown(word);
            }
        } else {
            ++positionals;
            if (!read.command->get_subcommands(nullptr).empty()) {
                noteUnknown(word);
            }
        }
    }
    if (!read.valueFollows) {
        read.awaited = PositionalAt(*read.command, positionals);
    }
    return read;
}

std::string UnknownWordText(const CLI::App& app, const std::vector<std::string>& words)
{
    const Words read = ReadWords(app, words);
    if (read.unknown.empty()) {
        return {};
    }
    const bool isOption = IsOption(read.unknown);
    const std::string path = PathOf(*read.unknownIn);
    const std::string nearest =
        Nearest(read.unknown, isOption ? OptionsOf(app, *read.unknownIn) : CommandsIn(*read.unknownIn));
    // A command is named with the commands before it, an option by its own name.
    const std::string prefix = isOption || path.empty() ? "" : path.substr(1) + " ";
    const bool isMisplaced =
        isOption && FindOption(app, *read.command, read.unknown.substr(0, read.unknown.find('='))) != nullptr;
    const std::string advice =
        isMisplaced       ? fmt::format("it is an option of{}, so write it behind that command", PathOf(*read.command))
        : nearest.empty() ? fmt::format("kivctl help{} lists them", path)
                          : fmt::format("did you mean {}{}?", prefix, nearest);
    return fmt::format("unknown {} {}{}; {}", isOption ? "option" : "command", prefix, read.unknown, advice);
}

std::string PathOf(const CLI::App& command)
{
    return command.get_parent() == nullptr ? "" : PathOf(*command.get_parent()) + ' ' + command.get_name();
}

std::string Usage(const CLI::Option& option)
{
    if (option.get_positional()) {
        return option.get_name() + (option.get_items_expected_max() > 1 ? "..." : "");
    }
    std::string usage;
    for (const std::string& name : option.get_snames()) {
        usage += fmt::format("-{}, ", name);
    }
    usage += fmt::format("--{}", option.get_lnames().front());
    return option.get_type_name().empty() || option.get_items_expected_max() == 0
               ? usage
               : fmt::format("{} {}", usage, option.get_type_name());
}

std::string UsageOfArguments(const CLI::App& command)
{
    std::string usages;
    for (const CLI::Option* option : command.get_options()) {
        if (option != command.get_help_ptr()) {
            const std::string usage = Usage(*option);
            usages += option->get_required() ? ' ' + usage : fmt::format(" [{}]", usage);
        }
    }
    return usages;
}

const CLI::App* FindCommand(const CLI::App& app, const std::string& name)
{
    const auto found = app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    return found.empty() ? nullptr : found.front();
}

} // namespace kiv::ctl
