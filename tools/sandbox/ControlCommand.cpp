#include "tools/sandbox/ControlCommand.h"

#include "simulator/BusObject.h"
#include "simulator/CommandLine.h"
#include "simulator/Faults.h"
#include "simulator/Feature.h"
#include "simulator/HomeText.h"
#include "simulator/Interfaces.h"
#include "simulator/JsonKeys.h"
#include "simulator/Scenario.h"
#include "simulator/Wire.h"
#include "src/link/Owners.h"
#include "tools/Harmless.h"
#include "tools/Nearest.h"
#include "tools/sandbox/BusFault.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/ScenarioFiles.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kiv::sandbox {

namespace {

using nlohmann::json;
using simulator::Variant;

constexpr int kBadUsage = 2;

constexpr auto kControlDescription =
    "Changes what the simulator and the bus do while they run. Use it inside a sandbox: in its command, or in another\n"
    "program that has the same DBUS_SYSTEM_BUS_ADDRESS.\n";

constexpr auto kControlFooter =
    "Each subcommand but bus-fault is also a method of the simulator's D-Bus interface: clear-faults is "
    "ClearFaults.\n\n"
    "Exit code:\n"
    "  0  done\n"
    "  1  there is no sandbox or no simulator, the bus hangs or is gone, or a client cannot be told or gives no "
    "answer\n"
    "  2  the command or its input cannot be used; nothing is changed\n\n"
    "Examples:\n"
    "  kiv-sandbox control fault StopNetworkSpeaker '{\"delay\": 2000, \"every\": 3}'\n"
    "  kiv-sandbox control event 0x02020028 '01 00 00 00'\n"
    "  kiv-sandbox control apply surround-set";

// Thrown when the simulator refuses a request.
class Refusal : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Returns the address of the sandbox's bus. Throws if the variable is not set, because the address would be that of the
// system bus of this machine.
std::string BusAddress()
{
    const char* const address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    if (address == nullptr) {
        throw std::runtime_error("not in a sandbox: DBUS_SYSTEM_BUS_ADDRESS is not set");
    }
    return address;
}

// Returns the address of the sandbox's bus. Throws if the bus hangs or is gone.
std::string AnsweringBusAddress()
{
    std::string address = BusAddress();
    RequireAnsweringBus(address);
    return address;
}

// The simulator of this sandbox.
class Simulator {
public:
    Simulator() : connection_(AnsweringBusAddress())
    {
        // A simulator that runs is not started again, because the bus may be unable to start it, and would wait while
        // its server is away.
        if (!IsRunning()) {
            Start();
        }
    }

    Variant Control(const char* method, GVariant* arguments = nullptr) const
    {
        return Call(simulator::kControlName, simulator::kControlPath, simulator::kControlInterface, method, arguments);
    }

    void Tell(const char* method, const std::string& text) const
    {
        Control(method, g_variant_new("(s)", text.c_str()));
    }

private:
    bool IsRunning() const
    {
        gboolean isRunning = FALSE;
        g_variant_get(
            CallDaemon("NameHasOwner", g_variant_new("(s)", simulator::kControlName)).get(), "(b)", &isRunning);
        return isRunning != FALSE;
    }

    void Start() const
    {
        try {
            CallDaemon("StartServiceByName", g_variant_new("(su)", simulator::kServerName, 0U));
        } catch (const std::runtime_error& error) {
            throw std::runtime_error(fmt::format("no simulator runs, and none can be started: {}", error.what()));
        }
    }

    Variant CallDaemon(const char* method, GVariant* arguments) const
    {
        return Call(simulator::kBusName, simulator::kBusPath, simulator::kBusName, method, arguments);
    }

    Variant
    Call(const char* name, const char* path, const char* interface, const char* method, GVariant* arguments) const
    {
        link::ErrorOwner error;
        GVariant* reply = g_dbus_connection_call_sync(
            connection_.Get(), name, path, interface, method, arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
            INT_MAX, nullptr, error.Out());
        if (reply != nullptr) {
            return simulator::Own(reply);
        }
        const bool isRefusal = g_error_matches(error.get(), G_DBUS_ERROR, G_DBUS_ERROR_INVALID_ARGS) != FALSE;
        g_dbus_error_strip_remote_error(error.get());
        if (isRefusal) {
            throw Refusal(error->message);
        }
        throw std::runtime_error(error->message);
    }

    Connection connection_;
};

// Returns the text of a tuple from a variant, in which "()" stands for an empty tuple.
std::string PrintTuple(GVariant* value)
{
    const std::string text = simulator::TakeText(g_variant_print(value, FALSE));
    return text == "'()'" ? "()" : text;
}

// Returns the arguments of a call in the form of messages about a recording: without the comma behind a single one.
std::string ForPeople(std::string tuple)
{
    if (tuple.ends_with(",)")) {
        tuple.erase(tuple.size() - 2, 1);
    }
    return tuple;
}

// Reads a scenario. Checks it here, because messages can name the file here.
std::string CheckedScenario(const std::string& nameOrFile)
{
    ScenarioText given = ReadScenarioText(nameOrFile);
    simulator::ReadScenario(given.name, given.text);
    return std::move(given.text);
}

std::int32_t ParseEventId(const std::string& text)
{
    const auto id = simulator::ParseEventId(text);
    if (!id) {
        throw Refusal(
            fmt::format("ID must be in hexadecimal from 0x0 to 0xffffffff, such as 0x02020028, got \"{}\"", text));
    }
    return *id;
}

GVariant* ParseBytes(const std::string& text)
{
    const auto bytes = simulator::ParseHex(text);
    if (!bytes) {
        throw Refusal(fmt::format(R"(BYTES must be in hexadecimal such as "01 ff", got "{}")", text));
    }
    return simulator::NewByteArray(*bytes);
}

// The arguments and options of the commands.
struct Words {
    std::string scenario;
    std::string method;
    std::string fault;
    std::string feature;
    std::string atmos;
    std::string busFault;
    std::string eventId;
    std::string bytes;
    std::string client;
    std::string id;
    std::string arguments = "()";
    std::string mac;
    std::string plugged;
    unsigned count = 0;
    unsigned milliseconds = 0;
    unsigned timeout = 1000;
    int volume = 0;
    bool asJson = false;
    bool asText = false;
};

std::string FaultKeys()
{
    return fmt::format("{}", fmt::join(simulator::NamesOf(simulator::Faults::Keys()), ", "));
}

void SetFault(const Simulator& simulator, const Words& words)
{
    if (words.fault.empty()) {
        throw Refusal(fmt::format(
            "FAULT must be JSON such as '{{\"delay\": 500}}', or none, got nothing; its keys are {}", FaultKeys()));
    }
    if (words.fault == "none") {
        simulator.Tell("ClearFault", words.method);
        return;
    }
    const auto fault = simulator::ReadFault(simulator::JsonNode::Parse("FAULT", words.fault));
    simulator.Control("Fault", g_variant_new("(s@a{sv})", words.method.c_str(), fault.get()));
}

// Returns the home, the clients and the faults from the answer of Show or AwaitChange.
json StateIn(const Variant& reply)
{
    const char* text = nullptr;
    g_variant_get(reply.get(), "(&s)", &text);
    return json::parse(text);
}

// Pushes an event or a payload, and prints a line if there was no client. The answer says that, because a client may
// come right after the push.
void Push(const Simulator& simulator, const char* method, GVariant* arguments)
{
    const Variant reply = simulator.Control(method, arguments);
    guint told = 0;
    g_variant_get(reply.get(), "(u)", &told);
    if (told == 0) {
        fmt::print(stderr, "kiv-sandbox control: the server knows no client; nobody was told\n");
    }
}

void PushEvent(const Simulator& simulator, const Words& words)
{
    const std::int32_t id = ParseEventId(words.eventId);
    Push(simulator, "Event", g_variant_new("(si@ay)", words.client.c_str(), id, ParseBytes(words.bytes)));
}

void PushPayload(const Simulator& simulator, const Words& words)
{
    Push(simulator, "Payload", g_variant_new("(s@ay)", words.client.c_str(), ParseBytes(words.bytes)));
}

void PushPayloads(const Simulator& simulator, const Words& words)
{
    const Variant reply = simulator.Control(
        "Payloads", g_variant_new("(s@ayu)", words.client.c_str(), ParseBytes(words.bytes), words.count));
    guint answered = 0;
    g_variant_get(reply.get(), "(u)", &answered);
    fmt::print("{} answered\n", answered);
}

void CallClient(const Simulator& simulator, const Words& words)
{
    const Variant reply = simulator.Control(
        "CallClient", g_variant_new(
                          "(ssvu)", words.client.c_str(), words.method.c_str(),
                          g_variant_new_string(words.arguments.c_str()), words.timeout));
    const char* error = nullptr;
    GVariant* values = nullptr;
    g_variant_get(reply.get(), "(b&sv)", nullptr, &error, &values);
    const Variant owned = simulator::Own(values);
    if (*error != '\0') {
        throw std::runtime_error(fmt::format("{}: {}", words.client, error));
    }
    fmt::print("{}\n", PrintTuple(owned.get()));
}

void PrintSection(const char* heading, std::vector<std::string> lines)
{
    std::ranges::transform(lines, lines.begin(), Harmless);
    fmt::print("{}\n  {}\n", heading, lines.empty() ? "none" : fmt::format("{}", fmt::join(lines, "\n  ")));
}

void ShowState(const json& state, const Words& words)
{
    if (!words.asText) {
        fmt::print("{}\n", state.dump(2));
        return;
    }
    PrintSection("Home", simulator::DescribeHome(state));
    std::size_t width = 17;
    for (const json& client : state.at("clients")) {
        width = simulator::Widened(width, client.at("id"));
    }
    std::vector<std::string> clients;
    for (const json& client : state.at("clients")) {
        clients.push_back(fmt::format(
            "{:<{}} {:<11} {} subscriptions", client.at("id").get<std::string>(), width,
            client.at("busName").get<std::string>(), client.at("subscriptions").get<int>()));
    }
    PrintSection("Clients", clients);
    width = 29;
    for (const auto& [method, fault] : state.at("faults").items()) {
        width = simulator::Widened(width, method);
    }
    std::vector<std::string> faults;
    for (const auto& [method, fault] : state.at("faults").items()) {
        faults.push_back(fmt::format("{:<{}} {}", method, width, fault.dump()));
    }
    PrintSection("Faults", faults);
}

void Show(const Simulator& simulator, const Words& words)
{
    ShowState(StateIn(simulator.Control("Show")), words);
}

void AwaitChange(const Simulator& simulator, const Words& words)
{
    const Variant now = simulator.Control("Show");
    ShowState(StateIn(simulator.Control("AwaitChange", now.get())), words);
}

void PrintCalls(const Simulator& simulator, const Words& words)
{
    const Variant reply = simulator.Control("Calls");
    GVariantIter* calls = nullptr;
    g_variant_get(reply.get(), "(a(ussuv))", &calls);
    auto list = nlohmann::ordered_json::array();
    guint number = 0;
    const char* sender = nullptr;
    const char* method = nullptr;
    guint flags = 0;
    GVariant* arguments = nullptr;
    while (g_variant_iter_loop(calls, "(u&s&suv)", &number, &sender, &method, &flags, &arguments) != FALSE) {
        list.push_back(
            {{"number", number},
             {"sender", sender},
             {"method", method},
             {"flags", flags},
             {"arguments", PrintTuple(arguments)}});
    }
    g_variant_iter_free(calls);
    if (words.asJson) {
        fmt::print("{}\n", list.dump(2));
        return;
    }
    for (const nlohmann::ordered_json& call : list) {
        fmt::print(
            "{} {} {}{}\n", call.at("number").get<guint>(), call.at("sender").get<std::string>(),
            call.at("method").get<std::string>(), ForPeople(call.at("arguments").get<std::string>()));
    }
}

void SetOrPrintBusFault(const std::string& fault)
{
    if (fault.empty()) {
        fmt::print("{}\n", BusFault(BusAddress()));
    } else {
        SetBusFault(BusAddress(), fault);
    }
}

// The completion of shells reads the methods from the help.
std::string MethodsForHelp()
{
    return fmt::format("\n\nMethods:\n  {}", fmt::join(simulator::Interface(simulator::kServerXml).Methods(), "\n  "));
}

// Lets an argument be one of the words, which its help lists.
void TakeOneOf(CLI::Option* option, const std::vector<std::string>& words)
{
    option->option_text(fmt::format("{}", fmt::join(words, "|")))->check(simulator::OneOf(words));
}

// Adds the commands. They have the names of the D-Bus methods, with dashes. Only bus-fault is not a method, because a
// bus that hangs carries no calls.
void AddCommands(CLI::App& app, Words& words, std::function<void()>& action)
{
    const auto add = [&](const std::string& name, const char* description, const std::string& arguments) {
        CLI::App* const added = app.add_subcommand(name, description);
        const std::string space = arguments.empty() ? "" : " ";
        added->footer(fmt::format("Example:\n  kiv-sandbox control {}{}{}", name, space, arguments));
        return added;
    };
    const auto command = [&](const char* name, const char* description, const char* arguments,
                             std::function<void(const Simulator&)> act) -> CLI::App* {
        CLI::App* const added = add(name, description, arguments);
        added->callback([&action, act = std::move(act)] { action = [act] { act(Simulator()); }; });
        return added;
    };
    const auto plain = [&](const char* name, const char* method, const char* description) {
        command(name, description, "", [method](const Simulator& simulator) { simulator.Control(method); });
    };
    const auto addMethod = [&](CLI::App* added, const char* description) {
        added->add_option("METHOD", words.method, description)->required();
        added->footer(added->get_footer() + MethodsForHelp());
    };
    const auto addClient = [&](CLI::App* added) {
        added->add_option("--client", words.client, "push to the client with this id only")->option_text("CLIENT");
    };
    command(
        "apply", "apply all that a scenario mentions", "surround-set",
        [&](const Simulator& simulator) { simulator.Tell("Apply", CheckedScenario(words.scenario)); })
        ->add_option("SCENARIO", words.scenario, "a file, the name of an installed scenario, or - for stdin")
        ->required();
    CLI::App* const fault = command(
        "fault", "give a method a fault", R"(StopNetworkSpeaker '{"delay": 2000, "every": 3}')",
        [&](const Simulator& simulator) { SetFault(simulator, words); });
    addMethod(fault, "method of the server, or * for all methods that have no fault of their own");
    fault->add_option("FAULT", words.fault, fmt::format("as JSON, with the keys {}; or none", FaultKeys()));
    addMethod(
        command(
            "clear-fault", "remove the fault of a method", "StopNetworkSpeaker",
            [&](const Simulator& simulator) { simulator.Tell("ClearFault", words.method); }),
        "method of the server, or *");
    plain("clear-faults", "ClearFaults", "remove every fault");
    TakeOneOf(
        command(
            "feature", "set whether the TV has network speakers", "off",
            [&](const Simulator& simulator) { simulator.Tell("Feature", words.feature); })
            ->add_option("STATE", words.feature, "absent means that it cannot be read")
            ->required(),
        simulator::kFeatures);
    TakeOneOf(
        command(
            "atmos", "connect a receiver with Dolby Atmos, or disconnect it", "on",
            [&](const Simulator& simulator) {
                simulator.Control("Atmos", g_variant_new("(b)", static_cast<gboolean>(words.atmos == "on")));
            })
            ->add_option("STATE", words.atmos, "on connects it")
            ->required(),
        {"on", "off"});
    CLI::App* const volume = command(
        "volume", "set a volume as somebody at the speaker would", "02:4b:49:56:00:01 30",
        [&](const Simulator& simulator) {
            simulator.Control("Volume", g_variant_new("(si)", words.mac.c_str(), words.volume));
        });
    volume->add_option("MAC", words.mac, "MAC address of a connected speaker")->required();
    volume->add_option("VOLUME", words.volume, "from 0 to 100")->required()->check(simulator::IntegerFrom(0, 100));
    CLI::App* const plug =
        command("plug", "give a speaker power, or unplug it", "02:4b:49:56:00:01 off", [&](const Simulator& simulator) {
            simulator.Control(
                "Plug", g_variant_new("(sb)", words.mac.c_str(), static_cast<gboolean>(words.plugged == "on")));
        });
    plug->add_option("MAC", words.mac, "MAC address of the speaker")->required();
    plug->add_option("STATE", words.plugged, "on or off")->required()->check(simulator::OneOf({"on", "off"}));
    CLI::App* const busFault =
        add("bus-fault", "make the bus deny something, hang, or be gone; without an argument, print the fault in force",
            "deny-events");
    busFault->callback([&] { action = [&words] { SetOrPrintBusFault(words.busFault); }; });
    TakeOneOf(busFault->add_option("FAULT", words.busFault, "none ends the fault"), kBusFaults);
    CLI::App* const event =
        command("event", "push an event to every client", "0x02020028 '01 00 00 00'", [&](const Simulator& simulator) {
            PushEvent(simulator, words);
        });
    event->add_option("ID", words.eventId, "in hexadecimal, such as 0x02020028")->required();
    event->add_option("BYTES", words.bytes, "in hexadecimal");
    addClient(event);
    CLI::App* const payload = command(
        "payload", "push all bytes of a message, header included, to every client", "'07 00 00 00 ff ff ff 7f'",
        [&](const Simulator& simulator) { PushPayload(simulator, words); });
    payload->add_option("BYTES", words.bytes, "in hexadecimal")->required();
    addClient(payload);
    CLI::App* const payloads = command(
        "payloads", "push a payload many times, and print how often a client answered",
        "'07 00 00 00 ff ff ff 7f' 1000", [&](const Simulator& simulator) { PushPayloads(simulator, words); });
    payloads->add_option("BYTES", words.bytes, "in hexadecimal")->required();
    payloads->add_option("COUNT", words.count, "how many times")->required()->check(simulator::IntegerFrom(0));
    addClient(payloads);
    CLI::App* const call = command(
        "call-client", "call any method of a client, and print its answer",
        "tv_1234 nam_notify_subscriber \"([byte 7, 0, 0, 0],)\"",
        [&](const Simulator& simulator) { CallClient(simulator, words); });
    call->add_option("CLIENT", words.client, "id of the client")->required();
    call->add_option("METHOD", words.method, "method of its object")->required();
    call->add_option("ARGUMENTS", words.arguments, "a tuple in GVariant text form, such as \"(1, 'x')\"");
    call->add_option("--timeout", words.timeout, "how long to wait for the answer")
        ->option_text("MILLISECONDS")
        ->check(simulator::IntegerFrom(0));
    command(
        "client-id", "give every process this client id", "den",
        [&](const Simulator& simulator) { simulator.Tell("ClientId", words.id); })
        ->add_option("ID", words.id, "any text")
        ->required();
    plain("reset-client-id", "ResetClientId", "give each process its own id again");
    command(
        "away", "make the server crash, and come back", "2000",
        [&](const Simulator& simulator) { simulator.Control("Away", g_variant_new("(u)", words.milliseconds)); })
        ->add_option("MILLISECONDS", words.milliseconds, "how long it is away")
        ->required()
        ->check(simulator::IntegerFrom(0));
    plain("await-server", "AwaitServer", "wait until the server is on the bus again");
    plain("exit", "Exit", "make the server end; the next call starts it again");
    const auto addForm = [&](CLI::App* added) {
        CLI::Option* const text = added->add_flag("--text", words.asText, "as aligned text");
        added->add_flag("--json", words.asJson, "as JSON: the default")->excludes(text);
    };
    addForm(command("show", "print home, clients and faults", "--text", [&](const Simulator& simulator) {
        Show(simulator, words);
    }));
    addForm(command(
        "await-change", "wait until home, clients or faults change, and print them", "--text",
        [&](const Simulator& simulator) { AwaitChange(simulator, words); }));
    command("calls", "print the calls that the server has received", "--json", [&](const Simulator& simulator) {
        PrintCalls(simulator, words);
    })->add_flag("--json", words.asJson, "as JSON");
    plain("forget-calls", "ForgetCalls", "empty the list of calls that the server has received");
}

void RefuseUnknownCommand(const CLI::App& app, const std::string& word)
{
    std::vector<std::string> names;
    for (const CLI::App* const command : app.get_subcommands(nullptr)) {
        names.push_back(command->get_name());
    }
    if (!word.empty() && word.front() != '-' && std::ranges::find(names, word) == names.end()) {
        throw CLI::ParseError(
            fmt::format("unknown command {}{}", word, DidYouMean(word, names)), CLI::ExitCodes::ExtrasError);
    }
}

} // namespace

int ControlMain(int argc, char** argv)
{
    CLI::App app(kControlDescription, "kiv-sandbox control");
    app.formatter(std::make_shared<simulator::HelpFormat>());
    simulator::TellWithName(app);
    app.require_subcommand(1);
    Words words;
    std::function<void()> action;
    AddCommands(app, words, action);
    // The footer is set last, because commands inherit a footer that is set before they are added.
    app.footer(kControlFooter);
    try {
        if (argc < 2) {
            throw CLI::ParseError("no command given", CLI::ExitCodes::RequiredError);
        }
        RefuseUnknownCommand(app, argv[1]);
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kBadUsage;
    }
    const auto fail = [](const std::exception& error, int exitCode) {
        fmt::print(stderr, "kiv-sandbox control: {}\n", error.what());
        return exitCode;
    };
    try {
        action();
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
