#include "tools/kivctl/Arguments.h"
#include "tools/kivctl/Layout.h"
#include "tools/kivctl/Monitor.h"
#include "tools/kivctl/UntilStopped.h"
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
        "End after SECONDS; the exit code is 1 if the subscription was not ready by then")
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
            const std::string advice = "kivctl doctor finds out whether events can arrive";
            output.Notify("no event came; " + advice, {{"events", 0}, {"advice", advice}});
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

constexpr auto kSubscribe = With<std::string>(AddName, [](const std::string& name) {
    return AnsweredNotZero("SubscribeNamServiceCallback", SubscribeNamServiceCallback(name.c_str(), IgnoreEvent));
});

constexpr auto kUnsubscribe = With<std::string>(AddName, [](const std::string& name) {
    UnsubscribeNamServiceCallback(name.c_str());
    return Sent("UnsubscribeNamServiceCallback");
});

constexpr auto kRegisterAtmos =
    Plain([] { return Answered("register_atmos_support_cb", register_atmos_support_cb(IgnoreAtmos, nullptr)); });

constexpr auto kUnregisterAtmos = Plain([] {
    if (const int registered = register_atmos_support_cb(IgnoreAtmos, nullptr); registered == -1 || CallFailed()) {
        return Failed("register_atmos_support_cb", registered);
    }
    return Answered("unregister_atmos_support_cb", unregister_atmos_support_cb(IgnoreAtmos));
});

constexpr auto kAtmos = Plain(
    [] { return AnsweredYesOrNo("kiv_is_receiver_atmos", kiv_is_receiver_atmos(), "supported", "not supported"); });

constexpr auto kNodeRemove = With<int>(
    [](CLI::App& app, int& node) { AddRequired(app, "NODE", node, ParseInt, "Number of the node"); },
    [](int node) {
        return AnsweredNotZero(
            "NodeRemoveFromWatcher", NodeRemoveFromWatcher(node), "",
            {"the server watches no such node", "kivctl list nodes shows which nodes there are"});
    });

} // namespace

std::vector<Command> EventCommands()
{
    return {
        {"monitor",
         "Show the server's events as they come, until interrupted; only kivctl doctor tells a quiet server from "
         "one that hangs",
         Watch, Asks::kServerOnOwnThread},
        {"atmos", "Ask whether the receiver supports Dolby Atmos", kAtmos},
        {"node-remove", "Have the server stop watching a node", kNodeRemove},
    };
}

std::vector<Command> EventFunctions()
{
    return {
        {"SubscribeNamServiceCallback", "Subscribe to events; they are not shown", kSubscribe},
        {"UnsubscribeNamServiceCallback", "End a subscription", kUnsubscribe},
        {"NodeRemoveFromWatcher", "Have the server stop watching a node", kNodeRemove},
        {"kiv_is_receiver_atmos", "Ask whether the receiver supports Dolby Atmos", kAtmos},
        {"register_atmos_support_cb", "Register a callback for Dolby Atmos; its calls are not shown", kRegisterAtmos},
        {"unregister_atmos_support_cb", "Register a callback for Dolby Atmos, and end the registration",
         kUnregisterAtmos},
    };
}

} // namespace kiv::ctl
