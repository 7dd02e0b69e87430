// kiv-sandbox-page SANDBOX [RECORDING]
// Serves the page of the sandbox whose bus DBUS_SYSTEM_BUS_ADDRESS names, or of a recording. SANDBOX is the kiv-sandbox
// that starts it.

#include "page/LiveSandbox.h"
#include "page/PageServer.h"
#include "page/Pcap.h"
#include "simulator/BusObject.h"
#include "simulator/Interfaces.h"
#include "simulator/JsonNode.h"
#include "simulator/Recording.h"

#include <fmt/format.h>
#include <glib-unix.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kiv::sandbox {

namespace {

using nlohmann::json;

/// A program in the background reports to the sandbox here.
constexpr int kReportFd = 3;

constexpr guint kLastMilliseconds = 150;

/// Returns the name and the description of each scenario that comes along.
json Scenarios(const std::string& sandbox)
{
    char* output = nullptr;
    json scenarios = json::array();
    std::vector<std::string> words = {sandbox, "--list-scenarios"};
    std::vector<char*> arguments = {words[0].data(), words[1].data(), nullptr};
    if (g_spawn_sync(
            nullptr, arguments.data(), nullptr, G_SPAWN_DEFAULT, nullptr, nullptr, &output, nullptr, nullptr,
            nullptr) != FALSE) {
        std::istringstream list(output);
        std::string name;
        std::string description;
        while (list >> name && std::getline(list >> std::ws, description)) {
            scenarios.push_back({{"name", name}, {"description", description}});
        }
    }
    g_free(output);
    return scenarios;
}

/// Returns the layout of the records that the server and the application agreed on.
json Layout()
{
    const char* const file = std::getenv("KIV_LAYOUT");
    json layout;
    if (file != nullptr && std::filesystem::exists(file)) {
        layout = json::parse(simulator::ReadText(file, simulator::kMebibyte), nullptr, false);
    }
    return layout.is_object() ? layout : json::object();
}

using OnCommandDone = std::function<void(const PageServer::Outcome&)>;

void FinishCommand(GObject* process, GAsyncResult* result, void* data)
{
    const std::unique_ptr<OnCommandDone> onDone(static_cast<OnCommandDone*>(data));
    char* output = nullptr;
    g_subprocess_communicate_utf8_finish(G_SUBPROCESS(process), result, &output, nullptr, nullptr);
    const int exitCode = g_subprocess_get_if_exited(G_SUBPROCESS(process)) != FALSE
                             ? g_subprocess_get_exit_status(G_SUBPROCESS(process))
                             : -1;
    (*onDone)({exitCode, output == nullptr ? "" : output});
    g_free(output);
}

/// Runs "kiv-sandbox control" with these words.
void RunControl(const std::string& sandbox, const std::vector<std::string>& words, OnCommandDone onDone)
{
    std::vector<const char*> arguments = {sandbox.c_str(), "control"};
    for (const std::string& word : words) {
        arguments.push_back(word.c_str());
    }
    arguments.push_back(nullptr);
    GSubprocess* const process = g_subprocess_newv(
        arguments.data(),
        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_MERGE), nullptr);
    if (process == nullptr) {
        onDone({-1, fmt::format("{} cannot be started", sandbox)});
        return;
    }
    g_subprocess_communicate_utf8_async(
        process, nullptr, nullptr, &FinishCommand, std::make_unique<OnCommandDone>(std::move(onDone)).release());
    g_object_unref(process);
}

void ReadRecording(const std::string& file, History& history)
{
    std::istringstream text(simulator::ReadText(file, simulator::kLargestRecording));
    int number = 0;
    for (std::string line; std::getline(text, line);) {
        simulator::ReadLine(file, line, ++number); // throws unless it is a line of a recording
        history.Add(line);
    }
}

struct End {
    History& history;
    GMainLoop* loop;
};

/// Viewers keep what they have, and are handed the last of it first.
gboolean OnEnd(void* data)
{
    auto* const end = static_cast<End*>(data);
    end->history.SetState("ended", json{{"ended", true}}.dump());
    g_timeout_add_once(
        kLastMilliseconds, [](void* loop) { g_main_loop_quit(static_cast<GMainLoop*>(loop)); }, end->loop);
    return G_SOURCE_CONTINUE;
}

void Run(const std::string& sandbox, const std::optional<std::string>& recording)
{
    History history;
    json about = {{"live", !recording}, {"layout", Layout()}};
    std::unique_ptr<LiveSandbox> live;
    PageServer::Actions actions;
    if (recording) {
        ReadRecording(*recording, history);
        about["recording"] = std::filesystem::path(*recording).filename();
        actions.writePcap = [&history] { return WritePcap(history, 0); };
    } else {
        live = std::make_unique<LiveSandbox>(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"), history);
        about["scenarios"] = Scenarios(sandbox);
        about["methods"] = simulator::Interface(simulator::kServerXml).Methods();
        actions.writePcap = [&history, &live] { return WritePcap(history, live->Begin()); };
        actions.control = [&sandbox](const auto& words, auto onDone) { RunControl(sandbox, words, std::move(onDone)); };
    }
    history.SetState("about", json{{"about", about}}.dump());
    const PageServer server(history, actions);
    if (live) {
        const std::string socketName = "kiv-sandbox-page-" + server.Token();
        live->ReadLog(socketName);
        const std::string report = socketName + "\n";
        if (write(kReportFd, report.data(), report.size()) < 0) {
            throw std::runtime_error("the sandbox has gone");
        }
    }
    fmt::print(stderr, "kiv-sandbox: the page is {}\n", server.Address());
    const std::unique_ptr<GMainLoop, decltype(&g_main_loop_unref)> loop(
        g_main_loop_new(nullptr, FALSE), g_main_loop_unref);
    End end{history, loop.get()};
    for (const int signal : {SIGINT, SIGTERM}) {
        g_unix_signal_add(signal, &OnEnd, &end);
    }
    g_main_loop_run(loop.get());
    // The threads of trace and connections end with the process.
    std::fflush(stderr);
    _exit(EXIT_SUCCESS);
}

} // namespace

} // namespace kiv::sandbox

int main(int argc, char** argv)
{
    constexpr int kFailed = 125; // as of kiv-sandbox
    if (argc != 2 && argc != 3) {
        fmt::print(stderr, "kiv-sandbox-page is started by kiv-sandbox --page and kiv-sandbox --show FILE\n");
        return kFailed;
    }
    try {
        kiv::sandbox::Run(argv[1], argc == 3 ? std::optional<std::string>(argv[2]) : std::nullopt);
    } catch (const std::exception& error) {
        fmt::print(stderr, "kiv-sandbox: {}\n", error.what());
    }
    return kFailed;
}
