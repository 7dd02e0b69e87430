#include "sandbox/Sandbox.h"

#include "sandbox/Calls.h"
#include "sandbox/Matchers.h"
#include "sandbox/Processes.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kiv::sandbox::sandbox_test {

namespace {

constexpr auto kServer = "org.lumra.tv.networkspeaker.server";
constexpr auto kClient = "org.lumra.tv.networkspeaker.client.tv_7";

TEST(SandboxTest, PassesOnTheExitCode)
{
    EXPECT_EQ(RunSandbox({"--", "true"}).exitCode, 0);
    EXPECT_EQ(RunSandbox({"--", "sh", "-c", "exit 7"}).exitCode, 7);
    EXPECT_EQ(RunSandbox({"--", "sh", "-c", "exit 255"}).exitCode, 255);
}

TEST(SandboxTest, TellsTheSignalThatEndedTheCommand)
{
    const Outcome killed = RunSandbox({"--", "sh", "-c", "kill -KILL $$"});
    EXPECT_EQ(killed.exitCode, 128 + SIGKILL);
    EXPECT_EQ(killed.errors, "kiv-sandbox: sh was killed by signal 9 (Killed)\n");
    const Outcome crashed = RunSandbox({"--", "sh", "-c", "kill -SEGV $$"});
    EXPECT_EQ(crashed.exitCode, 128 + SIGSEGV);
    EXPECT_EQ(crashed.errors, "kiv-sandbox: sh was killed by signal 11 (Segmentation fault)\n");
}

TEST(SandboxTest, SaysNothingOfASignalThatEndsACommandOnPurpose)
{
    for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
        const Outcome outcome = RunSandbox({"--", "sh", "-c", fmt::format("kill -{} $$", number)});
        EXPECT_EQ(outcome.exitCode, 128 + number);
        EXPECT_EQ(outcome.errors, "");
    }
}

TEST(SandboxTest, TellsThatACommandCannotBeRun)
{
    const Outcome missing = RunSandbox({"--", "no-such-command"});
    EXPECT_EQ(missing.exitCode, 127);
    EXPECT_EQ(missing.errors, "kiv-sandbox: no-such-command: No such file or directory\n");

    const Outcome directory = RunSandbox({"--", "/"});
    EXPECT_EQ(directory.exitCode, 126);
    EXPECT_EQ(directory.errors, "kiv-sandbox: /: Permission denied\n");
}

TEST(SandboxTest, SaysWhatIsWrongWithAnOptionInOneLineThatNamesTheHelp)
{
    const std::multimap<std::string, std::vector<std::string>> lines = {
        {"no command given", {}},
        {"no command given", {"--"}},
        {"no command given", {"--trace"}},
        {"unknown option --nonsense", {"--nonsense", "--", "true"}},
        {"unknown option --trcae; did you mean --trace?", {"--trcae", "--", "true"}},
        {R"(--feature: must be one of on, off, absent, got "perhaps")", {"--feature", "perhaps", "--", "true"}},
        {"--bus-fault: must be one of none, deny-name, deny-events, hang, gone, got \"perhaps\"",
         {"--bus-fault", "perhaps", "--", "true"}},
        {R"(--simulator: must be a file, got "/no/such")", {"--simulator", "/no/such", "--", "true"}},
        {R"(--layout: must be a file, got "/")", {"--layout", "/", "--", "true"}},
        {"--scenario excludes --replay", {"--replay", "a", "--scenario", "no-speakers", "--", "true"}},
        {"--no-server excludes --replay", {"--no-server", "--replay", "a", "--", "true"}},
        {"--strict requires --replay", {"--strict", "--", "true"}},
        {"--start excludes --no-server", {"--no-server", "--start", "--", "true"}},
        {"--lazy excludes --no-server", {"--no-server", "--lazy", "--", "true"}},
        {"--trace excludes --list", {"--list", "--trace"}},
        {"--name excludes --list", {"--list", "--name", "den"}},
        {"--join excludes --list", {"--list", "--join", "den"}},
        {"--list-scenarios excludes --list", {"--list", "--list-scenarios"}},
        {"--list-scenarios excludes --feature", {"--list-scenarios", "--feature", "on"}},
        {"--list-scenarios excludes --print-address", {"--list-scenarios", "--print-address"}},
        {"--trace excludes --show", {"--show", "morning.jsonl", "--trace"}},
        {"--page excludes --show", {"--show", "morning.jsonl", "--page"}},
        {"unknown option --bogus", {"--list", "--bogus"}},
        {"unknown option --colour", {"--list-scenarios", "--colour"}},
        {R"(--list, --list-scenarios and --show run no command, got "true")", {"--list", "--", "true"}},
        {R"(--list, --list-scenarios and --show run no command, got "true")",
         {"--show", "morning.jsonl", "--", "true"}},
        {R"(--list, --list-scenarios and --show run no command, got "echo x")", {"--list-scenarios", "echo", "x"}},
    };
    for (const auto& [line, words] : lines) {
        const Outcome outcome = RunSandbox(words);
        EXPECT_EQ(outcome.exitCode, 125) << line;
        EXPECT_EQ(outcome.output, "");
        const std::string advice = line.ends_with('?') ? "" : "; see kiv-sandbox --help";
        EXPECT_EQ(outcome.errors, "kiv-sandbox: " + line + advice + "\n");
    }
}

TEST(SandboxTest, AnOptionWithoutItsValueTakesNoOtherOption)
{
    const ScratchDirectory scratch;
    fs::current_path(scratch.Path());
    for (const std::string option : {"--record", "--replay", "--scenario", "--name", "--join"}) {
        for (const std::string next : {"--", "--trace"}) {
            const Outcome outcome = RunSandbox({option, next, "true"});
            EXPECT_EQ(outcome.exitCode, 125) << option;
            EXPECT_EQ(
                outcome.errors,
                fmt::format("kiv-sandbox: {}: needs a value, got \"{}\"; see kiv-sandbox --help\n", option, next));
        }
    }
    EXPECT_TRUE(fs::is_empty(scratch.Path()));

    EXPECT_EQ(RunSandbox({"--record", "./--", "--", KIVCTL, "stop"}).exitCode, 0);
    EXPECT_TRUE(fs::exists("--"));
    fs::current_path("/");
}

TEST(SandboxTest, TellsItsVersion)
{
    const Outcome outcome = RunSandbox({"--version"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(outcome.output, "kiv-sandbox " KIV_VERSION "\n");
}

TEST(SandboxTest, ALongTmpdirIsNoHindrance)
{
    const ScratchDirectory scratch;
    const fs::path deep = scratch.Path() / std::string(100, 'x');
    fs::create_directory(deep);
    setenv("TMPDIR", deep.c_str(), 1);
    EXPECT_EQ(RunSandbox({"--", KIVCTL, "stop", "--type", "7"}).output, "the server answered 7\n");

    const fs::path missing = scratch.Path() / "missing";
    setenv("TMPDIR", missing.c_str(), 1);
    const Outcome outcome = RunSandbox({"--", "true"});
    EXPECT_EQ(outcome.exitCode, 125);
    EXPECT_EQ(outcome.errors, "kiv-sandbox: TMPDIR must be a directory, got \"" + missing.string() + "\"\n");
}

TEST(SandboxTest, HelpNamesEveryOption)
{
    const Outcome outcome = RunSandbox({"--help"});

    EXPECT_EQ(outcome.exitCode, 0);
    for (const char* option :
         {"--trace",    "--trace-all",         "--start",  "--lazy",   "--no-server", "--simulator-log",
          "--scenario", "--list-scenarios",    "--record", "--replay", "--strict",    "--simulator",
          "--feature",  "--bus-fault",         "--name",   "--join",   "--list",      "--print-address",
          "--layout",   "kiv-sandbox control", "Usage:"}) {
        EXPECT_NE(outcome.output.find(option), std::string::npos) << option;
    }
}

TEST(SandboxTest, OptionsEndAtTheCommand)
{
    EXPECT_EQ(RunSandbox({"echo", "--trace", "--", "x"}).output, "--trace -- x\n");
    EXPECT_EQ(RunSandbox({"--", "echo", "--", "--trace"}).output, "-- --trace\n");
}

TEST(SandboxTest, CommandHasTheStandardStreams)
{
    Sandbox sandbox("read line; echo \"got $line\"; echo complaint >&2; cat");
    sandbox.Process().Write("first\nsecond\n");
    sandbox.Process().CloseInput();

    EXPECT_EQ(sandbox.Process().ReadOutput(), "got first\nsecond\n");
    EXPECT_EQ(sandbox.Process().ReadErrors(), "complaint\n");
}

TEST(SandboxTest, CommandHasTheOpenFilesOfItsCaller)
{
    Child caller({"sh", "-c", "exec 3<<END\ntext\nEND\nexec \"$0\" -- cat /dev/fd/3", KIV_SANDBOX});

    EXPECT_EQ(caller.ReadOutput(), "text\n");
}

TEST(SandboxTest, FeatureFileSaysWhatWasAskedFor)
{
    const std::string head = "[com.molvane/featureconf]\n";
    const auto shown = [](std::vector<std::string> options) {
        return RunScript("cat \"$KIV_SYSTEM_INFO_FILE\"", std::move(options)).output;
    };

    EXPECT_EQ(shown({}), head + "kiv_multi_ch_support=true\n");
    EXPECT_EQ(shown({"--feature", "on"}), head + "kiv_multi_ch_support=true\n");
    EXPECT_EQ(shown({"--feature", "off"}), head + "kiv_multi_ch_support=false\n");
    EXPECT_EQ(shown({"--feature", "absent"}), head);
}

TEST(SandboxTest, RecordsAreThoseOfTheSimulatorUnlessTheCallerKnowsOthers)
{
    const std::string nodes = RunSandbox({"--", KIVCTL, "list", "nodes"}).output;
    EXPECT_NE(nodes.find("Living room left   KIV01  Shelf      02:4b:49:56:00:01  192.168.0.21"), std::string::npos)
        << nodes;

    setenv("KIV_LAYOUT", "mine.json", 1);
    EXPECT_EQ(RunScript("echo $KIV_LAYOUT").output, "mine.json\n");

    const ScratchDirectory scratch;
    const fs::path layout = scratch.Path() / "layout.json";
    std::ofstream(layout) << "{}";
    EXPECT_EQ(
        RunScript("echo $KIV_LAYOUT", {"--layout", fs::relative(layout)}).output,
        (fs::current_path() / fs::relative(layout)).string() + "\n");
}

TEST(SandboxTest, TheServerRunsBeforeTheCommand)
{
    const Sandbox sandbox("read line");

    EXPECT_TRUE(HasOwner(Connection(sandbox.Address()), kServer));
}

TEST(SandboxTest, LazyLeavesTheStartToTheFirstCall)
{
    const Sandbox sandbox("read line", {"--lazy"});
    const Connection connection(sandbox.Address());

    EXPECT_FALSE(HasOwner(connection, kServer));
    EXPECT_EQ(Ping(connection, kServer), "");
    EXPECT_TRUE(HasOwner(connection, kServer));
}

TEST(SandboxTest, AServerThatComesUpLateIsLeftToTheFirstCallUnlessStartIsGiven)
{
    const ScratchDirectory scratch;
    const fs::path late = scratch.Path() / "late.json";
    std::ofstream(late) << R"({"away": 300})";
    const Sandbox sandbox("read line", {"--scenario", late});
    const Sandbox started("read line", {"--scenario", late, "--start"});

    EXPECT_FALSE(HasOwner(Connection(sandbox.Address()), "org.lumra.tv.networkspeaker.simulator"));
    EXPECT_TRUE(HasOwner(Connection(started.Address()), kServer));
}

TEST(SandboxTest, NoServerMeansNone)
{
    const Sandbox sandbox("read line", {"--no-server"});

    EXPECT_EQ(Ping(Connection(sandbox.Address()), kServer), "org.freedesktop.DBus.Error.ServiceUnknown");
}

TEST(SandboxTest, SimulatorGetsItsOptions)
{
    const ScratchDirectory scratch;
    const fs::path simulator = scratch.Path() / "simulator";
    const fs::path scenario = scratch.Path() / "my scenario.json";
    const fs::path recording = scratch.Path() / "recording";
    std::ofstream(simulator) << "#!/bin/sh\nshift 2; printf '%s|' \"$@\" >&2\nexit 1\n";
    std::ofstream(scenario) << "{}";
    std::ofstream(recording) << R"json({"ms":1,"call":1,"method":"DisableSurround","arguments":"()"})json";
    fs::permissions(simulator, fs::perms::owner_all);

    for (const auto& [option, file] : {std::pair{"--scenario", scenario}, std::pair{"--replay", recording}}) {
        const Outcome outcome =
            RunSandbox({"--simulator", simulator, option, file, "--simulator-log", "--start", "--", "true"});

        EXPECT_EQ(outcome.exitCode, 125);
        EXPECT_EQ(
            outcome.errors.substr(0, outcome.errors.find("kiv-sandbox:")),
            option + ("|" + file.string()) + "|--verbose|");
    }
}

TEST(SandboxTest, ASimulatorThatEndsWithoutItsNameIsToldAtOnce)
{
    const Outcome outcome = RunSandbox({"--simulator", "/bin/true", "--", "echo", "started"});

    EXPECT_EQ(outcome.exitCode, 125);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.errors, fmt::format("kiv-sandbox: /bin/true ended without taking the name {}\n", kServer));
}

TEST(SandboxTest, TheFirstCallIsToldAtOnceOfASimulatorThatEnds)
{
    const Sandbox sandbox("read line", {"--lazy", "--simulator", "/bin/true"});

    EXPECT_EQ(Ping(Connection(sandbox.Address()), kServer), "org.freedesktop.DBus.Error.Spawn.ChildExited");
}

TEST(SandboxTest, ASignalEndsTheWaitForTheServer)
{
    const ScratchDirectory scratch;
    const fs::path simulator = scratch.Path() / "simulator";
    const fs::path runs = scratch.Path() / "runs";
    std::ofstream(simulator) << "#!/bin/sh\n: >" << runs << "\nexec sleep 1000\n";
    fs::permissions(simulator, fs::perms::owner_all);
    Child sandbox(SandboxCommand({"--simulator", simulator, "--", "true"}));
    test::WaitUntil("the simulator to run", [&] { return fs::exists(runs); });

    sandbox.Signal(SIGINT);

    const int status = sandbox.WaitForEnd();
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGINT);
    sandbox.ReadErrors(); // until no process of the sandbox is left
}

// Returns the trace of a connection that asks for the server's owner, becomes a client of the server, and asks again.
std::string Trace(const std::string& option)
{
    Sandbox sandbox("read line", {option, "--lazy"});
    {
        const Connection connection(sandbox.Address());
        HasOwner(connection, kServer);
        RequestName(connection, kClient);
        HasOwner(connection, kServer);
    }
    sandbox.Process().CloseInput();
    return sandbox.Process().ReadErrors();
}

// Replaces "00:00:00.000 bus: " at the beginning of lines by "* ".
std::string WithoutTimes(const std::string& trace)
{
    constexpr std::string_view kHead = "00:00:00.000 bus: ";
    std::string result;
    std::istringstream lines(trace);
    for (std::string line; std::getline(lines, line);) {
        const std::string head = line.substr(0, kHead.size());
        const bool isTimed = std::ranges::equal(head, kHead, [](char found, char wanted) {
            return wanted == '0' ? found >= '0' && found <= '9' : found == wanted;
        });
        result += (isTimed ? "* " + line.substr(kHead.size()) : line) + "\n";
    }
    return result;
}

TEST(SandboxTest, TracePrintsTheBus)
{
    const std::string trace = Trace("--trace");

    // The connection is :1.3, after the one that made the server known, and two of the trace.
    const std::string asks = "-> org.freedesktop.DBus NameHasOwner('" + std::string(kServer) + "')\n";
    const std::string isAnswered = "<- org.freedesktop.DBus returns (false) [NameHasOwner]\n";
    EXPECT_EQ(
        WithoutTimes(trace),
        "* :1.3 " + asks + "* :1.3 " + isAnswered + "* :1.3 -> org.freedesktop.DBus RequestName('" + kClient +
            "', 0)\n* client.tv_7 <- org.freedesktop.DBus returns (1) [RequestName]\n* client.tv_7 " + asks +
            "* client.tv_7 " + isAnswered);
}

TEST(SandboxTest, TraceAllPrintsTheHousekeepingToo)
{
    const std::string trace = Trace("--trace-all");

    for (const char* line :
         {"bus: :1.3 -> org.freedesktop.DBus Hello()\n", "bus: :1.3 <- org.freedesktop.DBus returns (':1.3') [Hello]\n",
          "bus: org.freedesktop.DBus -> all signal NameOwnerChanged(':1.3', '', ':1.3')\n",
          "bus: client.tv_7 -> org.freedesktop.DBus NameHasOwner("}) {
        EXPECT_NE(trace.find(line), std::string::npos) << line << trace;
    }
}

TEST(SandboxTest, TraceBeginsWithTheCommand)
{
    const auto trace = [](std::vector<std::string> options) {
        return RunScript("kivctl stop --type 7", std::move(options)).errors;
    };
    const std::string ownsName = "RequestName('org.lumra.tv.networkspeaker.server'";

    const std::string shown = trace({"--trace"});
    EXPECT_THAT(shown, Not(HasSubstr(ownsName)));
    EXPECT_THAT(shown, HasSubstr("-> networkspeaker.server StopNetworkSpeaker(7)"));
    // The trace has seen the server's name, so it shows that name for the connection.
    EXPECT_THAT(shown, HasSubstr("<- networkspeaker.server returns (7) [StopNetworkSpeaker]\n"));

    EXPECT_THAT(trace({"--trace-all"}), HasSubstr(ownsName));
    for (const std::string option : {"--trace", "--trace-all"}) {
        EXPECT_THAT(trace({option, "--lazy"}), AllOf(HasSubstr(ownsName), Not(HasSubstr("AwaitServer"))));
    }
}

TEST(SandboxTest, TraceLeavesOutHowTheBusGetsItsFault)
{
    EXPECT_EQ(RunSandbox({"--trace", "--bus-fault", "deny-name", "--", "true"}).errors, "");
    EXPECT_THAT(
        RunSandbox({"--trace-all", "--bus-fault", "deny-name", "--", "true"}).errors, HasSubstr("ReloadConfig()"));
}

TEST(SandboxTest, TwoSandboxesDoNotMeet)
{
    const Sandbox first("read line");
    const Sandbox second("read line", {"--lazy"});

    EXPECT_NE(first.Address(), second.Address());
    EXPECT_FALSE(HasOwner(Connection(second.Address()), kServer));
}

TEST(SandboxTest, SignalsReachTheCommand)
{
    const std::array<std::pair<int, std::string>, 4> signals{
        {{SIGTERM, "TERM"}, {SIGINT, "INT"}, {SIGHUP, "HUP"}, {SIGQUIT, "QUIT"}}};
    for (const auto& [number, name] : signals) {
        Sandbox sandbox(fmt::format("trap 'echo got {0}; exit 5' {0}; echo ready; while :; do read line; done", name));
        ASSERT_EQ(sandbox.Process().ReadLine(), "ready");

        sandbox.Process().Signal(number);

        EXPECT_EQ(sandbox.Process().ReadLine(), "got " + name);
        EXPECT_EQ(WEXITSTATUS(sandbox.Process().WaitForEnd()), 5);
        EXPECT_FALSE(fs::exists(sandbox.Directory()));
    }
}

// Checks the end of everything that a sandbox has started: the daemon, the simulator, the command, and a stray child of
// the command that ignores SIGTERM.
class SandboxEndTest : public testing::Test {
protected:
    // Returns when no process of the sandbox holds its stderr any more.
    void ExpectNothingLeft()
    {
        sandbox_.Process().ReadErrors();

        EXPECT_TRUE(daemon_.HasEnded());
        EXPECT_TRUE(simulator_.HasEnded());
        EXPECT_TRUE(command_.HasEnded());
        EXPECT_TRUE(stray_.HasEnded());
        EXPECT_FALSE(fs::exists(sandbox_.Directory()));
    }

    Sandbox sandbox_{
        "echo $$; setsid sh -c 'trap \"\" TERM HUP INT; echo $$; exec sleep 1000' & read line; exit 3", {"--start"}};
    Watched command_{sandbox_.ReadPid()};
    Watched stray_{sandbox_.ReadPid()};
    Watched daemon_{OwnerPid(Connection(sandbox_.Address()), "org.freedesktop.DBus")};
    Watched simulator_{OwnerPid(Connection(sandbox_.Address()), kServer)};
};

TEST_F(SandboxEndTest, TheCommandEnds)
{
    sandbox_.Process().CloseInput();

    EXPECT_EQ(WEXITSTATUS(sandbox_.Process().WaitForEnd()), 3);
    ExpectNothingLeft();
}

TEST_F(SandboxEndTest, TheCommandIsKilled)
{
    kill(command_.Pid(), SIGKILL);

    EXPECT_EQ(WEXITSTATUS(sandbox_.Process().WaitForEnd()), 128 + SIGKILL);
    ExpectNothingLeft();
}

TEST_F(SandboxEndTest, Terminated)
{
    sandbox_.Process().Signal(SIGTERM);

    EXPECT_EQ(WEXITSTATUS(sandbox_.Process().WaitForEnd()), 128 + SIGTERM);
    ExpectNothingLeft();
}

TEST_F(SandboxEndTest, Killed)
{
    sandbox_.Process().Signal(SIGKILL);

    EXPECT_EQ(WTERMSIG(sandbox_.Process().WaitForEnd()), SIGKILL);
    ExpectNothingLeft();
}

TEST_F(SandboxEndTest, KilledTogetherWithItsChildren)
{
    const std::string pid = std::to_string(sandbox_.Process().Pid());
    std::istringstream children(ReadFile("/proc/" + pid + "/task/" + pid + "/children"));
    for (pid_t child = 0; children >> child;) {
        kill(child, SIGKILL);
    }
    sandbox_.Process().Signal(SIGKILL);

    EXPECT_EQ(WTERMSIG(sandbox_.Process().WaitForEnd()), SIGKILL);
    ExpectNothingLeft();
}

TEST_F(SandboxEndTest, TheDaemonIsKilled)
{
    kill(daemon_.Pid(), SIGKILL);
    simulator_.WaitForEnd();
    sandbox_.Process().CloseInput();

    EXPECT_EQ(WEXITSTATUS(sandbox_.Process().WaitForEnd()), 3);
    ExpectNothingLeft();
}

} // namespace

} // namespace kiv::sandbox::sandbox_test
