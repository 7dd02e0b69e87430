#include "tools/kivctl/Alarm.h"
#include "tools/kivctl/App.h"
#include "tools/kivctl/CallWatch.h"
#include "tools/kivctl/Completion.h"
#include "tools/kivctl/KeptLines.h"
#include "tools/kivctl/ManPage.h"
#include "tools/kivctl/TimeLimit.h"
#include "tools/kivctl/Words.h"
#include <KivServiceInterface.h>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace kiv::ctl {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

// A command says that the bus does not answer after this time.
constexpr std::chrono::seconds kBusPatience{1};

// The shells call kivctl with this word for completion.
constexpr const char* kComplete = "--complete";
// The build calls kivctl with this word to write the man page.
constexpr const char* kManPage = "--man-page";

void AddAdvice(Result& result)
{
    if (!result.advice.empty()) {
        result.text += "; " + result.advice;
        result.fields["advice"] = result.advice;
    }
}

Result RunAction(const Choice& choice, const Output& output)
{
    std::optional<Alarm> alarm;
    if (choice.asks != Asks::kNobody) {
        alarm.emplace(kBusPatience, [&output] { RemarkSilentBus(output); });
    }
    try {
        if (choice.asks == Asks::kServer && !GetWhetherKivDisabled()) {
            WatchCalls();
        }
        return choice.action(output);
    } catch (const BadArguments& error) {
        return {kBadArguments, error.what(), {{"error", error.what()}}};
    }
}

void ShowResult(const Result& result, const std::string& command, const Output& output)
{
    Json object = {{"command", command}};
    object.update(result.fields);
    if (object.contains("error")) {
        output.Notify(result.text, object);
    } else {
        output.Show(result.text, object);
    }
}

Result RunInTime(const Request& request, const Output& output)
{
    const std::string& command = request.choice.name;
    const TimeLimit limit(request.timeout, [&] {
        ShowLogLines();
        if (!AtTimeLimit::Say(*request.timeout)) {
            Result result = TimedOut(command, *request.timeout, request.choice.asks);
            AddAdvice(result);
            ShowResult(result, command, output);
        }
    });
    Result result = RunAction(request.choice, output);
    AddAdvice(result);
    return result;
}

void AddTiming(Result& result, Milliseconds taken)
{
    result.text += fmt::format("{}took {:.1f} ms", result.text.empty() ? "" : "\n", taken.count());
    result.fields["milliseconds"] = taken.count();
}

// Returns the exit code, or that of a failure if the output could not be written.
int Finished(int exitCode)
{
    std::fflush(stdout);
    if (std::ferror(stdout) != 0) {
        std::fputs("kivctl: the output could not be written\n", stderr);
        return kFailed;
    }
    return exitCode;
}

int Run(const Request& request, const Output& output)
{
    const auto start = std::chrono::steady_clock::now();
    Result result = RunInTime(request, output);
    const Milliseconds taken = std::chrono::steady_clock::now() - start;
    if (!result.isAbandoned) {
        CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    }
    if (result.exitCode == kDone) {
        DropMootLogLines();
    } else {
        ShowLogLines();
    }
    if (request.timing) {
        AddTiming(result, taken);
    }
    if (!result.text.empty()) {
        ShowResult(result, request.choice.name, output);
    }
    if (result.isAbandoned) {
        // _Exit() is used, because the abandoned thread may be blocked in writing to stdout.
        std::_Exit(result.exitCode);
    }
    return Finished(result.exitCode);
}

int Refuse(const Output& output, const std::string& reason)
{
    output.Notify(reason, {{"error", reason}});
    return kBadArguments;
}

// Returns why a command line could not be parsed, and which words the command takes.
std::string WhyNotParsed(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& words)
{
    if (std::string unknown = UnknownWordText(app, words); !unknown.empty()) {
        return unknown;
    }
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    if (code != CLI::ExitCodes::ExtrasError && code != CLI::ExitCodes::RequiredError) {
        return error.what();
    }
    const CLI::App& command = *ReadWords(app, words).command;
    const std::string arguments = UsageOfArguments(command);
    return fmt::format(
        "{0}; kivctl{1} takes{2}, see kivctl help{1}", error.what(), PathOf(command),
        arguments.empty() ? " no arguments" : arguments);
}

// Takes the numbers of closed standard streams, so that no connection gets them, into which the output would go. Using
// such a stream still fails, because its file is open in the other direction.
void TakeClosedStreams()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) == -1) {
            open("/dev/null", (stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) | O_CLOEXEC);
        }
    }
}

int Main(int argc, char** argv)
{
    TakeClosedStreams();
    CLI::App app;
    Request request;
    Declare(app, request);
    if (argc > 1 && argv[1] == std::string(kComplete)) {
        std::fputs(Completions(app, {argv + 2, argv + argc}).c_str(), stdout);
        return kDone;
    }
    if (argc == 2 && argv[1] == std::string(kManPage)) {
        return WriteManPage(app) ? kDone : kFailed;
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {
        return Finished(app.exit(help));
    } catch (const CLI::ParseError& error) {
        // The flag is looked for here, because parsing may have ended before it.
        const bool wantsJson = std::find(argv, argv + argc, std::string("--json")) != argv + argc;
        return Refuse(Output(wantsJson), WhyNotParsed(app, error, {argv + 1, argv + argc}));
    }
    const Output output(request.json);
    if (!request.choice.action) {
        const std::string path = PathOf(*ReadWords(app, {argv + 1, argv + argc}).command);
        return Refuse(output, fmt::format("no command given; kivctl help{} lists them", path));
    }
    if (request.verbose) {
        setenv("KIV_LOG_LEVEL", "debug", 1);
    } else if (std::getenv("KIV_LOG_LEVEL") == nullptr) {
        KeepLogLines();
    }
    return Run(request, output);
}

} // namespace
} // namespace kiv::ctl

int main(int argc, char** argv)
{
    return kiv::ctl::Main(argc, argv);
}
