#include "ControlCommand.h"

#include "Connection.h"
#include "ScenarioFiles.h"
#include "simulator/CommandLine.h"
#include "simulator/Feature.h"
#include "simulator/Interfaces.h"
#include "simulator/JsonNode.h"
#include "simulator/Scenario.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <climits>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

namespace kiv::sandbox {

namespace {

using nlohmann::json;
using Variant = std::shared_ptr<GVariant>;

constexpr int kBadUsage = 2;

constexpr auto kControlDescription =
    "Changes what the simulator does while it runs. To be used within a sandbox: by its "
    "command, or by another program\n"
    "that has the same DBUS_SYSTEM_BUS_ADDRESS.\n";

constexpr auto kControlFooter = "Exit code:\n"
                                "  0  done\n"
                                "  1  there is no sandbox, or no simulator\n"
                                "  2  the command or its input cannot be used; nothing is changed\n\n"
                                "Examples:\n"
                                "  kiv-sandbox control fault StopNetworkSpeaker '{\"delay\": 2000, \"every\": 3}'\n"
                                "  kiv-sandbox control event 0x02020028 '01 00 00 00'\n"
                                "  kiv-sandbox control apply surround-set";

/// The simulator will not do it.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The simulator of this sandbox.
class Simulator {
public:
    Simulator() : connection_(Address())
    {
        // Like any caller of the server, for it starts at the first call.
        Call(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "StartServiceByName",
            g_variant_new("(su)", simulator::kServerName, 0U));
    }

    Variant Control(const char* method, GVariant* arguments = nullptr) const
    {
        return Call(simulator::kControlName, simulator::kControlPath, simulator::kControlInterface, method, arguments);
    }

    void Apply(const std::string& scenario) const { Control("Apply", g_variant_new("(s)", scenario.c_str())); }
    void Apply(const json& scenario) const { Apply(scenario.dump()); }

private:
    /// Never the system bus of this machine.
    static std::string Address()
    {
        const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
        if (address == nullptr) {
            throw std::runtime_error("not in a sandbox: DBUS_SYSTEM_BUS_ADDRESS is not set");
        }
        return address;
    }

    Variant
    Call(const char* name, const char* path, const char* interface, const char* method, GVariant* arguments) const
    {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            connection_.Get(), name, path, interface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
            INT_MAX, nullptr, &error);
        if (reply != nullptr) {
            return {reply, g_variant_unref};
        }
        const bool isRefusal = g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS) != FALSE;
        g_dbus_error_strip_remote_error(error);
        const std::string reason = error->message;
        g_error_free(error);
        if (isRefusal) {
            throw Refusal(reason);
        }
        throw std::runtime_error(reason);
    }

    Connection connection_;
};

/// Read here already, where the file has a name.
std::string ReadScenarioText(const std::string& nameOrFile)
{
    const bool isInput = nameOrFile == "-";
    const std::string name = isInput ? "stdin" : FindScenario(nameOrFile).string();
    std::string text = isInput ? simulator::ReadInput(simulator::kLargestScenario)
                               : simulator::ReadText(name, simulator::kLargestScenario);
    simulator::ReadScenario(name, text);
    return text;
}

json ParseFault(const std::string& text)
{
    if (text == "none") {
        return nullptr;
    }
    try {
        return json::parse(text);
    } catch (const json::exception&) {
        throw Refusal(fmt::format("the fault must be JSON, got '{}'", text));
    }
}

void PrintModel(const Simulator& simulator)
{
    const Variant reply = simulator.Control("Model");
    const char* text = nullptr;
    g_variant_get(reply.get(), "(&s)", &text);
    fmt::print("{}\n", text);
}

void PrintCalls(const Simulator& simulator)
{
    const Variant reply = simulator.Control("Calls");
    GVariantIter* calls = nullptr;
    g_variant_get(reply.get(), "(a(ussuv))", &calls);
    guint number = 0;
    const char* sender = nullptr;
    const char* method = nullptr;
    guint flags = 0;
    GVariant* arguments = nullptr;
    while (g_variant_iter_loop(calls, "(u&s&suv)", &number, &sender, &method, &flags, &arguments) != FALSE) {
        char* text = g_variant_print(arguments, FALSE);
        // An empty tuple cannot travel in a variant.
        fmt::print("{} {} {}{}\n", number, sender, method, std::string(text) == "'()'" ? "()" : text);
        g_free(text);
    }
    g_variant_iter_free(calls);
}

/// What is given to the commands.
struct Words {
    std::string file;
    std::string method;
    std::string fault;
    std::string feature;
    std::string atmos;
    std::string eventId;
    std::string data;
    unsigned milliseconds = 0;
};

void AddCommands(CLI::App& app, Words& words, std::function<void(const Simulator&)>& action)
{
    const auto command = [&](const char* name, const char* description,
                             std::function<void(const Simulator&)> act) -> CLI::App* {
        CLI::App* const added = app.add_subcommand(name, description);
        added->callback([&action, act = std::move(act)] { action = act; });
        return added;
    };
    command(
        "apply", "apply a scenario: all that it mentions",
        [&](const Simulator& simulator) { simulator.Apply(ReadScenarioText(words.file)); })
        ->add_option("scenario", words.file, "a file, the name of a scenario that comes along, or - for stdin")
        ->required();
    CLI::App* const fault = command("fault", "give a method a fault", [&](const Simulator& simulator) {
        simulator.Apply(json{{"faults", {{words.method, ParseFault(words.fault)}}}});
    });
    fault->add_option("method", words.method, "method of the server, or * for all that have no fault of their own")
        ->required();
    fault->add_option("fault", words.fault, "the fault as JSON, or none")->required();
    command(
        "clear-faults", "take every fault back", [](const Simulator& simulator) { simulator.Control("ClearFaults"); });
    command(
        "feature", "whether the TV has network speakers",
        [&](const Simulator& simulator) {
            simulator.Apply(json{{"feature", words.feature}});
        })
        ->add_option("state", words.feature, "on, off, or absent: cannot be read")
        ->required()
        ->check(simulator::OneOf(simulator::kFeatures));
    command(
        "atmos", "connect a receiver with Dolby Atmos, or disconnect it",
        [&](const Simulator& simulator) {
            simulator.Apply(json{{"home", {{"receiverHasAtmos", words.atmos == "on"}}}});
        })
        ->add_option("state", words.atmos, "on or off")
        ->required()
        ->check(simulator::OneOf({"on", "off"}));
    CLI::App* const event = command("event", "push an event to every client", [&](const Simulator& simulator) {
        simulator.Apply(json{{"events", {{{"id", words.eventId}, {"data", words.data}}}}});
    });
    event->add_option("id", words.eventId, "in hexadecimal, such as 0x02020028")->required();
    event->add_option("data", words.data, "bytes in hexadecimal");
    command(
        "away", "have the server crash, and come back",
        [&](const Simulator& simulator) {
            simulator.Apply(json{{"away", words.milliseconds}});
        })
        ->add_option("milliseconds", words.milliseconds, "how long it is away")
        ->required();
    command("exit", "have the server end; the next call starts it anew", [](const Simulator& simulator) {
        simulator.Control("Exit");
    });
    command("show", "print home and clients as JSON", PrintModel);
    command("calls", "print what the server was called", PrintCalls);
}

} // namespace

int ControlMain(int argc, char** argv)
{
    CLI::App app(kControlDescription, "kiv-sandbox control");
    app.footer(kControlFooter);
    simulator::TellWithName(app);
    app.require_subcommand(1);
    Words words;
    std::function<void(const Simulator&)> action;
    AddCommands(app, words, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kBadUsage;
    }
    const auto fail = [](const std::exception& error, int exitCode) {
        fmt::print(stderr, "kiv-sandbox control: {}\n", error.what());
        return exitCode;
    };
    try {
        action(Simulator());
        return EXIT_SUCCESS;
    } catch (const Refusal& refusal) {
        return fail(refusal, kBadUsage);
    } catch (const simulator::FileError& error) {
        return fail(error, kBadUsage);
    } catch (const std::exception& error) {
        return fail(error, EXIT_FAILURE);
    }
}

} // namespace kiv::sandbox
