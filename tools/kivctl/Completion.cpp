#include "tools/kivctl/Completion.h"

#include "tools/kivctl/Words.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace kiv::ctl {
namespace {

std::map<const CLI::Option*, std::vector<std::string>> g_offered;

std::string ValueLines(const CLI::Option* option)
{
    std::string lines;
    if (const auto offered = g_offered.find(option); offered != g_offered.end()) {
        for (const std::string& value : offered->second) {
            lines += fmt::format("{}\t{}\n", value, option->get_description());
        }
    }
    return lines;
}

std::string OptionLines(const CLI::App& app)
{
    std::string lines;
    for (const CLI::Option* option : app.get_options()) {
        // --help is offered only for kivctl itself, because every command has it.
        if (option == app.get_help_ptr() && app.get_parent() != nullptr) {
            continue;
        }
        for (const std::string& name : option->get_lnames()) {
            lines += fmt::format("--{}\t{}\n", name, option->get_description());
        }
    }
    return lines;
}

// Returns the command whose subcommands are offered. Those of help are the commands of kivctl.
const CLI::App* Offering(const CLI::App& app, const std::vector<std::string>& words, const Words& read)
{
    if (read.command != FindCommand(app, "help")) {
        return read.command;
    }
    return ReadWords(app, {std::next(std::ranges::find(words, "help")), words.end()}).command;
}

} // namespace

std::string Completions(const CLI::App& app, const std::vector<std::string>& words)
{
    const Words read = ReadWords(app, words);
    std::string lines = ValueLines(read.awaited);
    if (read.valueFollows) {
        return lines;
    }
    for (const CLI::App* part : Offering(app, words, read)->get_subcommands(nullptr)) {
        lines += fmt::format("{}\t{}\n", part->get_name(), part->get_description());
    }
    lines += OptionLines(*read.command);
    if (read.command != &app) {
        lines += OptionLines(app);
    }
    return lines;
}

void OfferValues(const CLI::Option* option, std::vector<std::string> values)
{
    g_offered[option] = std::move(values);
}

} // namespace kiv::ctl
