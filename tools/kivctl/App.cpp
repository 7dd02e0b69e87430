#include "tools/kivctl/App.h"

#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Examples.h"
#include "tools/kivctl/Words.h"

#include <memory>

namespace kiv::ctl {
namespace {

constexpr const char* kFooter = R"(Exit codes:
  0  done; doctor: no problem found; monitor: subscribed and reachable, at least for a
     while; whether the bus lets the server's events through is doctor's to say
  1  the server refused a request, answered with an error or did not answer in the
     library's time; the library reported another failure, doctor found one, or the
     output could not be written; monitor: events could never come, the server
     refused them, or the bus was lost
  2  bad arguments; nothing was sent
  3  this device has no network speakers
  4  the command took longer than --timeout allows

Some functions of the library return the same value after a failure and after a
success, or return nothing. kivctl then reads from the library's log whether the
request failed. So "sent" means that the server has taken the request, and "no" means
that the server has said no. If a request failed, kivctl shows the lines of the log on
stderr. With --verbose, or if KIV_LOG_LEVEL is set, it always shows them.

If the bus has not answered after about a second, kivctl says so on stderr, and waits.

monitor ends within about a second after Ctrl-C, SIGTERM or the time of --for, also
while the server or the bus hangs.

With --json, stdout has nothing but JSON, one object a line. If a command fails,
"error" says why, and "advice" says what to do if something can be done. The exit code
is the same as without --json.)";

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
        {Group(
            "call",
            "Call a function of the library by its name; its arguments come in the order of C, but the IP address and "
            "other arguments with a default are options",
            Functions())},
    });
}

void AddCommand(CLI::App& parent, const std::string& prefix, const Command& command, Choice& choice)
{
    CLI::App* app = parent.add_subcommand(command.name, command.description);
    const std::string name = prefix + command.name;
    // A command without a footer of its own would inherit the example of "call".
    const std::string example = ExampleOf(name);
    app->footer(example.empty() ? "" : "Example:\n  " + example);
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
    // The formatter makes the help, because CLI11's help() of a parsed command returns that of its last parsed
    // subcommand.
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
    app.add_flag("--timing", request.timing, "Show how long the command took");
    AddParsed(app, "--timeout", request.timeout, ParseSeconds, "Give up after SECONDS, such as 0.5")
        ->type_name("SECONDS");
    app.add_flag("--verbose", request.verbose, "Show all that the library logs (KIV_LOG_LEVEL=debug)");
    for (const Command& command : Commands()) {
        AddCommand(app, "", command, request.choice);
    }
    AddHelp(app, request.choice);
    // The footer is set last, because commands inherit a footer that is set before they are added.
    app.footer(kFooter);
}

} // namespace kiv::ctl
