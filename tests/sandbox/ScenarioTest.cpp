#include "Calls.h"
#include "Sandbox.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace kiv::sandbox::scenario_test {

namespace {

namespace fs = std::filesystem;

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr auto kServer = "org.lumra.tv.networkspeaker.server";
constexpr auto kControl = "kiv-sandbox control: ";

/// "kivctl" and "control" in the script are what they should be, "watch" has events come, and "event" prints the next.
std::string Script(const std::string& script)
{
    return "export KIV_LOG_LEVEL=none\n"
           "kivctl() { " KIVCTL " \"$@\"; }\n"
           "control() { " KIV_SANDBOX " control \"$@\"; }\n"
           "watch() {\n"
           "    events=$(dirname \"$KIV_SYSTEM_INFO_FILE\")/events\n"
           "    mkfifo \"$events\"\n"
           "    kivctl monitor >\"$events\" 2>&1 &\n"
           "    exec 3<\"$events\"\n"
           "    read ready <&3\n"
           "}\n"
           "event() {\n"
           "    while read line <&3; do\n"
           "        case $line in *' event '*) echo \"${line#* }\"; return ;; esac\n"
           "    done\n"
           "}\n" +
           script;
}

std::vector<std::string> WithScript(std::vector<std::string> options, const std::string& script)
{
    options.insert(options.end(), {"--", "sh", "-c", Script(script)});
    return options;
}

std::string OutputIn(const std::string& scenario, const std::string& script)
{
    return RunSandbox(WithScript({"--scenario", scenario}, "exec 2>&1; " + script)).output;
}

/// What tells that a kivctl command has failed.
std::string Failed(const std::string& function)
{
    return "kivctl: " + function + " returned ";
}

TEST(ScenariosTest, EachIsListedAndHasATest)
{
    std::set<std::string> names;
    std::istringstream list(RunSandbox({"--list-scenarios"}).output);
    for (std::string line; std::getline(list, line);) {
        names.insert(line.substr(0, line.find(' ')));
        EXPECT_GT(line.size(), 40U) << line;
    }
    EXPECT_EQ(
        names, (std::set<std::string>{
                   "atmos-receiver", "dying-server", "multi-room-house", "new-firmware", "no-speakers", "slow-server",
                   "surround-set"}));
}

TEST(ScenariosTest, NoSpeakers)
{
    const std::string output = OutputIn(
        "no-speakers", "kivctl list active; kivctl list nodes; kivctl start 02:4b:49:56:00:01; kivctl soundbar info");
    EXPECT_THAT(
        output, AllOf(
                    HasSubstr("speakers  0\n"), HasSubstr(Failed("GetNetSpkNodeList") + "-1"),
                    HasSubstr("the server answered 0\n"), HasSubstr(Failed("GetSoundbarDeviceInfo"))));
}

TEST(ScenariosTest, SurroundSet)
{
    const std::string output =
        OutputIn("surround-set", "kivctl list active; kivctl surround channels; kivctl soundbar info");
    EXPECT_THAT(
        output, AllOf(
                    HasSubstr("name      Living room\n"), HasSubstr("speakers  3\n"),
                    HasSubstr("the server answered 3\n"), HasSubstr("mac    02:4b:49:56:00:b0\n")));
}

TEST(ScenariosTest, MultiRoomHouse)
{
    const std::string output = OutputIn(
        "multi-room-house", "kivctl list active; kivctl list nodes; kivctl surround channels; kivctl list count");
    EXPECT_THAT(
        output, AllOf(
                    HasSubstr("name      Kitchen + Bath\n"), HasSubstr("speakers  2\n"), HasSubstr("8 nodes"),
                    HasSubstr("the server answered 0\n"), HasSubstr("the server answered 5\n")));
}

TEST(ScenariosTest, AtmosReceiver)
{
    // A busy machine may miss the beginning.
    const std::string event = "event 0x02020028 NAMSERVICE_ATMOS_STATE, length 4: ";
    EXPECT_EQ(
        OutputIn(
            "atmos-receiver", "watch; until [ \"$(event)\" = '" + event + "01 00 00 00' ]; do :; done; event; event"),
        event + "00 00 00 00\n" + event + "01 00 00 00\n");
}

TEST(ScenariosTest, SlowServer)
{
    const std::string output =
        OutputIn("slow-server", "date +%s%3N; kivctl stop; date +%s%3N; kivctl stop --type 7; date +%s%3N");
    std::istringstream lines(output);
    std::string words;
    long start = 0;
    long up = 0;
    long end = 0;
    lines >> start >> std::ws;
    std::getline(lines, words);
    EXPECT_EQ(words, "the server answered 0");
    lines >> up >> std::ws;
    std::getline(lines, words);
    EXPECT_EQ(words, "the server answered 7");
    lines >> end;
    EXPECT_GE(up - start, 3000);
    EXPECT_GE(end - up, 1000);
}

TEST(ScenariosTest, DyingServerDiesOfEachThirdStart)
{
    const std::string start = "kivctl start 02:4b:49:56:00:01; ";
    EXPECT_EQ(
        OutputIn("dying-server", start + start + start + start),
        "the server answered 1\nthe server answered 1\n" + Failed("StartNetworkSpeaker") +
            "-1: the request failed, or the server refused it\nthe server answered 1\n");
}

TEST(ScenariosTest, DyingServerComesBack)
{
    const Sandbox sandbox("read line", {"--start", "--scenario", "dying-server"});
    const Connection connection(sandbox.Address());
    const auto isThere = [&] { return HasOwner(connection, kServer); };
    test::WaitUntil("the server to come up", isThere);
    const pid_t pid = OwnerPid(connection, kServer);
    test::WaitUntil("the server to die", std::not_fn(isThere));
    test::WaitUntil("the server to come back", isThere);
    EXPECT_EQ(OwnerPid(connection, kServer), pid);
}

TEST(ScenariosTest, NewFirmware)
{
    const std::string bar = "02:4b:49:56:00:b0";
    const std::string output = OutputIn(
        "new-firmware", "kivctl start 02:4b:49:56:00:01; kivctl list active; kivctl list nodes; kivctl soundbar info; "
                        "kivctl soundbar version " +
                            bar + "; control calls");
    EXPECT_THAT(
        output, AllOf(
                    HasSubstr("speakers  1\n"), HasSubstr("7 nodes\n"), HasSubstr("mac    " + bar),
                    // The library takes exactly 24 bytes for it.
                    HasSubstr(Failed("GetSoundbarProtocolVersion"))));
}

TEST(ScenarioOptionTest, TakesAFileOrAName)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "one.json";
    std::ofstream(file) << R"({"home": {"settingMode": 79}})";
    EXPECT_THAT(OutputIn(file, "control show"), HasSubstr("\"settingMode\": 79"));
    EXPECT_THAT(
        RunSandbox(WithScript({"--scenario", "no-speakers"}, "control show")).output, HasSubstr("\"speakers\": []"));
}

TEST(ScenarioOptionTest, NothingIsStartedForOneThatCannotBeUsed)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "bad.json";
    std::ofstream(file) << "{\n  \"faults\": {\n    \"Nonsense\": {}\n  }\n}";
    for (const std::string option : {"--scenario", "--replay"}) {
        const Outcome outcome = RunSandbox({option, file, "--", "echo", "started"});
        EXPECT_EQ(outcome.exitCode, 2);
        EXPECT_THAT(outcome.output, IsEmpty());
        EXPECT_THAT(outcome.errors, StartsWith("kiv-sandbox: " + file.string() + ":"));
    }
    EXPECT_EQ(
        RunSandbox({"--scenario", file, "--", "true"}).errors,
        "kiv-sandbox: " + file.string() + ":3: /faults/Nonsense: the server has no method 'Nonsense'\n");
    const Outcome missing = RunSandbox({"--scenario", "no-such-scenario", "--", "true"});
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_THAT(missing.errors, HasSubstr("no-such-scenario: No such file or directory"));
    EXPECT_EQ(RunSandbox({"--record", "/no/such/file", "--", "true"}).exitCode, 2);
}

TEST(ScenarioOptionTest, TheFeatureOptionHasTheLastWord)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "off.json";
    std::ofstream(file) << R"({"feature": "off"})";
    EXPECT_EQ(RunSandbox(WithScript({"--scenario", file}, "kivctl stop")).exitCode, 3);
    EXPECT_EQ(RunSandbox(WithScript({"--scenario", file, "--feature", "on"}, "kivctl stop")).exitCode, 0);
}

TEST(ControlCommandTest, ChangesWhatTheSimulatorDoes)
{
    const Outcome outcome = RunSandbox(WithScript(
        {}, "control fault StopNetworkSpeaker '{\"reply\": \"(9,)\"}'; kivctl stop\n"
            "control fault StopNetworkSpeaker none; kivctl stop\n"
            "control fault '*' '{\"error\": \"org.example.Bad\"}'; control clear-faults; kivctl stop --type 2\n"
            "control atmos on; kivctl atmos; control atmos off; kivctl atmos\n"
            "control away 200; kivctl stop --type 3\n"
            "control apply surround-set; kivctl surround channels\n"
            "echo '{\"home\": {\"surround\": false}}' | control apply -; kivctl surround channels\n"
            "control exit; kivctl stop --type 4\n"
            "control calls\n"
            "control feature off; kivctl enabled\n"));
    EXPECT_THAT(outcome.errors, IsEmpty());
    const std::string answered = "the server answered ";
    EXPECT_THAT(
        outcome.output, StartsWith(
                            answered + "9\n" + answered + "0\n" + answered + "2\nsupported\nnot supported\n" +
                            answered + "3\n" + answered + "3\n" + answered + "0\n" + answered + "4\n"));
    EXPECT_THAT(outcome.output, HasSubstr(" StopNetworkSpeaker(4,)\n"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("StopNetworkSpeaker(3,)")));
    EXPECT_EQ(outcome.exitCode, 3);
}

TEST(ControlCommandTest, PushesEvents)
{
    const Outcome outcome = RunSandbox(WithScript({}, "watch; control event 0x01020304 '05 06'; event"));
    EXPECT_EQ(outcome.output, "event 0x01020304, length 2: 05 06\n");
}

TEST(ControlCommandTest, RefusesWhatCannotBeUsed)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "bad.json";
    std::ofstream(file) << "{\n\"colour\": 1}";
    const std::map<std::string, std::string> complaints = {
        {"apply " + file.string(), kControl + file.string() + ":2: /colour: there is no such key; known are "},
        {"apply no-such-scenario", ": No such file or directory"},
        {"fault StopNetworkSpeaker '{'", "kiv-sandbox control: '{' is no JSON"},
        {"fault StopNetworkSpeaker 7", "scenario:1: /faults/StopNetworkSpeaker: this is an object"},
        {"fault Nonsense '{}'", "scenario:1: /faults/Nonsense: the server has no method 'Nonsense'"},
        {"feature perhaps", "/feature: this is one of on, off, absent"},
        {"event 7x", "/events/0/id: this is a number"},
        {"event 0x7 5", "/events/0/data: these are bytes in hexadecimal"},
        {"away -1", "milliseconds"},
        {"atmos perhaps", "on"},
        {"dance", "subcommand is required"},
        {"", "subcommand is required"},
    };
    for (const auto& [command, complaint] : complaints) {
        const Outcome outcome = RunSandbox(WithScript({}, "control " + command));
        EXPECT_EQ(outcome.exitCode, 2) << command;
        EXPECT_THAT(outcome.errors, HasSubstr(complaint)) << command;
    }
}

TEST(ControlCommandTest, NeedsASandboxWithASimulator)
{
    const Outcome none = RunSandbox(WithScript({"--no-server"}, "control show"));
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_THAT(none.errors, HasSubstr("was not provided by any .service files"));
    const Outcome outside = RunSandbox(WithScript({}, "unset DBUS_SYSTEM_BUS_ADDRESS; control show"));
    EXPECT_EQ(outside.exitCode, 1);
    EXPECT_EQ(outside.errors, kControl + std::string("not in a sandbox: DBUS_SYSTEM_BUS_ADDRESS is not set\n"));
}

TEST(ControlCommandTest, HelpNamesEveryCommand)
{
    const Outcome outcome = RunSandbox({"control", "--help"});
    EXPECT_EQ(outcome.exitCode, 0);
    for (const char* command :
         {"apply", "fault", "clear-faults", "feature", "atmos", "event", "away", "exit", "show", "calls"}) {
        EXPECT_THAT(outcome.output, HasSubstr(std::string("\n  ") + command + " ")) << command;
    }
}

class RecordTest : public testing::Test {
protected:
    Outcome Record(const std::string& script) const { return RunSandbox(WithScript({"--record", file_}, script)); }
    Outcome Replay(const std::string& script) const { return RunSandbox(WithScript({"--replay", file_}, script)); }

    ScratchDirectory scratch_;
    fs::path file_ = scratch_.Path() / "recording";
};

TEST_F(RecordTest, WhatIsReplayedIsWhatWasRecorded)
{
    const std::string script =
        "kivctl start 02:4b:49:56:00:01; kivctl --json list active; kivctl --json list nodes; "
        "kivctl stop --type 3; kivctl name 02:4b:49:56:00:01 'Größer \"x\"'; kivctl soundbar mode get; "
        "kivctl mode get; kivctl stop --type 3; kivctl tone stop 02:4b:49:56:00:77";
    const Outcome recorded = Record(script);
    EXPECT_THAT(recorded.output, AllOf(HasSubstr("the server answered 1\n"), HasSubstr("the server answered 3\n")));
    const Outcome replayed = Replay(script);
    EXPECT_EQ(replayed.output, recorded.output);
    EXPECT_EQ(replayed.errors, recorded.errors);
    EXPECT_EQ(replayed.exitCode, recorded.exitCode);
}

TEST_F(RecordTest, AReplayKnowsNothingOfTheHome)
{
    Record("control fault StopNetworkSpeaker '{\"reply\": \"(9,)\"}'; kivctl stop --type 3; "
           "control fault StopNetworkSpeaker '{\"reply\": \"(\\\"wrong type\\\",)\"}'; kivctl stop --type 3;"
           "control fault StopNetworkSpeaker '{\"error\": \"org.example.Bad\"}'; kivctl stop --type 3");
    const Outcome replayed =
        Replay("kivctl stop --type 3; kivctl stop --type 3; kivctl stop --type 3; kivctl stop --type 3");
    EXPECT_EQ(replayed.output, "the server answered 9\n");
    EXPECT_THAT(
        replayed.errors,
        AllOf(
            HasSubstr(Failed("StopNetworkSpeaker")),
            HasSubstr("kiv-simulator: " + file_.string() + " has StopNetworkSpeaker(3,) only 3 times\n")));
}

TEST_F(RecordTest, EventsAreRecordedAndReplayed)
{
    const Outcome recorded = Record("watch; control atmos on; event");
    EXPECT_EQ(recorded.output, "event 0x02020028 NAMSERVICE_ATMOS_STATE, length 4: 01 00 00 00\n");
    EXPECT_EQ(Replay("watch; event").output, recorded.output);
}

TEST_F(RecordTest, IsThereWhateverEndsTheSandbox)
{
    Sandbox sandbox(Script("kivctl stop; echo done; read line"), {"--record", file_});
    EXPECT_EQ(sandbox.Process().ReadLine(), "the server answered 0");
    EXPECT_EQ(sandbox.Process().ReadLine(), "done");
    // The last line to come: the trace is behind the bus.
    test::WaitUntil("the answer to be recorded", [this] {
        return ReadFile(file_).find("\"values\":\"(0,)\"}\n") != std::string::npos;
    });
    sandbox.Process().Signal(SIGKILL);
    sandbox.Process().WaitForEnd();
    EXPECT_EQ(Replay("kivctl stop").output, "the server answered 0\n");
}

} // namespace

} // namespace kiv::sandbox::scenario_test
