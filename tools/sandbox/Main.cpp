#include "BusTrace.h"
#include "ControlCommand.h"
#include "Keeper.h"
#include "PrivateBus.h"
#include "Recorder.h"
#include "ScenarioFiles.h"
#include "TraceFormatter.h"
#include "simulator/Feature.h"
#include "simulator/Interfaces.h"
#include "simulator/Replay.h"
#include "simulator/Scenario.h"

#include <CLI/CLI.hpp>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
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

constexpr int kBadInput = 2;
/// As with env(1), so that a script can tell the sandbox's failures from those of most commands.
constexpr int kSandboxFailed = 125;
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;

constexpr auto kDescription =
    "Runs a command on a system bus of its own, on which a simulated network-speaker server answers.\n\n"
    "The bus is private to the command. The simulator is started by the first call to the server. When the command\n"
    "ends, so do the bus, the simulator and whatever the command has left running.\n\n"
    "\"kiv-sandbox control\" changes what the simulator does while it runs; see its --help.\n";

constexpr auto kFooter = "Environment of the command:\n"
                         "  DBUS_SYSTEM_BUS_ADDRESS     the private bus\n"
                         "  KIV_SYSTEM_INFO_FILE        the device features, see --feature\n"
                         "  KIV_LAYOUT                  the simulator's record layout, unless it is set already\n\n"
                         "Exit code:\n"
                         "  2    a scenario or a recording cannot be used; nothing has been started\n"
                         "  that of the command, or 128 plus the number of the signal that ended it\n"
                         "  125  the sandbox failed, or its options are wrong\n"
                         "  126  the command cannot be executed\n"
                         "  127  the command was not found\n\n"
                         "Examples:\n"
                         "  kiv-sandbox -- my-tv-app --fullscreen\n"
                         "  kiv-sandbox --trace -- kivctl surround channels\n"
                         "  kiv-sandbox --scenario multi-room-house -- kivctl list all\n"
                         "  kiv-sandbox --record morning.jsonl -- my-tv-app\n"
                         "  kiv-sandbox --start -- bash";

struct Options {
    std::vector<std::string> command;
    std::string simulator;
    std::string scenario;
    std::string record;
    std::string replay;
    std::optional<std::string> feature;
    bool trace = false;
    bool traceAll = false;
    bool noServer = false;
    bool start = false;
    bool simulatorLog = false;
    bool listScenarios = false;
};

/// Signals that would end this process, to be read from a file descriptor instead.
class EndSignals {
public:
    EndSignals()
    {
        sigset_t signals;
        sigemptyset(&signals);
        for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&signals, number);
        }
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
    }
    ~EndSignals() { close(fd_); }
    EndSignals(const EndSignals&) = delete;
    EndSignals& operator=(const EndSignals&) = delete;

    int Fd() const { return fd_; }

    /// Nothing for a signal from the terminal, which sends it to the command, too.
    std::optional<int> Read() const
    {
        signalfd_siginfo info{};
        if (read(fd_, &info, sizeof info) != sizeof info || info.ssi_code == SI_KERNEL) {
            return std::nullopt;
        }
        return static_cast<int>(info.ssi_signo);
    }

private:
    int fd_;
};

std::string FindSimulator(const std::string& given)
{
    if (!given.empty()) {
        return fs::absolute(given);
    }
    // Installed beside this program; in a build tree, in its own folder.
    const fs::path here = fs::read_symlink("/proc/self/exe").parent_path();
    for (const fs::path& folder : {here, here / "../../simulator"}) {
        const fs::path candidate = folder / kSimulatorProgram;
        if (access(candidate.c_str(), X_OK) == 0) {
            return candidate.lexically_normal();
        }
    }
    char* found = g_find_program_in_path(kSimulatorProgram);
    if (found == nullptr) {
        throw std::runtime_error(fmt::format("{} not found; name it with --simulator", kSimulatorProgram));
    }
    std::string path = found;
    g_free(found);
    return path;
}

Service SimulatorService(const Options& options, const fs::path& featureFile)
{
    std::vector<std::string> command = {FindSimulator(options.simulator), "--feature-file", featureFile};
    if (!options.scenario.empty()) {
        command.insert(command.end(), {"--scenario", FindScenario(options.scenario)});
    }
    if (!options.replay.empty()) {
        command.insert(command.end(), {"--replay", fs::absolute(options.replay)});
    }
    if (options.simulatorLog) {
        command.emplace_back("--verbose");
    }
    return {kServerName, command};
}

/// Reads what the simulator will read, so that nothing is started for files that cannot be used. Returns the feature.
std::string CheckFiles(const Options& options)
{
    simulator::Scenario scenario;
    if (!options.scenario.empty()) {
        const fs::path file = FindScenario(options.scenario);
        scenario = simulator::ReadScenario(file, simulator::ReadText(file));
    }
    if (!options.replay.empty()) {
        simulator::Replay(options.replay, simulator::ReadText(options.replay));
    }
    return options.feature.value_or(scenario.now.feature.value_or("on"));
}

/// Returns the wait status of the command.
int PassSignalsUntilEnd(Keeper& command, const EndSignals& signals)
{
    std::array<pollfd, 2> events{{{signals.Fd(), POLLIN, 0}, {command.Fd(), POLLIN, 0}}};
    for (;;) {
        poll(events.data(), events.size(), -1);
        if (events[1].revents != 0) {
            return command.WaitForEnd();
        }
        if (events[0].revents == 0) {
            continue;
        }
        if (const auto number = signals.Read()) {
            command.Signal(*number);
        }
    }
}

int RunCommand(const std::string& name, Keeper& command, const EndSignals& signals)
{
    try {
        command.Start();
        const int status = PassSignalsUntilEnd(command, signals);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    } catch (const std::system_error& error) {
        fmt::print(stderr, "kiv-sandbox: {}: {}\n", name, error.code().message());
        return error.code().value() == ENOENT ? kNotFound : kCannotExecute;
    }
}

/// As the log stand-in writes it, so that both can be read side by side.
std::string TimeOfDay()
{
    const auto now = std::chrono::system_clock::now();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    return fmt::format(
        "{:%H:%M:%S}.{:03}", fmt::localtime(std::chrono::system_clock::to_time_t(now)), milliseconds % 1000);
}

BusTrace::Listener TracePrinter(TraceFormatter::Housekeeping housekeeping)
{
    return [formatter = TraceFormatter(housekeeping)](const Message& message) mutable {
        if (const auto line = formatter.Format(message)) {
            // A stderr that has been closed is no reason to end the command, as an exception here would.
            std::fputs(fmt::format("{} bus: {}\n", TimeOfDay(), *line).c_str(), stderr);
        }
    };
}

/// All who want to see the messages.
BusTrace::Listener Listeners(const Options& options, std::optional<Recorder>& recorder)
{
    BusTrace::Listener print;
    if (options.trace || options.traceAll) {
        print =
            TracePrinter(options.traceAll ? TraceFormatter::Housekeeping::Shown : TraceFormatter::Housekeeping::Hidden);
    }
    return [print, &recorder](const Message& message) {
        if (print) {
            print(message);
        }
        if (recorder) {
            recorder->Add(message);
        }
    };
}

int RunInSandbox(const Options& options)
{
    const std::string feature = CheckFiles(options);
    std::optional<Recorder> recorder;
    if (!options.record.empty()) {
        recorder.emplace(options.record);
    }
    PrivateBus bus;
    const fs::path featureFile = bus.Directory() / "system-info.conf";
    simulator::WriteFeature(featureFile, feature);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus.Address().c_str(), 1);
    setenv("KIV_SYSTEM_INFO_FILE", featureFile.c_str(), 1);
    // A layout that is named already is that of a server whose recording is replayed.
    setenv("KIV_LAYOUT", LayoutFile().c_str(), 0);
    Keeper command(options.command, Keeper::Place::Foreground);

    // Until here a signal simply ends this process, and the keepers clean up. The threads of bus and trace inherit the
    // mask.
    const EndSignals signals;
    if (!options.noServer) {
        bus.WriteService(SimulatorService(options, featureFile));
    }
    std::optional<BusTrace> trace;
    if (options.trace || options.traceAll || recorder) {
        trace.emplace(bus.Address(), Listeners(options, recorder));
    }
    if (options.start) {
        bus.Activate(kServerName);
    }
    const int exitCode = RunCommand(options.command.front(), command, signals);
    if (trace) {
        trace->Flush();
        trace.reset();
    }
    if (recorder) {
        recorder->Finish();
    }
    return exitCode;
}

class HelpFormat : public CLI::Formatter {
    std::string make_usage(const CLI::App* /*app*/, std::string name) const override
    {
        return "Usage: " + name + " [options] -- command [argument...]\n";
    }
};

/// What follows the options. Without a "--" it ends at the first word that is not an option of ours.
std::vector<std::string> Command(const CLI::App& app)
{
    std::vector<std::string> words = app.remaining();
    const bool separated = !words.empty() && words.front() == "--";
    if (separated) {
        words.erase(words.begin());
    }
    if (words.empty()) {
        throw CLI::RequiredError("command");
    }
    if (!separated && words.front().starts_with('-')) {
        throw CLI::ExtrasError(app.get_name(), {words.front()});
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
    app.formatter(std::make_shared<HelpFormat>());
    app.footer(kFooter);
    app.prefix_command();
    app.add_flag("--trace", options.trace, "print calls, answers and signals on the bus to stderr");
    app.add_flag("--trace-all", options.traceAll, "the same with the housekeeping of the bus: Hello, AddMatch, ...");
    app.add_flag("--start", options.start, "start the simulator before the command, not at the first call");
    app.add_flag("--no-server", options.noServer, "no server, and none that can be started");
    app.add_flag("--simulator-log", options.simulatorLog, "have the simulator print what it does to stderr");
    app.add_option(
           "--scenario", options.scenario,
           "the home, the faults and what happens when: a JSON file, or the name of "
           "a scenario that comes along")
        ->option_text("FILE");
    app.add_flag("--list-scenarios", options.listScenarios, "print the scenarios that come along");
    app.add_option("--record", options.record, "write calls, events and answers to FILE, a line each")
        ->option_text("FILE");
    app.add_option("--replay", options.replay, "answer from what --record wrote")->option_text("FILE");
    app.add_option("--simulator", options.simulator, "the simulator, if not the one installed beside this program")
        ->option_text("PATH")
        ->check(CLI::ExistingFile);
    app.add_option(
           "--feature", options.feature,
           "whether the device has network speakers; absent: cannot be read (default: what the "
           "scenario says, or on)")
        ->option_text("on|off|absent")
        ->check(CLI::IsMember({"on", "off", "absent"}));
    try {
        app.parse(argc, argv);
        if (!options.listScenarios) {
            options.command = Command(app);
        }
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
        return RunInSandbox(options);
    } catch (const simulator::FileError& error) {
        return fail(error, kBadInput);
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
