#include "Arguments.h"
#include "Layout.h"
#include "Monitor.h"
#include "UntilStopped.h"
#include <KivServiceInterface.h>

#include <chrono>
#include <limits>
#include <memory>
#include <optional>
#include <string>

namespace kiv::ctl {
namespace {

struct WatchArguments {
    MonitorOptions options;
    std::optional<std::chrono::milliseconds> duration;
    std::string layout;
};

Action Watch(CLI::App& app)
{
    const auto arguments = std::make_shared<WatchArguments>();
    MonitorOptions& options = arguments->options;
    const auto parseCount = [](const std::string& text) {
        return ParseWithin(text, 1, std::numeric_limits<int32_t>::max());
    };
    AddParsed(app, "--count", options.count, parseCount, "End after N events")->type_name("N");
    AddParsed(
        app, "--for", arguments->duration, ParseSeconds,
        "End after SECONDS; the exit code is 1 if no event could come by then")
        ->type_name("SECONDS");
    app.add_option("--name", options.name, "Name of the subscription")->type_name("NAME")->capture_default_str();
    app.add_flag("--raw", options.raw, "Show all bytes of an event, as --json always does");
    AddLayout(app, arguments->layout);
    return [arguments](const Output& output) {
        arguments->options.layout = LayoutOf(arguments->layout);
        const auto monitor = std::make_shared<Monitor>(arguments->options, output);
        const bool hasEnded = RunUntilStopped(
            [monitor](const auto& ending) { monitor->Run(ending); }, [&] { monitor->End(); }, arguments->duration);
        Result result = monitor->Outcome();
        result.isAbandoned = !hasEnded;
        if (arguments->duration && result.exitCode == kDone && !monitor->HasShownEvents()) {
            output.Remark("no event came; kivctl doctor finds out whether events can arrive");
        }
        return result;
    };
}

void IgnoreEvent(int, void*, int) {}

void IgnoreAtmos(int, void*) {}

void AddName(CLI::App& app, std::string& name)
{
    app.add_option("NAME", name, "Name of the subscription")->type_name("")->required();
}

Action Subscribe(CLI::App& app)
{
    const auto name = std::make_shared<std::string>();
    AddName(app, *name);
    return [name](const Output&) {
        return AnsweredNotZero("SubscribeNamServiceCallback", SubscribeNamServiceCallback(name->c_str(), IgnoreEvent));
    };
}

Action Unsubscribe(CLI::App& app)
{
    const auto name = std::make_shared<std::string>();
    AddName(app, *name);
    return [name](const Output&) {
        UnsubscribeNamServiceCallback(name->c_str());
        return Sent("UnsubscribeNamServiceCallback");
    };
}

Action RegisterAtmos(CLI::App&)
{
    return [](const Output&) {
        return Answered("register_atmos_support_cb", register_atmos_support_cb(IgnoreAtmos, nullptr));
    };
}

Action UnregisterAtmos(CLI::App&)
{
    return [](const Output&) {
        if (const int registered = register_atmos_support_cb(IgnoreAtmos, nullptr); registered == -1 || CallFailed()) {
            return Failed("register_atmos_support_cb", registered);
        }
        return Answered("unregister_atmos_support_cb", unregister_atmos_support_cb(IgnoreAtmos));
    };
}

Action Atmos(CLI::App&)
{
    return [](const Output&) {
        return AnsweredYesOrNo("kiv_is_receiver_atmos", kiv_is_receiver_atmos(), "supported", "not supported");
    };
}

Action NodeRemove(CLI::App& app)
{
    const auto node = std::make_shared<int>(0);
    AddRequired(app, "NODE", *node, ParseInt, "Number of the node");
    return [node](const Output&) {
        return AnsweredNotZero(
            "NodeRemoveFromWatcher", NodeRemoveFromWatcher(*node), "",
            {"the server watches no such node", "kivctl list nodes shows which nodes there are"});
    };
}

} // namespace

std::vector<Command> EventCommands()
{
    return {
        {"monitor",
         "Show the server's events as they come, until interrupted; only kivctl doctor tells a quiet server from "
         "one that hangs",
         Watch,
         {},
         Asks::kServerOnOwnThread},
        {"atmos", "Ask whether the receiver supports Dolby Atmos", Atmos},
        {"node-remove", "Have the server stop watching a node", NodeRemove},
    };
}

std::vector<Command> EventFunctions()
{
    return {
        {"SubscribeNamServiceCallback", "Subscribe to events; they are not shown", Subscribe},
        {"UnsubscribeNamServiceCallback", "End a subscription", Unsubscribe},
        {"NodeRemoveFromWatcher", "Have the server stop watching a node", NodeRemove},
        {"kiv_is_receiver_atmos", "Ask whether the receiver supports Dolby Atmos", Atmos},
        {"register_atmos_support_cb", "Register a callback for Dolby Atmos; its calls are not shown", RegisterAtmos},
        {"unregister_atmos_support_cb", "Register a callback for Dolby Atmos, and end the registration",
         UnregisterAtmos},
    };
}

} // namespace kiv::ctl
