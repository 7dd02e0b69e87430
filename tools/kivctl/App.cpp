#include "App.h"

#include "Arguments.h"
#include "Examples.h"
#include "Words.h"

#include <fmt/format.h>

#include <memory>

namespace kiv::ctl {
namespace {

constexpr const char* kFooter = R"(Exit codes:
  0  done; doctor: no problem found; monitor: events could come, at least for a while
  1  the library reported a failure, doctor found one, or the output could not be
     written; monitor: events never could come, the server refused them, or the bus
     was lost
  2  bad arguments; nothing was sent
  3  this device has no network speakers
  4  it took longer than --timeout allows

Where a function of the library returns the same after a failure as after a success,
or nothing, kivctl takes the failure from the library's log: "sent" means that the
server has taken the request, and "no" that it has said so. The lines of the log are
shown on stderr when a request failed, and always with --verbose or where
KIV_LOG_LEVEL is set.

monitor ends within about a second after Ctrl-C, SIGTERM or the time of --for, also
while the server or the bus hangs.

With --json, stdout carries nothing but JSON, one object a line. A command that
fails says why in "error" and, where there is something to do about it, that in
"advice". Its exit code is the same as without --json.)";

std::vector<Command> Joined(std::initializer_list<std::vector<Command>> families)
{
    std::vector<Command> commands;
    for (const auto& family : families) {
        commands.insert(commands.end(), family.begin(), family.end());
    }
    return commands;
}

std::vector<Command> Functions()
{
    return Joined({
        DeviceFunctions(),
        EventFunctions(),
        SpeakerFunctions(),
        ListFunctions(),
        ConnectFunctions(),
        LinkFunctions(),
        ToneFunctions(),
        SoundbarFunctions(),
        NameAndVolumeFunctions(),
        ModeFunctions(),
        OlderFunctions(),
    });
}

std::vector<Command> Commands()
{
    return Joined({
        SpeakerCommands(),
        ListCommands(),
        ConnectCommands(),
        NameAndVolumeCommands(),
        ModeCommands(),
        LinkCommands(),
        ToneCommands(),
        SoundbarCommands(),
        EventCommands(),
        DeviceCommands(),
        {{"call",
          "Call a function of the library by its name; its arguments come in the order of C, but the IP address and "
          "others "
          "that have a default are options",
          nullptr, Functions()}},
    });
}

void AddCommand(CLI::App& parent, const std::string& prefix, const Command& command, Choice& choice)
{
    CLI::App* app = parent.add_subcommand(command.name, command.description);
    const std::string name = prefix + command.name;
    if (const std::string example = ExampleOf(name); !example.empty()) {
        app->footer("Example:\n  " + example);
    }
    if (command.declare != nullptr) {
        app->callback([&choice, name, action = command.declare(*app), asks = command.asks] {
            choice = {name, action, asks};
        });
        return;
    }
    app->require_subcommand(0, 1);
    for (const Command& part : command.parts) {
        AddCommand(*app, name + " ", part, choice);
    }
}

Result ShowHelp(const CLI::App& app, const std::vector<std::string>& words)
{
    if (const std::string reason = UnknownWordText(app, words); !reason.empty()) {
        throw BadArguments(reason);
    }
    // The help of a command that has been parsed is that of its own last command.
    const CLI::App* command = ReadWords(app, words).command;
    std::string help =
        command->get_formatter()->make_help(command, "kivctl" + PathOf(*command), CLI::AppFormatMode::Normal);
    help.erase(help.find_last_not_of('\n') + 1);
    return Done(help, {{"help", help}});
}

void AddHelp(CLI::App& app, Choice& choice)
{
    CLI::App* help = app.add_subcommand("help", "Show the help of a command");
    const auto words = std::make_shared<std::vector<std::string>>();
    help->add_option("COMMAND", *words, "The command, such as volume set")->type_name("");
    help->footer("Example:\n  " + ExampleOf("help"));
    help->callback([&app, &choice, words] {
        choice = {"help", [&app, words](const Output&) { return ShowHelp(app, *words); }};
    });
}

} // namespace

void Declare(CLI::App& app, Request& request)
{
    app.description("Controls network speakers through libkiv-interface-api.");
    app.name("kivctl");
    app.set_version_flag("--version", "kivctl " KIV_VERSION);
    app.require_subcommand(0, 1);
    app.fallthrough();
    app.add_flag("--json", request.json, "Write JSON instead of text");
    app.add_flag("--timing", request.timing, "Show how long it took");
    AddParsed(app, "--timeout", request.timeout, ParseSeconds, "Give up after SECONDS, such as 0.5")
        ->type_name("SECONDS");
    app.add_flag("--verbose", request.verbose, "Show all that the library logs (KIV_LOG_LEVEL=debug)");
    for (const Command& command : Commands()) {
        AddCommand(app, "", command, request.choice);
    }
    AddHelp(app, request.choice);
    // Commands take over a footer that is there before them.
    app.footer(kFooter);
}

} // namespace kiv::ctl
