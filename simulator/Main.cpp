#include "simulator/CommandLine.h"
#include "simulator/JsonNode.h"
#include "simulator/Simulator.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace kiv::simulator;

constexpr int kBadUsage = 2;

struct Options {
    std::string scenarioFile;
    std::string replayFile;
    std::string featureFile;
    std::optional<int> readyFd;
    bool verbose = false;
};

void AnnounceReady(int fd)
{
    constexpr std::string_view kReady = "ready\n";
    const ssize_t written = write(fd, kReady.data(), kReady.size());
    if (written != static_cast<ssize_t>(kReady.size())) {
        throw std::runtime_error(fmt::format("cannot write to file descriptor {}: {}", fd, std::strerror(errno)));
    }
    close(fd);
}

void Run(const Options& options)
{
    Scenario scenario;
    if (!options.scenarioFile.empty()) {
        scenario = ReadFirstScenario(options.scenarioFile, ReadText(options.scenarioFile, kLargestScenario));
    }
    std::optional<Replay> replay;
    if (!options.replayFile.empty()) {
        replay.emplace(options.replayFile, ReadText(options.replayFile, kLargestRecording));
    }
    if (AwaitServerOfOther()) {
        return;
    }
    World world(scenario);
    world.replay = replay;
    world.featureFile = options.featureFile;
    Simulator simulator(world, Trace(options.verbose), [&options] {
        if (options.readyFd) {
            AnnounceReady(*options.readyFd);
        }
    });
    simulator.Run(scenario.now.away.value_or(Simulator::Outage(0)));
}

int Report(const std::exception& error, int exitCode)
{
    std::fputs(fmt::format("kiv-simulator: {}\n", error.what()).c_str(), stderr);
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    // Writing to a closed pipe must not end the simulator.
    std::signal(SIGPIPE, SIG_IGN);

    Options options;
    CLI::App app("Takes the place of the network-speaker server on the system bus.", "kiv-simulator");
    TellWithName(app);
    app.set_version_flag("--version", "kiv-simulator " KIV_VERSION, "Print the version and exit");
    app.add_option("--ready-fd", options.readyFd, "Write a line to this file descriptor as soon as it owns its names")
        ->check(IntegerFrom(0));
    CLI::Option* const scenario = app.add_option(
        "--scenario", options.scenarioFile, "Read the home, the faults and the timetable from this JSON file");
    app.add_option("--replay", options.replayFile, "Answer from this recording, and not from a home")
        ->excludes(scenario);
    app.add_option("--feature-file", options.featureFile, "Write the device feature of scenarios into this file");
    app.add_flag("--verbose", options.verbose, "Print each call and each push to stderr");
    RefuseOptionsAsValues(app);
    app.footer(
        "Exit codes: 0 it was told to leave, or the bus is gone; 1 there is no bus, or another process owns the name;\n"
        "2 the arguments, the scenario or the recording cannot be used.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kBadUsage;
    }

    try {
        Run(options);
    } catch (const FileError& error) {
        return Report(error, kBadUsage);
    } catch (const std::exception& error) {
        return Report(error, EXIT_FAILURE);
    }
    return EXIT_SUCCESS;
}
