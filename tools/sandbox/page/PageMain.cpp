// kiv-sandbox-page SANDBOX SCENARIOS [RECORDING]
//
// Serves the page of the sandbox whose bus DBUS_SYSTEM_BUS_ADDRESS names, or of a recording. SANDBOX is the path of
// kiv-sandbox, whose commands the page runs. SCENARIOS is the list that --list-scenarios prints.

#include "simulator/BusObject.h"
#include "simulator/Interfaces.h"
#include "simulator/JsonNode.h"
#include "simulator/Recording.h"
#include "src/link/Owners.h"
#include "tools/sandbox/Keeper.h"
#include "tools/sandbox/page/LiveSandbox.h"
#include "tools/sandbox/page/PageServer.h"
#include "tools/sandbox/page/Pcap.h"

#include <fmt/format.h>
#include <glib-unix.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kLast{150};

void FinishControl(GObject* process, GAsyncResult* result, void* data)
{
    const std::unique_ptr<PageServer::OnDone> onDone(static_cast<PageServer::OnDone*>(data));
    g_autofree char* output = nullptr;
    g_subprocess_communicate_utf8_finish(G_SUBPROCESS(process), result, &output, nullptr, nullptr);
    const bool hasExited = g_subprocess_get_if_exited(G_SUBPROCESS(process)) != FALSE;
    (*onDone)(hasExited ? g_subprocess_get_exit_status(G_SUBPROCESS(process)) : -1, output == nullptr ? "" : output);
}

// Runs "kiv-sandbox control" with these words, and then onDone with its exit code and output.
void RunControl(const std::string& sandbox, const std::vector<std::string>& words, PageServer::OnDone onDone)
{
    std::vector<const char*> arguments = {sandbox.c_str(), "control"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    arguments.push_back(nullptr);
    constexpr auto kFlags =
        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_MERGE);
    const link::ObjectOwner<GSubprocess> process(g_subprocess_newv(arguments.data(), kFlags, nullptr));
    if (process == nullptr) {
        onDone(-1, fmt::format("{} cannot be started", sandbox));
        return;
    }
    g_subprocess_communicate_utf8_async(
        process.get(), nullptr, nullptr, &FinishControl,
        std::make_unique<PageServer::OnDone>(std::move(onDone)).release());
}

void ReadRecording(const std::string& file, History& history)
{
    std::istringstream text(simulator::ReadText(file, simulator::kLargestRecording));
    int number = 0;
    for (std::string line; std::getline(text, line);) {
        history.Add(ShownLine(simulator::LineObject(simulator::ReadLine(file, line, ++number))));
    }
}

// Ends this process a moment later, so that viewers get the last messages. _exit() is used, because the threads of the
// trace and of the connections still run.
gboolean OnEnd(void*)
{
    simulator::After(kLast, [] { _exit(EXIT_SUCCESS); });
    return G_SOURCE_CONTINUE;
}

[[noreturn]] void
Run(const std::string& sandbox, const std::string& scenarios, const std::optional<std::string>& recording)
{
    ServerLayout(); // is read now, so that a file that cannot be used is told
    History history;
    json about = {{"live", !recording}, {"scenarios", scenarios}};
    std::unique_ptr<LiveSandbox> live;
    PageServer::Actions actions;
    actions.writePcap = [&history, &live] { return WritePcap(history, live ? live->Begin() : 0); };
    if (recording) {
        ReadRecording(*recording, history);
        about["recording"] = std::filesystem::path(*recording).filename();
    } else {
        live = std::make_unique<LiveSandbox>(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"), history);
        about["methods"] = simulator::Interface(simulator::kServerXml).Methods();
        actions.control = [&sandbox](const std::vector<std::string>& words, auto onDone) {
            RunControl(sandbox, words, std::move(onDone));
        };
    }
    history.SetState("about", json{{"about", about}}.dump());
    const PageServer server(history, actions);
    if (live) {
        const std::string socketName = "kiv-sandbox-page-" + server.Token();
        live->ReadLog(socketName);
        const std::string report = socketName + "\n";
        if (write(Keeper::kReportFd, report.data(), report.size()) < 0) {
            throw std::runtime_error("the sandbox has gone");
        }
    }
    fmt::print(stderr, "kiv-sandbox: the page is {}\n", server.Address());
    for (const int signal : {SIGINT, SIGTERM}) {
        g_unix_signal_add(signal, &OnEnd, nullptr);
    }
    for (;;) {
        g_main_context_iteration(nullptr, TRUE);
    }
}

} // namespace

} // namespace kiv::sandbox

int main(int argc, char** argv)
{
    constexpr int kFailed = 125; // the exit code of kiv-sandbox for its own failures
    if (argc != 3 && argc != 4) {
        fmt::print(stderr, "kiv-sandbox-page is started by kiv-sandbox --page and kiv-sandbox --show FILE\n");
        return kFailed;
    }
    try {
        kiv::sandbox::Run(argv[1], argv[2], argc == 4 ? std::optional<std::string>(argv[3]) : std::nullopt);
    } catch (const std::exception& error) {
        fmt::print(stderr, "kiv-sandbox: {}\n", error.what());
    }
    return kFailed;
}
