#include "Arguments.h"
#include "Monitor.h"
#include <KivServiceInterface.h>

#include <limits>
#include <memory>

namespace kiv::ctl {
namespace {

Action Watch(CLI::App& app)
{
    const auto options = std::make_shared<MonitorOptions>();
    AddParsed(app, "--count", options->count, ParseInt, "End after N events instead of when interrupted")
        ->check(CLI::Range(1, std::numeric_limits<int>::max()).description(""))
        ->type_name("N");
    app.add_option("--name", options->name, "Name of the subscription")->type_name("NAME")->capture_default_str();
    app.add_flag("--raw", options->raw, "Show the whole data of an event (with --json it always is)");
    return [options](const Output& output) { return Monitor(*options, output).Run(); };
}

Action Atmos(CLI::App&)
{
    return [](const Output&) {
        const bool supported = kiv_is_receiver_atmos();
        if (!supported && !ServerReached()) {
            return Failed("kiv_is_receiver_atmos", false);
        }
        return Done(supported ? "supported" : "not supported", {{"result", supported}});
    };
}

Action NodeRemove(CLI::App& app)
{
    const auto node = std::make_shared<int>(0);
    AddRequired(app, "NODE", *node, ParseInt, "Number of the node");
    return [node](const Output&) { return AnsweredNotZero("NodeRemoveFromWatcher", NodeRemoveFromWatcher(*node)); };
}

} // namespace

std::vector<Command> EventCommands()
{
    return {
        {"monitor", "Show the server's events as they come, until interrupted", Watch},
        {"atmos", "Ask whether the receiver supports Dolby Atmos", Atmos},
        {"node-remove", "Have the server stop watching a node", NodeRemove},
    };
}

} // namespace kiv::ctl
