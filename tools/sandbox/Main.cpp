#include "simulator/CommandLine.h"
#include "simulator/Feature.h"
#include "simulator/Interfaces.h"
#include "simulator/Replay.h"
#include "simulator/Scenario.h"
#include "src/link/Owners.h"
#include "tools/TimeOfDay.h"
#include "tools/sandbox/BusFault.h"
#include "tools/sandbox/BusTrace.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/ControlCommand.h"
#include "tools/sandbox/Files.h"
#include "tools/sandbox/Keeper.h"
#include "tools/sandbox/NamedSandboxes.h"
#include "tools/sandbox/Page.h"
#include "tools/sandbox/PrivateBus.h"
#include "tools/sandbox/Recorder.h"
#include "tools/sandbox/ReplayCheck.h"
#include "tools/sandbox/ScenarioFiles.h"
#include "tools/sandbox/TraceFormatter.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace kiv::sandbox {

namespace {

namespace fs = std::filesystem;

using simulator::kServerName;

constexpr auto kSimulatorProgram = "kiv-simulator";

// These are the exit codes of env(1). The sandbox has no others of its own, so that a script can tell its failures from
// those of the command.
constexpr int kSandboxFailed = 125;
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;

constexpr auto kDescription =
    "Runs a command on a system bus of its own, on which a simulated network-speaker server answers.\n\n"
    "The bus is private to the command. The server starts before the command. When the command ends, so do the bus,\n"
    "the simulator and all programs that the command has left running.\n\n"
    "If the sandbox has a --name, the same user can run commands in it from other terminals, by --join.\n\n"
    "\"kiv-sandbox control\" changes what the simulator and the bus do while they run; see its --help.\n";

constexpr auto kFooter = "Environment of the command:\n"
                         "  DBUS_SYSTEM_BUS_ADDRESS     the private bus\n"
                         "  KIV_SYSTEM_INFO_FILE        the device features, see --feature\n"
                         "  KIV_LAYOUT                  the record layout, see --layout\n\n"
                         "Exit code:\n"
                         "  the command's, or 128 plus the number of the signal that ended it\n"
                         "  125  the sandbox failed: its options are wrong, a file cannot be used, ...\n"
                         "  126  the command cannot be executed\n"
                         "  127  the command was not found\n\n"
                         "Examples:\n"
                         "  kiv-sandbox -- my-tv-app --fullscreen\n"
                         "  kiv-sandbox --trace -- kivctl surround channels\n"
                         "  kiv-sandbox --scenario multi-room-house -- kivctl list all\n"
                         "  kiv-sandbox --bus-fault deny-events -- my-tv-app\n"
                         "  kiv-sandbox --record morning.jsonl -- my-tv-app\n"
                         "  kiv-sandbox --page -- my-tv-app\n"
                         "  kiv-sandbox -- bash\n"
                         "  kiv-sandbox --name den -- my-tv-app\n"
                         "  kiv-sandbox --join den -- kivctl monitor";

struct Options {
    std::vector<std::string> command;
    std::string simulator;
    std::string scenario;
    std::string record;
    std::string replay;
    std::string layout;
    std::string name;
    std::string join;
    std::string busFault;
    std::optional<std::string> feature;
    bool strict = false;
    bool trace = false;
    bool traceAll = false;
    bool noServer = false;
    bool start = false;
    bool lazy = false;
    bool simulatorLog = false;
    bool listScenarios = false;
    bool list = false;
    bool page = false;
    std::string show;
    bool printAddress = false;
};

// Blocks the signals that would end this process, to read them from a file descriptor.
class EndSignals {
public:
    EndSignals()
    {
        sigemptyset(&signals_);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&signals_, number);
        }
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
        fd_ = signalfd(-1, &signals_, SFD_CLOEXEC);
    }
    ~EndSignals() { close(fd_); }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    int Fd() const { return fd_; }

    // Returns nothing for a signal from the terminal, because the terminal sends it to the command, too.
    std::optional<int> Read() const
    {
        signalfd_siginfo info{};
        if (read(fd_, &info, sizeof info) != sizeof info || info.ssi_code == SI_KERNEL) {
            return std::nullopt;
        }
        return static_cast<int>(info.ssi_signo);
    }

    // Unblocks the signals during an action, so that they end this process.
    template <typename Action>
    void EndBySignalDuring(const Action& action) const
    {
        pthread_sigmask(SIG_UNBLOCK, &signals_, nullptr);
        action();
        pthread_sigmask(SIG_BLOCK, &signals_, nullptr);
    }

private:
    sigset_t signals_{};
    int fd_;
};

std::string FindSimulator(const std::string& given)
{
    if (!given.empty()) {
        return fs::absolute(given);
    }
    // The simulator is installed beside this program. In a build tree, it is in its own folder.
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& folder : {here, here / "../../simulator"}) {
        const fs::path candidate = folder / kSimulatorProgram;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate.lexically_normal();
        }
    }
    const link::TextOwner found(g_find_program_in_path(kSimulatorProgram));
    if (found == nullptr) {
        throw std::runtime_error(fmt::format("{} not found; name it with --simulator", kSimulatorProgram));
    }
    return found.get();
}

Service SimulatorService(const Options& options, const fs::path& featureFile, const fs::path& scenarioFile)
{
    std::vector<std::string> command = {FindSimulator(options.simulator), "--feature-file", featureFile};
    if (!options.simulator.empty()) {
        // If a program exits with 0, dbus-daemon assumes that it runs on in the background, and waits 25 s for it to
        // take its name. With any other exit code, the start fails at once.
        command.insert(command.begin(), {"/bin/sh", "-c", R"("$0" "$@" && false)"});
    }
    if (!scenarioFile.empty()) {
        command.insert(command.end(), {"--scenario", scenarioFile});
    }
    if (!options.replay.empty()) {
        command.insert(command.end(), {"--replay", fs::absolute(options.replay)});
    }
    if (options.simulatorLog) {
        command.emplace_back("--verbose");
    }
    return {kServerName, command};
}

// Throws if --record names the file of another option, because the recording replaces its file.
void RefuseToReplace(const fs::path& input, const char* option, const std::string& record)
{
    // equivalent() compares the device and the inode of the files.
    std::error_code notThere;
    if (fs::equivalent(input, record, notThere)) {
        throw simulator::FileError(
            fmt::format("--record must name another file than {}, got the same file: \"{}\"", option, record));
    }
}

struct InputFiles {
    simulator::Scenario scenario;
    std::optional<simulator::Replay> replay;
};

// Reports a recording without calls. It is most likely that of a run that failed, and a command that makes no calls
// would pass with --strict.
void TellOfNoCalls(const simulator::Replay& replay, bool isStrict)
{
    if (!replay.Unmade().empty()) {
        return;
    }
    const std::string reason = fmt::format("{}: the recording has no calls", replay.Name());
    if (isStrict) {
        throw simulator::FileError(reason + "; --strict needs one to compare with");
    }
    fmt::print(stderr, "kiv-sandbox: {}\n", reason);
}

// Reads the files that the simulator will read, so that nothing is started if they cannot be used.
InputFiles ReadFiles(const Options& options, const std::optional<ScenarioText>& given)
{
    InputFiles files;
    if (given) {
        RefuseToReplace(given->name, "--scenario", options.record);
        files.scenario = simulator::ReadFirstScenario(given->name, given->text);
    }
    if (!options.replay.empty()) {
        RefuseToReplace(options.replay, "--replay", options.record);
        files.replay.emplace(options.replay, simulator::ReadText(options.replay, simulator::kLargestRecording));
        TellOfNoCalls(*files.replay, options.strict);
    }
    return files;
}

// Returns whether the server is to run before the command. If the scenario begins with an outage, the first call starts
// the server, so that the command sees the outage.
bool IsStartedFirst(const Options& options, const simulator::Scenario& scenario)
{
    return options.start || (!options.lazy && !options.noServer && !scenario.now.away);
}

// Returns the file from which the simulator reads the scenario each time that it is started. Empty if there is no
// scenario.
fs::path ScenarioFile(const std::optional<ScenarioText>& given, const PrivateBus& bus)
{
    if (!given) {
        return {};
    }
    if (given->isFile) {
        return given->name;
    }
    fs::path copy = bus.Directory() / "scenario.json";
    WriteFile(copy, given->text);
    return copy;
}

// Starts the server, and returns when it runs. A signal ends this process meanwhile.
void StartServer(PrivateBus& bus, const Options& options, const EndSignals& signals)
{
    try {
        signals.EndBySignalDuring([&bus] { bus.Activate(kServerName); });
    } catch (const DaemonError& error) {
        const std::string simulator = FindSimulator(options.simulator);
        if (error.Name() == "org.freedesktop.DBus.Error.Spawn.ChildExited") {
            throw std::runtime_error(fmt::format("{} ended without taking the name {}", simulator, kServerName));
        }
        throw std::runtime_error(fmt::format("{} has not taken the name {}: {}", simulator, kServerName, error.what()));
    }
}

// A bus that is started again on demand after its daemon has ended.
struct RestartableBus {
    PrivateBus& bus;
    std::function<void()> onStarted;
};

// Passes signals on until the command ends. Returns its wait status.
int PassSignalsUntilEnd(Keeper& command, const EndSignals& signals, const RestartableBus* restartable)
{
    constexpr int kLookMilliseconds = 50;
    PrivateBus* const bus = restartable == nullptr ? nullptr : &restartable->bus;
    std::array<pollfd, 3> events{
        {{signals.Fd(), POLLIN, 0}, {command.Fd(), POLLIN, 0}, {bus == nullptr ? -1 : bus->Fd(), POLLIN, 0}}};
    for (;;) {
        const bool isGone = bus != nullptr && bus->DaemonPid() == 0;
        poll(events.data(), events.size(), isGone ? kLookMilliseconds : -1);
        if (events[1].revents != 0) {
            return command.WaitForEnd();
        }
        if (events[2].revents != 0) {
            bus->Kill(); // reads the end of the daemon
        }
        if (isGone && IsRestartWanted(bus->Directory())) {
            bus->Start();
            restartable->onStarted();
            ConfirmRestart(bus->Directory());
        }
        if (events[0].revents == 0) {
            continue;
        }
        if (const auto number = signals.Read()) {
            command.Signal(*number);
        }
    }
}

// Thrown when the command cannot be executed.
class CommandError : public std::runtime_error {
public:
    CommandError(const std::string& name, const std::error_code& reason)
        : std::runtime_error(fmt::format("{}: {}", name, reason.message())),
          exitCode_(reason.value() == ENOENT ? kNotFound : kCannotExecute)
    {
    }

    int ExitCode() const { return exitCode_; }

private:
    int exitCode_;
};

constexpr int kSignalled = 128;

// Returns whether people, terminals and shells end programs by this signal. Other signals mean a crash.
bool EndsOnPurpose(int number)
{
    return number == SIGHUP || number == SIGINT || number == SIGPIPE || number == SIGTERM;
}

int RunCommand(const std::string& name, Keeper& command, const EndSignals& signals, const RestartableBus* bus = nullptr)
{
    try {
        command.Start();
        const int status = PassSignalsUntilEnd(command, signals, bus);
        if (!WIFSIGNALED(status)) {
            return WEXITSTATUS(status);
        }
        const int number = WTERMSIG(status);
        if (!EndsOnPurpose(number)) {
            // std::fputs() is used, because an exception for a closed stderr would change the exit code.
            const char* const reason = g_strsignal(number);
            std::fputs(
                fmt::format("kiv-sandbox: {} was killed by signal {} ({})\n", name, number, reason).c_str(), stderr);
        }
        return kSignalled + number;
    } catch (const std::system_error& error) {
        throw CommandError(name, error.code());
    }
}

// Prints the messages from the start of the command on, because earlier messages are the sandbox's own. With the
// housekeeping, prints all messages.
class TracePrinter {
public:
    explicit TracePrinter(TraceFormatter::Housekeeping housekeeping)
        : formatter_(housekeeping), isPrinting_(housekeeping == TraceFormatter::Housekeeping::kShown)
    {
    }

    void CommandStarts() { isPrinting_ = true; }

    void Add(const Message& message)
    {
        // Format() gets all messages, because it also learns names from messages that are not printed.
        const auto line = formatter_.Format(message);
        if (line && isPrinting_) {
            // std::fputs() is used, because an exception for a closed stderr would end the command.
            std::fputs(fmt::format("{} bus: {}\n", TimeOfDay(std::chrono::system_clock::now()), *line).c_str(), stderr);
        }
    }

private:
    TraceFormatter formatter_;
    std::atomic<bool> isPrinting_;
};

// Passes the messages to the trace, the recorder and the check of a replay.
struct Listeners {
    Listeners(const Options& options, const InputFiles& files)
    {
        if (options.trace || options.traceAll) {
            printer.emplace(
                options.traceAll ? TraceFormatter::Housekeeping::kShown : TraceFormatter::Housekeeping::kHidden);
        }
        if (!options.record.empty()) {
            recorder.emplace(options.record);
        }
        if (options.strict) {
            replayCheck.emplace(*files.replay);
        }
    }

    std::optional<TracePrinter> printer;
    std::optional<Recorder> recorder;
    std::optional<ReplayCheck> replayCheck;

    bool AreAny() const { return printer || recorder || replayCheck; }

    void Add(const Message& message)
    {
        if (printer) {
            printer->Add(message);
        }
        if (recorder) {
            recorder->Add(message);
        }
        if (replayCheck) {
            replayCheck->Add(message);
        }
    }
};

constexpr auto kAddressVariable = "DBUS_SYSTEM_BUS_ADDRESS";
constexpr auto kLayoutVariable = "KIV_LAYOUT";

void SetEnvironment(const Options& options, const std::map<std::string, std::string>& environment)
{
    for (const auto& [name, value] : environment) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    if (!options.layout.empty()) {
        setenv(kLayoutVariable, fs::absolute(options.layout).c_str(), 1);
    }
    // A layout that is named already is kept, because it belongs to the server whose recording is replayed.
    setenv(kLayoutVariable, LayoutFile().c_str(), 0);
    if (options.printAddress) {
        fmt::print(stderr, "kiv-sandbox: the bus is {}\n", environment.at(kAddressVariable));
    }
}

int RunInSandbox(const Options& options)
{
    std::optional<ScenarioText> scenarioText;
    if (!options.scenario.empty()) {
        scenarioText = ReadScenarioText(options.scenario);
    }
    const InputFiles files = ReadFiles(options, scenarioText);
    PrivateBus bus({.extraConfig = kBusFaultConfig});
    const fs::path featureFile = bus.Directory() / "system-info.conf";
    simulator::WriteFeature(featureFile, options.feature.value_or(files.scenario.now.feature.value_or("on")));
    std::map<std::string, std::string> environment = {
        {kAddressVariable, bus.Address()}, {"KIV_SYSTEM_INFO_FILE", featureFile}};
    if (!options.layout.empty()) {
        // The variable is set here, so that commands that join the sandbox have it, too.
        environment[kLayoutVariable] = fs::absolute(options.layout);
    }
    SetEnvironment(options, environment);
    std::optional<Page> page;
    if (options.page) {
        page.emplace();
    }
    Keeper command(options.command, Keeper::Place::kForeground);

    // Up to here, a signal ends this process, and the keepers clean up. The threads of the bus and the trace inherit
    // the signal mask.
    const EndSignals signals;
    if (page) {
        page->Follow();
    }
    Listeners listeners(options, files);
    if (!options.noServer) {
        bus.WriteService(SimulatorService(options, featureFile, ScenarioFile(scenarioText, bus)));
    }
    std::optional<BusTrace> trace;
    const RestartableBus restartable = {
        bus, [&] {
            if (listeners.AreAny()) {
                trace.emplace(bus.Address(), [&listeners](const Message& message) { listeners.Add(message); });
            }
        }};
    restartable.onStarted();
    if (IsStartedFirst(options, files.scenario)) {
        StartServer(bus, options, signals);
    }
    if (listeners.printer) {
        trace->Flush();
        listeners.printer->CommandStarts();
    }
    // The name is taken after the keepers were forked, so that they do not hold its lock.
    std::optional<SandboxName> name;
    if (!options.name.empty()) {
        name.emplace(NamedSandbox{options.name, getpid(), options.command, environment});
    }
    if (!options.busFault.empty()) {
        SetBusFault(bus.Address(), options.busFault);
    }
    const int exitCode = RunCommand(options.command.front(), command, signals, &restartable);
    // A bus that hangs is resumed. Otherwise it would not deliver the messages that are still to be traced, and would
    // not end at once.
    bus.Resume();
    if (trace) {
        trace->Flush();
        trace.reset();
    }
    if (listeners.recorder) {
        const bool failed = exitCode != EXIT_SUCCESS && !EndsOnPurpose(exitCode - kSignalled);
        fmt::print(stderr, "{}", listeners.recorder->Finish(failed));
    }
    const std::string complaints = listeners.replayCheck ? listeners.replayCheck->Complaints() : "";
    fmt::print(stderr, "{}", complaints);
    return exitCode == EXIT_SUCCESS && !complaints.empty() ? kSandboxFailed : exitCode;
}

// Replaces this process.
[[noreturn]] void Execute(std::vector<std::string> words)
{
    const std::vector<char*> arguments = Arguments(words);
    execvp(arguments[0], arguments.data());
    throw CommandError(words.front(), std::error_code(errno, std::generic_category()));
}

// Runs the command in the sandbox of another process. Without a page, the command replaces this process.
int JoinSandbox(const Options& options)
{
    SetEnvironment(options, FindSandbox(options.join).environment);
    if (options.page) {
        Page page;
        Keeper command(options.command, Keeper::Place::kForeground);
        const EndSignals signals;
        page.Follow();
        return RunCommand(options.command.front(), command, signals);
    }
    Execute(options.command);
}

void PrintSandboxes(bool withAddress)
{
    const std::vector<NamedSandbox> sandboxes = NamedSandboxes();
    if (sandboxes.empty()) {
        fmt::print(stderr, "kiv-sandbox: no sandbox with a --name runs\n");
    }
    for (const NamedSandbox& sandbox : sandboxes) {
        const std::string address = withAddress ? sandbox.environment.at(kAddressVariable) + "  " : "";
        fmt::print(
            "{:<20}  process {:<8}  {}{}\n", sandbox.name, sandbox.pid, address, fmt::join(sandbox.command, " "));
    }
}

class Usage : public simulator::HelpFormat {
    std::string make_usage(const CLI::App* /*app*/, std::string name) const override
    {
        return "Usage: " + name + " [options] -- command [argument...]\n";
    }
};

// Returns the command. Without a "--", the options end at the first word that is not one of them. Lists and recordings
// take no command.
std::vector<std::string> Command(const CLI::App& app, bool runsNone)
{
    std::vector<std::string> words = app.remaining();
    const bool separated = !words.empty() && words.front() == "--";
    if (separated) {
        words.erase(words.begin());
    }
    if (!separated && !words.empty() && words.front().starts_with('-')) {
        throw CLI::ExtrasError(app.get_name(), {words.front()});
    }
    if (words.empty() && !runsNone) {
        throw CLI::ParseError("no command given", CLI::ExitCodes::RequiredError);
    }
    if (!words.empty() && runsNone) {
        throw CLI::ParseError(
            fmt::format("--list, --list-scenarios and --show run no command, got \"{}\"", fmt::join(words, " ")),
            CLI::ExitCodes::ExcludesError);
    }
    return words;
}

int Main(int argc, char** argv)
{
    if (argc > 1 && std::string_view(argv[1]) == "control") {
        return ControlMain(argc - 1, argv + 1);
    }
    Options options;
    CLI::App app(kDescription, "kiv-sandbox");
    app.formatter(std::make_shared<Usage>());
    app.footer(kFooter);
    simulator::TellWithName(app);
    app.set_version_flag("--version", "kiv-sandbox " KIV_VERSION, "print the version and exit");
    app.prefix_command();
    app.add_flag("--trace", options.trace, "print calls, answers and signals on the bus to stderr");
    app.add_flag(
        "--trace-all", options.traceAll,
        "like --trace, and also print the housekeeping of bus and sandbox: Hello, AddMatch, the start of the server, "
        "...");
    CLI::Option* const start = app.add_flag(
        "--start", options.start,
        "start the server before the command: the default, unless the scenario makes the server start late");
    CLI::Option* const lazy =
        app.add_flag("--lazy", options.lazy, "leave the start of the server to the first call, as a TV may do");
    CLI::Option* const noServer =
        app.add_flag("--no-server", options.noServer, "run no server, and let the bus start none");
    start->excludes(lazy, noServer);
    lazy->excludes(noServer);
    app.add_flag("--simulator-log", options.simulatorLog, "have the simulator print what it does to stderr");
    CLI::Option* const scenario = app.add_option(
                                         "--scenario", options.scenario,
                                         "read the home, the faults and the timetable from a JSON file, from an "
                                         "installed scenario by its name, or from stdin with -")
                                      ->option_text("FILE");
    CLI::Option* const listScenarios =
        app.add_flag("--list-scenarios", options.listScenarios, "print the installed scenarios");
    app.add_option("--record", options.record, "write calls, events and answers to FILE, a line each")
        ->option_text("FILE");
    CLI::Option* const replay =
        app.add_option("--replay", options.replay, "answer from what --record wrote")->option_text("FILE");
    replay->excludes(scenario, noServer);
    app.add_flag(
           "--strict", options.strict,
           "fail if a call was not recorded, or if a recorded call was not made; the calls may come in any order")
        ->needs(replay);
    app.add_option(
           "--simulator", options.simulator,
           "run this simulator, and not the one that is installed beside this program")
        ->option_text("PATH")
        ->check(simulator::File());
    app.add_option(
           "--feature", options.feature,
           "whether the device has network speakers; absent: this cannot be read (default: the scenario's feature, or "
           "on)")
        ->option_text("on|off|absent")
        ->check(simulator::OneOf(simulator::kFeatures));
    app.add_option(
           "--bus-fault", options.busFault,
           "make the bus deny a client's name, deny the server's events, hang, or be gone")
        ->option_text("deny-name|deny-events|hang|gone|none")
        ->check(simulator::OneOf(kBusFaults));
    const auto isOwn = [](const CLI::Option* option) {
        return option->get_name() != "--help" && option->get_name() != "--version";
    };
    const std::vector<CLI::Option*> ofANewSandbox = app.get_options(isOwn);
    app.add_option("--name", options.name, "give the sandbox a name, by which --join finds it")
        ->option_text("NAME")
        ->check(WhyNoName);
    CLI::Option* const join =
        app.add_option("--join", options.join, "run the command in the sandbox of this name")->option_text("NAME");
    join->excludes(app.get_option("--name"));
    for (CLI::Option* const option : ofANewSandbox) {
        join->excludes(option);
    }
    CLI::Option* const layout =
        app.add_option(
               "--layout", options.layout,
               "use this file for the names of the fields in the server's records, in kivctl and the Python module")
            ->option_text("FILE")
            ->check(simulator::File());
    CLI::Option* const list = app.add_flag("--list", options.list, "print the running sandboxes that have a name");
    CLI::Option* const printAddress = app.add_flag(
        "--print-address", options.printAddress,
        "print the address of the bus: to stderr before the command runs, or with --list");
    app.add_flag("--page", options.page, "show the home and the messages on the bus live in a browser");
    CLI::Option* const show =
        app.add_option("--show", options.show, "show what --record wrote in a browser")->option_text("FILE");
    // Lists and recordings run nothing on which another option could have an effect.
    for (CLI::Option* const option : app.get_options(isOwn)) {
        if (option != listScenarios) {
            listScenarios->excludes(option);
        }
        if (option != list && option != printAddress) {
            list->excludes(option);
        }
        if (option != show && option != layout) {
            show->excludes(option);
        }
    }
    simulator::RefuseOptionsAsValues(app);
    try {
        app.parse(argc, argv);
        options.command = Command(app, options.listScenarios || options.list || !options.show.empty());
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kSandboxFailed;
    }
    const auto fail = [](const std::exception& error, int exitCode) {
        fmt::print(stderr, "kiv-sandbox: {}\n", error.what());
        return exitCode;
    };
    try {
        if (options.listScenarios) {
            fmt::print("{}", ListScenarios());
            return EXIT_SUCCESS;
        }
        if (options.list) {
            PrintSandboxes(options.printAddress);
            return EXIT_SUCCESS;
        }
        if (!options.show.empty()) {
            SetEnvironment(options, {});
            std::vector<std::string> command = PageCommand();
            command.push_back(options.show);
            Execute(command);
        }
        if (!options.join.empty()) {
            return JoinSandbox(options);
        }
        return RunInSandbox(options);
    } catch (const CommandError& error) {
        return fail(error, error.ExitCode());
    } catch (const std::exception& error) {
        return fail(error, kSandboxFailed);
    }
}

} // namespace

} // namespace kiv::sandbox

int main(int argc, char** argv)
{
    return kiv::sandbox::Main(argc, argv);
}
