#include "simulator/SetUp.h"
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
    std::string setUpFile;
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
    World world;
    if (!options.setUpFile.empty()) {
        ApplySetUp(options.setUpFile, world.clients, world.faults);
    }
    Simulator simulator(world, Trace(options.verbose));
    simulator.OwnNames();
    if (options.readyFd) {
        AnnounceReady(*options.readyFd);
    }
    simulator.Run();
}

int Report(const std::exception& error, int exitCode)
{
    std::fputs(fmt::format("kiv-simulator: {}\n", error.what()).c_str(), stderr);
    return exitCode;
}

} // namespace

int main(int argc, char** argv)
{
    // A reader that has gone away must not end the simulator.
    std::signal(SIGPIPE, SIG_IGN);

    Options options;
    CLI::App app("Stands in for the network-speaker server on the system bus.", "kiv-simulator");
    app.add_option("--ready-fd", options.readyFd, "Write a line to this file descriptor once the names are owned");
    app.add_option("--set-up", options.setUpFile, "JSON file with a client id and faults to start with");
    app.add_flag("--verbose", options.verbose, "Print each call and each push to stderr");
    app.footer("Exit codes: 0 told to leave or bus gone, 1 no bus or name taken, 2 bad arguments or set-up file.");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : kBadUsage;
    }

    try {
        Run(options);
    } catch (const SetUpError& error) {
        return Report(error, kBadUsage);
    } catch (const std::exception& error) {
        return Report(error, EXIT_FAILURE);
    }
    return EXIT_SUCCESS;
}
