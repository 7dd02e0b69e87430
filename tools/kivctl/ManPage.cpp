#include "tools/kivctl/ManPage.h"

#include "tools/kivctl/Examples.h"
#include "tools/kivctl/LogLines.h"
#include "tools/kivctl/Words.h"

#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <map>
#include <set>
#include <string>
#include <string_view>

namespace kiv::ctl {
namespace {

constexpr const char* kCallCommand = "call";

// Returns a line of text, quoted so that roff does not interpret any of it.
std::string Roff(std::string_view text)
{
    std::string roff = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
    for (const char character : text) {
        switch (character) {
        case '\\':
            roff += "\\e";
            break;
        case '-':
            roff += "\\-";
            break;
        case '\'':
            roff += "\\(aq";
            break;
        default:
            roff += character;
        }
    }
    return roff;
}

// Returns whether an option is listed. --help is listed only for kivctl itself, because every command has it.
bool IsWorthALine(const CLI::App& app, const CLI::Option& option)
{
    return app.get_parent() == nullptr || option.get_name() != "--help";
}

std::string OptionText(const CLI::Option& option)
{
    const std::string preset = option.get_default_str();
    return fmt::format(
        ".TP\n\\fB{}\\fR\n{}{}\n", Roff(Usage(option)), Roff(option.get_description()),
        preset.empty() ? "" : fmt::format(" (default {})", Roff(preset)));
}

// Identifies an option by its form and its text. The options of several commands that have the same key are explained
// once.
std::string Key(const CLI::Option& option)
{
    return Usage(option) + '\n' + option.get_description();
}

void ForEachCommand(const CLI::App& app, const std::function<void(const CLI::App&)>& visit)
{
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        // The commands of "kivctl call" are left out, because they have the same arguments as the other commands.
        if (command->get_name() == kCallCommand) {
            continue;
        }
        if (command->get_subcommands(nullptr).empty()) {
            visit(*command);
        } else {
            ForEachCommand(*command, visit);
        }
    }
}

// Returns the keys of options that several commands have. Of one name, only the most frequent key is returned; a
// command in which the option means something else explains it itself.
std::set<std::string> SharedKeys(const CLI::App& app)
{
    std::map<std::string, std::map<std::string, int>> uses;
    ForEachCommand(app, [&uses](const CLI::App& command) {
        for (const CLI::Option* option : command.get_options()) {
            ++uses[option->get_name()][Key(*option)];
        }
    });
    std::set<std::string> keys;
    for (const auto& [name, keysOfName] : uses) {
        const auto& [key, count] =
            *std::ranges::max_element(keysOfName, {}, [](const auto& use) { return use.second; });
        if (count > 1) {
            keys.insert(key);
        }
    }
    return keys;
}

std::string Options(const CLI::App& app, const std::set<std::string>& without)
{
    std::string roff;
    for (const CLI::Option* option : app.get_options()) {
        if (IsWorthALine(app, *option) && !without.contains(Key(*option))) {
            roff += OptionText(*option);
        }
    }
    return roff;
}

std::string SharedOptions(const CLI::App& app)
{
    std::set<std::string> shared = SharedKeys(app);
    std::string roff;
    ForEachCommand(app, [&](const CLI::App& command) {
        for (const CLI::Option* option : command.get_options()) {
            if (IsWorthALine(command, *option) && shared.erase(Key(*option)) != 0) {
                roff += OptionText(*option);
            }
        }
    });
    return roff;
}

std::string Commands(const CLI::App& app)
{
    const std::set<std::string> shared = SharedKeys(app);
    std::string roff;
    ForEachCommand(app, [&](const CLI::App& command) {
        const std::string name = PathOf(command).substr(1);
        roff += fmt::format(
            ".TP\n\\fB{}\\fR{}\n{}.\n", Roff(name), Roff(UsageOfArguments(command)), Roff(command.get_description()));
        if (const std::string example = ExampleOf(name); !example.empty() && example != "kivctl " + name) {
            roff += fmt::format(".br\n{}\n", Roff(example));
        }
        const std::string options = Options(command, shared);
        if (!options.empty()) {
            roff += fmt::format(".RS\n{}.RE\n", options);
        }
    });
    return roff;
}

std::string Functions(const CLI::App& app)
{
    std::string roff;
    for (const CLI::App* function : FindCommand(app, kCallCommand)->get_subcommands(nullptr)) {
        roff += fmt::format("\\fB{}\\fR\n", Roff(function->get_name()));
    }
    return roff;
}

std::string Verbatim(std::string_view text)
{
    std::string roff = ".nf\n";
    for (size_t at = 0; at <= text.size();) {
        const size_t end = std::min(text.find('\n', at), text.size());
        roff += Roff(text.substr(at, end - at)) + '\n';
        at = end + 1;
    }
    return roff + ".fi\n";
}

std::string Paragraphs(const LogSection& section)
{
    std::string roff;
    for (const std::string& paragraph : section.paragraphs) {
        roff += roff.empty() ? "" : ".PP\n";
        roff += (paragraph.starts_with(' ') ? Verbatim(paragraph) : Roff(paragraph) + '\n');
    }
    return roff;
}

std::string LogLines()
{
    std::string roff;
    for (const LogSection& section : LogSections()) {
        // The title of the page is left out, because it repeats the name of the manual page.
        const bool isHead = roff.empty();
        roff += fmt::format(".SH \"{}\"\n{}", isHead ? "DESCRIPTION" : Roff(section.title), Paragraphs(section));
        for (const LogLine& line : section.lines) {
            roff += fmt::format(".TP\n\\fB{}\\fR\n", Roff(line.format));
            roff += line.functions.empty() ? "" : fmt::format("Of {}: ", Roff(line.functions));
            roff += Roff(line.meaning) + '\n';
            roff += line.advice.empty() ? "" : fmt::format(".br\n\\(-> {}\n", Roff(line.advice));
        }
    }
    return roff;
}

} // namespace

bool WriteManPage(const CLI::App& app)
{
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "<OPTIONS>") {
            std::cout << Options(app, {});
        } else if (line == "<ARGUMENTS>") {
            std::cout << SharedOptions(app);
        } else if (line == "<COMMANDS>") {
            std::cout << Commands(app);
        } else if (line == "<FUNCTIONS>") {
            std::cout << Functions(app);
        } else if (line == "<FOOTER>") {
            std::cout << Verbatim(app.get_footer());
        } else if (line == "<LOG-LINES>") {
            std::cout << LogLines();
        } else {
            std::cout << line << '\n';
        }
    }
    return static_cast<bool>(std::cout.flush());
}

} // namespace kiv::ctl
