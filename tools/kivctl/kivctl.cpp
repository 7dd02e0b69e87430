#include "Command.h"
#include <KivServiceInterface.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kiv::ctl {
namespace {

constexpr const char* kFooter = R"(Exit codes:
  0  done
  1  the library reported a failure, or the output could not be written
  2  bad arguments; nothing was sent
  3  this device has no network speakers

A request that fails can look like an answer: "no", mode 80, connection type 0.
Requests without an answer are only said to be sent. --verbose shows what failed.

With --json, stdout carries nothing but JSON, one object a line. A command that
fails says why in "error", and its exit code is the same as without --json.)";

struct Choice {
    std::string name;
    Action action;
};

void AddCommand(CLI::App& parent, const std::string& prefix, const Command& command, Choice& choice)
{
    CLI::App* app = parent.add_subcommand(command.name, command.description);
    const std::string name = prefix + command.name;
    if (command.declare != nullptr) {
        app->callback([&choice, name, action = command.declare(*app)] { choice = {name, action}; });
        return;
    }
    app->require_subcommand(0, 1);
    for (const Command& part : command.parts) {
        AddCommand(*app, name + " ", part, choice);
    }
}

Result RunAction(const Choice& choice, const Output& output)
{
    try {
        return choice.action(output);
    } catch (const BadArguments& error) {
        return {kBadArguments, error.what(), {{"error", error.what()}}};
    }
}

void ShowResult(const Result& result, const std::string& command, const Output& output)
{
    Json object = {{"command", command}};
    object.update(result.fields);
    if (object.contains("error")) {
        output.Notify(result.text, object);
    } else {
        output.Show(result.text, object);
    }
}

int Run(const Choice& choice, const Output& output)
{
    const Result result = RunAction(choice, output);
    CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    if (!result.text.empty()) {
        ShowResult(result, choice.name, output);
    }
    if (std::ferror(stdout) != 0) {
        std::fputs("kivctl: the output could not be written\n", stderr);
        return kFailed;
    }
    return result.exitCode;
}

int Refuse(const Output& output, const std::string& reason)
{
    output.Notify(reason, {{"error", reason}});
    return kBadArguments;
}

int Main(int argc, char** argv)
{
    CLI::App app("Controls network speakers through libkiv-interface-api.", "kivctl");
    app.set_version_flag("--version", "kivctl " KIV_VERSION);
    app.footer(kFooter);
    app.require_subcommand(0, 1);
    app.fallthrough();
    bool json = false;
    bool verbose = false;
    app.add_flag("--json", json, "Write JSON instead of text");
    app.add_flag("--verbose", verbose, "Show all that the library logs (KIV_LOG_LEVEL=debug)");

    Choice choice;
    for (const auto& commands :
         {SpeakerCommands(), ListCommands(), ConnectCommands(), NameAndVolumeCommands(), ModeCommands(), LinkCommands(),
          ToneCommands(), SoundbarCommands(), EventCommands(), DeviceCommands()}) {
        for (const Command& command : commands) {
            AddCommand(app, "", command, choice);
        }
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        // Parsing may have ended before it came to the flag.
        const bool wantsJson = std::find(argv, argv + argc, std::string("--json")) != argv + argc;
        return Refuse(Output(wantsJson), error.what());
    }
    const Output output(json);
    if (!choice.action) {
        return Refuse(output, "no command given; --help lists them");
    }
    if (verbose) {
        setenv("KIV_LOG_LEVEL", "debug", 1);
    }
    return Run(choice, output);
}

} // namespace
} // namespace kiv::ctl

int main(int argc, char** argv)
{
    return kiv::ctl::Main(argc, argv);
}
