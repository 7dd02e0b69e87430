#include "sandbox/Calls.h"
#include "sandbox/Matchers.h"
#include "sandbox/Sandbox.h"
#include "simulator/BusObject.h"
#include "simulator/Interfaces.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace kiv::sandbox::scenario_test {

namespace {

constexpr auto kServer = "org.lumra.tv.networkspeaker.server";
const std::string kControl = "kiv-sandbox control: ";

// Shell functions: "watch" subscribes to events, and "event" prints the next one.
const std::string kEventFunctions =
    "watch() {\n"
    "    events=$(dirname \"$KIV_SYSTEM_INFO_FILE\")/events\n"
    "    mkfifo \"$events\"\n"
    "    kivctl monitor >\"$events\" 2>&1 &\n"
    "    exec 3<\"$events\"\n"
    "    # On a busy machine, the monitor first says what it waits for.\n"
    "    until case $ready in *': ready, '*) true ;; *) false ;; esac; do read ready <&3; done\n"
    "}\n"
    "event() {\n"
    "    while read line <&3; do\n"
    "        case $line in *' event '*) echo \"${line#* }\"; return ;; esac\n"
    "    done\n"
    "}\n";

// Runs a script in a sandbox.
Outcome InSandbox(const std::string& script, std::vector<std::string> options = {})
{
    return RunScript(kEventFunctions + script, std::move(options));
}

std::string OutputIn(const std::string& scenario, const std::string& script)
{
    return InSandbox("exec 2>&1; " + script, {"--scenario", scenario}).output;
}

// Returns the beginning of the message of a failed kivctl command.
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
        output,
        AllOf(
            HasSubstr("speakers  0 (none plays now)\n"), HasSubstr("0 nodes: the server sees no speaker"),
            HasSubstr("the server answered 0 (none plays now; a speaker that is only seen must be connected first"),
            HasSubstr(Failed("GetSoundbarDeviceInfo"))));
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
    const std::string event = "event 0x02020028 NAMSERVICE_ATMOS_STATE, length 4: 01 00 00 00\n";
    EXPECT_EQ(
        OutputIn("atmos-receiver", "watch; event; until [ \"$(kivctl atmos)\" = 'not supported' ]; do :; done; event"),
        event + event);
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
    const std::string played = "the server answered 1 (number of speakers that play now)\n";
    EXPECT_EQ(
        OutputIn("dying-server", start + start + start + start),
        played + played + Failed("StartNetworkSpeaker") +
            "-1: the bus answered with the error org.freedesktop.DBus.Error.NoReply: Message recipient disconnected "
            "from message bus without replying; look into the server's own log to see why it ended\n" +
            played);
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
                    // The library accepts only exactly 24 bytes.
                    HasSubstr(Failed("GetSoundbarProtocolVersion"))));
}

TEST(ScenarioOptionTest, TakesAFileOrAName)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "one.json";
    std::ofstream(file) << R"({"home": {"settingMode": 79}})";
    EXPECT_THAT(OutputIn(file, "control show"), HasSubstr("\"settingMode\": 79"));
    EXPECT_THAT(InSandbox("control show", {"--scenario", "no-speakers"}).output, HasSubstr("\"speakers\": []"));
}

TEST(ScenarioOptionTest, IsReadFromStdinOrAPipe)
{
    const auto give = [](const std::string& scenario, const std::string& option) {
        const std::string script = "echo '" + scenario + "' | " KIV_SANDBOX " --scenario " + option;
        return InSandbox(script + " -- " KIV_SANDBOX " control show");
    };
    for (const std::string option : {"-", "/dev/stdin"}) {
        EXPECT_THAT(give(R"({"home": {"settingMode": 79}})", option).output, HasSubstr("\"settingMode\": 79"))
            << option;
    }
    const Outcome bad = give(R"({"colour": 1})", "-");
    EXPECT_EQ(bad.exitCode, 125);
    EXPECT_THAT(bad.errors, StartsWith("kiv-sandbox: stdin:1: /colour: there is no such key"));
}

TEST(ScenarioOptionTest, NothingIsStartedForOneThatCannotBeUsed)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "bad.json";
    std::ofstream(file) << "{\n  \"faults\": {\n    \"Nonsense\": null\n  }\n}";
    for (const std::string option : {"--scenario", "--replay"}) {
        const Outcome outcome = RunSandbox({option, file, "--", "echo", "started"});
        EXPECT_EQ(outcome.exitCode, 125);
        EXPECT_THAT(outcome.output, IsEmpty());
        EXPECT_THAT(outcome.errors, StartsWith("kiv-sandbox: " + file.string() + ":"));
    }
    EXPECT_THAT(
        RunSandbox({"--scenario", file, "--", "true"}).errors,
        StartsWith(
            "kiv-sandbox: " + file.string() + ":3: /faults/Nonsense: the server has no method \"Nonsense\"; known"));
    std::ofstream(file) << R"({"events": [{"id": 7}]})";
    const Outcome events = RunSandbox({"--scenario", file, "--", "true"});
    EXPECT_EQ(events.exitCode, 125);
    EXPECT_THAT(
        events.errors, HasSubstr(":1: /events: there is no client yet when the server starts; put \"events\" into"));
    const Outcome missing = RunSandbox({"--scenario", "no-such-scenario", "--", "true"});
    EXPECT_EQ(missing.exitCode, 125);
    EXPECT_EQ(
        missing.errors, "kiv-sandbox: there is no scenario and no file \"no-such-scenario\" (kiv-sandbox "
                        "--list-scenarios prints the scenarios)\n");
    EXPECT_THAT(
        RunSandbox({"--scenario", "slow-sever", "--", "true"}).errors, HasSubstr("; did you mean slow-server?"));
    for (const std::string option : {"--scenario", "--replay"}) {
        const Outcome endless = RunSandbox({option, "/dev/zero", "--", "true"});
        EXPECT_EQ(endless.exitCode, 125);
        EXPECT_THAT(endless.errors, HasSubstr("/dev/zero: must be a file of at most"));
    }
    EXPECT_EQ(RunSandbox({"--record", "/no/such/file", "--", "true"}).exitCode, 125);
}

TEST(ScenarioOptionTest, AScenarioAndARecordingAreToldFromEachOther)
{
    const ScratchDirectory scratch;
    const fs::path scenario = scratch.Path() / "scenario.json";
    const fs::path recording = scratch.Path() / "recording.jsonl";
    std::ofstream(scenario) << "{\n  \"feature\": \"on\"\n}\n";
    const std::string call = R"json({"ms":1,"call":1,"method":"DisableSurround","arguments":"()"})json";
    std::ofstream(recording) << call << "\n" << call << "\n";

    EXPECT_EQ(
        RunSandbox({"--replay", scenario, "--", "true"}).errors,
        "kiv-sandbox: " + scenario.string() +
            ":1: must be a recording, a JSON object in each line, as --record writes it, got {\n");
    EXPECT_EQ(
        RunSandbox({"--scenario", recording, "--", "true"}).errors,
        "kiv-sandbox: " + recording.string() +
            ":1: must be a scenario, one JSON object, got a recording, as --record writes it\n");
}

TEST(ScenarioOptionTest, TheFeatureOptionHasTheLastWord)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "off.json";
    std::ofstream(file) << R"({"feature": "off"})";
    EXPECT_EQ(InSandbox("kivctl stop", {"--scenario", file}).exitCode, 3);
    EXPECT_EQ(InSandbox("kivctl stop", {"--scenario", file, "--feature", "on"}).exitCode, 0);
}

TEST(ControlCommandTest, ChangesWhatTheSimulatorDoes)
{
    const Outcome outcome =
        InSandbox("control fault StopNetworkSpeaker '{\"reply\": \"(9,)\"}'; kivctl stop\n"
                  "control fault StopNetworkSpeaker none; kivctl stop\n"
                  "control fault '*' '{\"error\": \"org.example.Bad\"}'; control clear-faults; kivctl stop --type 2\n"
                  "control atmos on; kivctl atmos; control atmos off; kivctl atmos\n"
                  "control away 200; kivctl stop --type 3\n"
                  "control apply surround-set; kivctl surround channels\n"
                  "echo '{\"home\": {\"surround\": false}}' | control apply -; kivctl surround channels\n"
                  "control exit; kivctl stop --type 4\n"
                  "control calls\n"
                  "control feature off; kivctl enabled\n");
    EXPECT_THAT(outcome.errors, IsEmpty());
    const std::string answered = "the server answered ";
    EXPECT_THAT(
        outcome.output, StartsWith(
                            answered + "9\n" + answered + "0\n" + answered + "2\nsupported\nnot supported\n" +
                            answered + "3\n" + answered + "3\n" + answered + "0\n" + answered + "4\n"));
    EXPECT_THAT(outcome.output, HasSubstr(" StopNetworkSpeaker(4)\n"));
    EXPECT_THAT(outcome.output, Not(HasSubstr("StopNetworkSpeaker(3")));
    EXPECT_EQ(outcome.exitCode, 3);
}

TEST(ControlCommandTest, ChangesAndAwaitsWhatAPersonAtASpeakerDoes)
{
    const Outcome outcome = InSandbox("control volume 02:4b:49:56:00:01 44; control show --text | head -n 2\n"
                                      "control await-change --text & waiting=$!\n"
                                      "while kill -0 $waiting 2>/dev/null; do\n"
                                      "  control plug 02:4b:49:56:00:03 off; control plug 02:4b:49:56:00:03 on\n"
                                      "done\n"
                                      "wait $waiting; echo $?\n");
    EXPECT_THAT(outcome.errors, IsEmpty());
    EXPECT_THAT(outcome.output, HasSubstr("volume 44"));
    EXPECT_THAT(outcome.output, HasSubstr("Subwoofer"));
    EXPECT_THAT(outcome.output, EndsWith("\n0\n"));
}

TEST(ControlCommandTest, PushesEvents)
{
    const Outcome outcome = InSandbox("watch; control event 0x01020304 '05 06'; event");
    EXPECT_EQ(outcome.output, "event 0x01020304, length 2: 05 06\n");
}

TEST(ControlCommandTest, SaysThatAnEventReachesNobody)
{
    const Outcome outcome =
        InSandbox("control event 0x7 && echo done; control payload '07' && echo done\n"
                  "watch; control event 0x7 && echo done; control away 3600000; control payload '07'");
    EXPECT_EQ(outcome.output, "done\ndone\ndone\n");
    const std::string note = kControl + "the server knows no client; nobody was told\n";
    EXPECT_EQ(outcome.errors, note + note + note);
}

TEST(ControlCommandTest, SaysWhichClientGivesNoAnswer)
{
    const Outcome outcome = InSandbox(
        "watch; monitor=$(control show | sed -n 's/.*\"pid\": \\([0-9]*\\).*/\\1/p'); kill -STOP $monitor; control "
        "atmos on & control event 0x7; echo $?; wait $!; echo $?\n"
        "kill -CONT $monitor");
    EXPECT_EQ(outcome.output, "1\n1\n");
    EXPECT_THAT(
        outcome.errors, MatchesRegex("(kiv-sandbox control: client tv_[0-9]+ gave no answer within 20 s\n){2}"));
}

TEST(ControlCommandTest, RefusesWhatCannotBeUsed)
{
    const ScratchDirectory scratch;
    const fs::path file = scratch.Path() / "bad.json";
    std::ofstream(file) << "{\n\"colour\": 1}";
    const std::map<std::string, std::string> complaints = {
        {"apply " + file.string(), kControl + file.string() + ":2: /colour: there is no such key; known are "},
        {"apply suround-set", kControl + "there is no scenario and no file \"suround-set\"; did you mean"},
        {"apply - </dev/zero", kControl + "stdin: must be a file of at most 16 MiB, got more"},
        {"fault StopNetworkSpeaker '{'", kControl + "FAULT:1:2: syntax error"},
        {"fault StopNetworkSpeaker '{delay: 2}'", "must be in double quotes, such as '{\"delay\": 500}'\n"},
        {"fault StopNetworkSpeaker 7", kControl + "FAULT:1: must be an object, got 7"},
        {"fault StopNetworkSpeaker '{\"delay\": \"x\"}'",
         "/delay: must be a whole number from 0 to 2147483647, got \"x\""},
        {"fault StopNetworkSpeaker '{}'", kControl + "a fault must have one of the keys error, "},
        {"fault StopNetworkSpeaker",
         kControl + "FAULT must be JSON such as '{\"delay\": 500}', or none, got nothing; its keys are append, "},
        {"fault StopNetworkSpeeker '{\"exit\": true}'",
         "no method \"StopNetworkSpeeker\"; did you mean StopNetworkSpeaker?"},
        {"fault StopNetworkSpeaker '{\"reply\": \"(1, \"}'",
         kControl + "\"reply\" must be a value in GVariant text form, got \"(1, \": "},
        {"fault Nonsense none", kControl + "the server has no method \"Nonsense\""},
        {"feature perhaps", kControl + "STATE: must be one of on, off, absent, got \"perhaps\""},
        {"event 7x", kControl + "ID must be in hexadecimal from 0x0 to 0xffffffff, such as 0x02020028, got \"7x\""},
        {"event 0x10000000000", "from 0x0 to 0xffffffff, such as 0x02020028, got \"0x10000000000\""},
        {"event 0x7 5", kControl + "BYTES must be in hexadecimal such as \"01 ff\", got \"5\""},
        {"payload zz", kControl + "BYTES must be in hexadecimal such as \"01 ff\", got \"zz\""},
        {"away -1", kControl + "MILLISECONDS: must be an integer from 0 to 2147483647, got \"-1\"; see"},
        {"volume 02:4b:49:56:00:01 101", kControl + "VOLUME: must be an integer from 0 to 100, got \"101\""},
        {"volume 02:4b:49:56:00:77 1", kControl + "no connected speaker has the MAC address 02:4b:49:56:00:77"},
        {"plug zebra off", kControl + R"(MAC must be a MAC address such as 02:4b:49:56:00:01, got "zebra")"},
        {"payloads ff many", kControl + "COUNT: must be an integer from 0 to 2147483647, got \"many\""},
        {"show --txt", kControl + "unknown option --txt; did you mean --text?\n"},
        {"show all", kControl + "unexpected argument \"all\"; see kiv-sandbox control show --help\n"},
        {"away", kControl + "MILLISECONDS is required; see kiv-sandbox control away --help\n"},
        {"atmos perhaps", kControl + "STATE: must be one of on, off, got \"perhaps\""},
        {"clear-fualts", kControl + "unknown command clear-fualts; did you mean clear-faults?"},
        {"", kControl + "no command given; see kiv-sandbox control --help\n"},
    };
    for (const auto& [command, complaint] : complaints) {
        const Outcome outcome = InSandbox("control " + command);
        EXPECT_EQ(outcome.exitCode, 2) << command;
        EXPECT_THAT(outcome.errors, HasSubstr(complaint)) << command;
    }
}

TEST(ControlCommandTest, NeedsASandboxWithASimulator)
{
    const Outcome none = InSandbox("control show", {"--no-server"});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_THAT(none.errors, StartsWith(kControl + "no simulator runs, and none can be started: The name "));
    const Outcome outside = InSandbox("unset DBUS_SYSTEM_BUS_ADDRESS; control show");
    EXPECT_EQ(outside.exitCode, 1);
    EXPECT_EQ(outside.errors, kControl + "not in a sandbox: DBUS_SYSTEM_BUS_ADDRESS is not set\n");
}

TEST(ControlCommandTest, TakesASimulatorThatTheBusCannotStart)
{
    const Outcome outcome = InSandbox(
        "fifo=$(dirname \"$KIV_SYSTEM_INFO_FILE\")/ready; mkfifo \"$fifo\"\n" KIV_SIMULATOR
        " --ready-fd 3 3>\"$fifo\" &\n"
        "read ready <\"$fifo\"; control atmos on; kivctl atmos",
        {"--no-server"});
    EXPECT_EQ(outcome.output, "supported\n");
    EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST(ControlCommandTest, ReachesTheSimulatorWhileTheServerIsAway)
{
    const Outcome outcome = InSandbox("control away 3600000; control atmos on; control away 0; kivctl atmos");
    EXPECT_EQ(outcome.output, "supported\n");
    EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST(ControlCommandTest, TheHelpOfEachCommandHasOneExampleOfItsOwn)
{
    const std::string help = RunSandbox({"control", "--help"}).output;
    std::istringstream lines(help.substr(help.find("\nSubcommands:\n") + 1));
    std::string line;
    std::getline(lines, line);
    int commands = 0;
    while (std::getline(lines, line) && line.starts_with("  ")) {
        if (line[2] == ' ') {
            continue;
        }
        ++commands;
        const std::string name = line.substr(2, line.find(' ', 2) - 2);
        const std::string own = RunSandbox({"control", name, "--help"}).output;
        const std::string head = "\nExample:\n  kiv-sandbox control ";
        const std::size_t example = own.find(head);
        ASSERT_NE(example, std::string::npos) << own;
        EXPECT_THAT(own.substr(example), MatchesRegex(head + name + "[ \n](.|\n)*"));
        EXPECT_EQ(own.find("Example", example + 2), std::string::npos) << own;
        EXPECT_THAT(own, Not(HasSubstr("Excludes"))) << own;
    }
    EXPECT_GT(commands, 15);
}

// Converts "ClearFaults" to "clear-faults".
std::string WithDashes(const std::string& method)
{
    std::string words;
    for (const char character : method) {
        if (g_ascii_isupper(character) != FALSE && !words.empty()) {
            words += '-';
        }
        words += g_ascii_tolower(character);
    }
    return words;
}

TEST(ControlCommandTest, HasTheMethodsOfTheControlByTheirNames)
{
    // bus-fault is not a D-Bus method, because the bus may hang.
    std::set<std::string> methods = {"bus-fault"};
    for (const std::string& method : simulator::Interface(simulator::kControlXml).Methods()) {
        methods.insert(WithDashes(method));
    }
    const Outcome help = RunSandbox({"control", "--help"});
    EXPECT_EQ(help.exitCode, 0);
    std::istringstream lines(help.output.substr(help.output.find("Subcommands:\n")));
    std::set<std::string> commands;
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  ")) {
        if (line[2] != ' ') {
            commands.insert(line.substr(2, line.find(' ', 2) - 2));
        }
    }
    EXPECT_GT(methods.size(), 15U);
    EXPECT_EQ(commands, methods);
}

TEST(ControlCommandTest, ShowsHomeClientsAndFaults)
{
    const std::string give = "control fault StopNetworkSpeaker '{\"reply\": \"(9,)\", \"every\": 2}'\n";
    const auto faults = nlohmann::json::parse(InSandbox(give + "control show").output).at("faults");
    EXPECT_EQ(faults, (nlohmann::json{{"StopNetworkSpeaker", {{"reply", "(9,)"}, {"every", 2}}}}));

    const std::string text = InSandbox(give + "watch; control show --text").output;
    EXPECT_THAT(text, StartsWith("Home\n  Living room left  Living room 02:4b:49:56:00:01 network volume 20\n"));
    EXPECT_THAT(text, HasSubstr("\nClients\n  tv_"));
    EXPECT_THAT(text, HasSubstr("\nFaults\n  StopNetworkSpeaker            {\"every\":2,\"reply\":\"(9,)\"}\n"));
    EXPECT_EQ(InSandbox("control show --json --text").exitCode, 2);
}

TEST(ControlCommandTest, ShowsLongNamesInColumns)
{
    const std::string home =
        R"({"clientId": "a_client_with_a_very_long_id", "home": {"speakers": [)"
        R"({"name": "Büro", "mac": "02:00:00:00:00:01", "group": "Rooms of the upper floor", "active": true},)"
        R"({"name": "Speaker beside the bookshelf", "mac": "02:00:00:00:00:02"}]},)"
        R"("faults": {"StartNetworkSpeakerGroupByMobile": {"delay": 1}, "DisableSurround": {"delay": 1}}})";
    const std::string apply = "cat <<'END' | control apply -\n" + home + "\nEND\n";
    const std::string text = InSandbox(apply + "watch; control show --text").output;
    EXPECT_THAT(
        text, StartsWith(
                  "Home\n"
                  "  Büro                         Rooms of the upper floor     02:00:00:00:00:01 network volume 20   "
                  "channel 0\n"
                  "  Speaker beside the bookshelf Speaker beside the bookshelf 02:00:00:00:00:02 network volume 20\n"));
    EXPECT_THAT(text, HasSubstr("\nClients\n  a_client_with_a_very_long_id :"));
    EXPECT_THAT(
        text, HasSubstr("  DisableSurround                  {\"delay\":1}\n"
                        "  StartNetworkSpeakerGroupByMobile {\"delay\":1}\n"));
}

TEST(ControlCommandTest, ShowsNamesWithoutControlCharactersAsText)
{
    const std::string speaker =
        R"({"home": {"speakers": [{"name": "a\nHome\u001b[31m", "mac": "02:00:00:00:00:01"}]}})";
    const std::string apply = "cat <<'END' | control apply -\n" + speaker + "\nEND\n";
    EXPECT_THAT(InSandbox(apply + "control show --text").output, StartsWith("Home\n  a?Home?[31m "));
}

TEST(ControlCommandTest, ShowsInWordsWhoPlaysAndInWhichMode)
{
    const std::string show = "; control show --text";
    EXPECT_THAT(
        InSandbox("kivctl start 02:4b:49:56:00:03 02:4b:49:56:00:01 >&2" + show).output,
        AllOf(
            HasSubstr("\n  Playing           Living room left, Subwoofer\n"),
            HasSubstr("\n  Setting mode      80 (surround)\n"),
            HasSubstr("\n  Settings screen   mode 80 (surround)\n")));
    EXPECT_THAT(
        InSandbox("echo '{\"home\": {\"settingMode\": 81, \"tavrinUiMode\": 7}}' | control apply -" + show).output,
        AllOf(
            HasSubstr("\n  Playing           none\n"), HasSubstr("\n  Setting mode      81 (multiroom)\n"),
            HasSubstr("\n  Settings screen   mode 7\n"), EndsWith("\nClients\n  none\nFaults\n  none\n")));
}

TEST(ControlCommandTest, TellsTheCallsAsJsonAndForgetsThem)
{
    const Outcome outcome =
        InSandbox("kivctl stop --type 1 >&2; control forget-calls; kivctl stop --type 3 >&2; control calls --json");
    const auto calls = nlohmann::json::parse(outcome.output);
    ASSERT_FALSE(calls.empty());
    EXPECT_EQ(calls.front().at("number"), 1);
    EXPECT_EQ(calls.back().at("method"), "StopNetworkSpeaker");
    EXPECT_EQ(calls.back().at("arguments"), "(3,)");
    EXPECT_THAT(outcome.output, Not(HasSubstr("(1,)")));
}

TEST(ControlCommandTest, ReachesClients)
{
    const Outcome outcome =
        InSandbox("watch; id=$(control show | sed -n 's/.*\"id\": \"\\(tv_.*\\)\".*/\\1/p')\n"
                  "control event 0x7 '05' --client \"$id\"; event\n"
                  "control payload '08 00 00 00 00 00 00 00' --client \"$id\"; event\n"
                  "control payloads '09 00 00 00 00 00 00 00' 3; event; event; event\n"
                  "control call-client \"$id\" nam_notify_subscriber '([byte 10, 0, 0, 0, 0, 0, 0, 0],)'; event\n"
                  "control event 0x7 --client tv_0 || echo $?\n"
                  "control call-client tv_0 x || echo $?\n");
    const std::string nine = "event 0x00000009, length 0\n";
    EXPECT_EQ(
        outcome.output, "event 0x00000007, length 1: 05\nevent 0x00000008, length 0\n3 answered\n" + nine + nine +
                            nine + "()\nevent 0x0000000a, length 0\n1\n1\n");
    EXPECT_THAT(outcome.errors, HasSubstr(kControl));
}

TEST(ControlCommandTest, GivesAndResetsTheClientId)
{
    const std::string ids = "watch; control show | sed -n 's/.*\"id\": \"\\(den\\|tv_\\).*/\\1/p'";
    EXPECT_EQ(InSandbox("control client-id den; " + ids).output, "den\n");
    EXPECT_EQ(InSandbox("control client-id den; control reset-client-id; " + ids).output, "tv_\n");
}

TEST(ControlCommandTest, AwaitsTheServer)
{
    const Outcome outcome = InSandbox("control away 300; control await-server; kivctl stop --type 3");
    EXPECT_EQ(outcome.output, "the server answered 3\n");
}

class RecordTest : public testing::Test {
protected:
    Outcome Record(const std::string& script) const { return InSandbox(script, {"--record", file_}); }
    Outcome Replay(const std::string& script) const { return InSandbox(script, {"--replay", file_}); }

    Outcome Strict(const std::string& script) const { return InSandbox(script, {"--strict", "--replay", file_}); }

    // Returns the partial files of recordings that are not finished.
    std::vector<fs::path> Parts() const
    {
        std::vector<fs::path> parts;
        for (const fs::directory_entry& entry : fs::directory_iterator(scratch_.Path())) {
            if (entry.path().string().starts_with(file_.string() + ".part-")) {
                parts.push_back(entry.path());
            }
        }
        return parts;
    }

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
    EXPECT_THAT(
        recorded.output, AllOf(HasSubstr("the server answered 1 (number"), HasSubstr("the server answered 3\n")));
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
            HasSubstr("kiv-simulator: " + file_.string() + " has StopNetworkSpeaker(3) only 3 times\n")));
}

TEST_F(RecordTest, StrictFailsForWhatWasNotRecorded)
{
    Record("kivctl stop --type 3");
    const Outcome same = Strict("kivctl stop --type 3");
    EXPECT_EQ(same.exitCode, 0);
    EXPECT_THAT(same.errors, IsEmpty());

    const Outcome twice = Strict("kivctl stop --type 3; kivctl stop --type 3; kivctl stop --type 4; true");
    EXPECT_EQ(twice.exitCode, 125);
    EXPECT_THAT(twice.errors, HasSubstr("kiv-sandbox: --strict: 2 calls were not in " + file_.string() + "\n"));
    EXPECT_EQ(Strict("kivctl stop --type 4; exit 5").exitCode, 5);

    const Outcome lenient = Replay("kivctl stop --type 4; true");
    EXPECT_EQ(lenient.exitCode, 0);
    EXPECT_THAT(lenient.errors, Not(HasSubstr("--strict")));
}

TEST_F(RecordTest, StrictFailsForRecordedCallsThatWereNotMade)
{
    Record(
        "kivctl stop --type 3; kivctl start 02:4b:49:56:00:01; for i in 4 5 6 7 8 9; do kivctl stop --type $i; done");
    const Outcome none = Strict("true");
    EXPECT_EQ(none.exitCode, 125);
    EXPECT_THAT(
        none.errors,
        AllOf(
            StartsWith("kiv-sandbox: --strict: 9 calls of " + file_.string() + " were not made:\n  line "),
            HasSubstr(": StopNetworkSpeaker(3)\n  line "), HasSubstr(": StartNetworkSpeaker([86 bytes: 00 00 "),
            HasSubstr(": StopNetworkSpeaker(5)\n  and 4 more\n"), Not(HasSubstr("StopNetworkSpeaker(6)")),
            Not(HasSubstr("check_dbus_connection"))));

    // A call counts as made, whatever its answer is.
    const Outcome one = Strict("control fault StopNetworkSpeaker '{\"reply\": \"(0,)\", \"count\": 1}'\n"
                               "for i in 3 4 5 6 7 8; do kivctl stop --type $i; done; kivctl start 02:4b:49:56:00:01");
    EXPECT_EQ(one.exitCode, 125);
    EXPECT_THAT(one.errors, HasSubstr("--strict: 1 call of " + file_.string() + " was not made:\n  line "));
    EXPECT_THAT(one.errors, ::testing::EndsWith(": StopNetworkSpeaker(9)\n"));

    EXPECT_EQ(Strict("exit 5").exitCode, 5);
    EXPECT_EQ(Replay("true").errors, "");
}

TEST_F(RecordTest, StrictFailsForOtherArgumentsAlsoWhereAFaultAnswers)
{
    Record("kivctl stop --type 3");
    const auto strict = [this](const std::string& calls) {
        const std::string fault = "control fault StopNetworkSpeaker '{\"reply\": \"(0,)\"}'; ";
        return InSandbox(fault + calls, {"--strict", "--replay", file_});
    };
    EXPECT_EQ(strict("kivctl stop --type 3; kivctl stop --type 3").exitCode, 0);
    const Outcome other = strict("kivctl stop --type 3; kivctl stop --type 4");
    EXPECT_EQ(other.exitCode, 125);
    EXPECT_THAT(
        other.errors,
        MatchesRegex("kiv-sandbox: --strict: 1 call was not in .*\n"
                     "  .* has no such StopNetworkSpeaker: stopType must be 3 as in line [0-9]+, got 4\n"));
}

TEST_F(RecordTest, AReplayRefusesControlsThatItCannotHonour)
{
    Record("kivctl stop");
    const Outcome show = Replay("control show");
    EXPECT_EQ(show.exitCode, 2);
    EXPECT_EQ(
        show.errors, kControl + "the server replays " + file_.string() + "; it has a home only without --replay\n");
    EXPECT_EQ(Replay("control apply surround-set").exitCode, 2);
    EXPECT_EQ(Replay("control event 0x7").exitCode, 2);
    EXPECT_EQ(Replay("control feature off; kivctl stop").exitCode, 3);
}

TEST_F(RecordTest, EventsAreRecordedAndReplayed)
{
    const Outcome recorded = Record("watch; control atmos on; event");
    EXPECT_EQ(recorded.output, "event 0x02020028 NAMSERVICE_ATMOS_STATE, length 4: 01 00 00 00\n");
    EXPECT_EQ(Replay("watch; event").output, recorded.output);
}

TEST_F(RecordTest, WhatThereIsStaysWhateverEndsTheSandbox)
{
    std::ofstream(file_) << "an older recording";
    Sandbox sandbox(Script("kivctl stop; echo done; read line"), {"--record", file_});
    EXPECT_EQ(sandbox.Process().ReadLine(), "the server answered 0");
    EXPECT_EQ(sandbox.Process().ReadLine(), "done");
    ASSERT_THAT(Parts(), SizeIs(1));
    // This is the last line of the recording, which is behind the bus.
    test::WaitUntil("the answer to be recorded", [this] {
        return ReadFile(Parts().front()).find("\"values\":\"(0,)\"}\n") != std::string::npos;
    });
    sandbox.Process().Signal(SIGKILL);
    sandbox.Process().WaitForEnd();
    EXPECT_EQ(ReadFile(file_), "an older recording");
    fs::rename(Parts().front(), file_);
    EXPECT_EQ(Replay("kivctl stop").output, "the server answered 0\n");
}

TEST_F(RecordTest, ACommandThatIsEndedBySignalHasItsRecording)
{
    Sandbox sandbox(Script("kivctl stop; echo done; read line"), {"--record", file_});
    EXPECT_EQ(sandbox.Process().ReadLine(), "the server answered 0");
    EXPECT_EQ(sandbox.Process().ReadLine(), "done");
    sandbox.Process().Signal(SIGTERM);
    sandbox.Process().WaitForEnd();
    EXPECT_THAT(Parts(), IsEmpty());
    EXPECT_EQ(Replay("kivctl stop").output, "the server answered 0\n");
}

TEST_F(RecordTest, ReplacesAnOlderRecordingThatHasEnded)
{
    std::ofstream(file_) << "an older recording";
    fs::permissions(file_, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    fs::create_symlink("recording", scratch_.Path() / "link");

    InSandbox("kivctl stop", {"--record", scratch_.Path() / "link"});

    EXPECT_THAT(ReadFile(file_), HasSubstr("\"StopNetworkSpeaker\""));
    EXPECT_EQ(fs::status(file_).permissions(), fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    EXPECT_TRUE(fs::is_symlink(scratch_.Path() / "link"));
    EXPECT_THAT(Parts(), IsEmpty());
}

TEST_F(RecordTest, WithoutACommandTheOlderRecordingStays)
{
    std::ofstream(file_) << "an older recording";
    EXPECT_EQ(RunSandbox({"--record", file_, "--", "no-such-command"}).exitCode, 127);
    EXPECT_EQ(ReadFile(file_), "an older recording");
    EXPECT_THAT(Parts(), IsEmpty());
}

TEST_F(RecordTest, AFailedCommandKeepsTheOlderRecording)
{
    std::ofstream(file_) << "an older recording";

    const Outcome silent = RunSandbox({"--record", file_, "--", "false"});
    EXPECT_EQ(silent.exitCode, 1);
    EXPECT_EQ(silent.errors, "kiv-sandbox: " + file_.string() + " stays as it was: no call was made\n");
    EXPECT_THAT(Parts(), IsEmpty());

    const Outcome failed = Record("kivctl stop; exit 5");
    EXPECT_EQ(failed.exitCode, 5);
    ASSERT_THAT(Parts(), SizeIs(1));
    EXPECT_EQ(
        failed.errors, "kiv-sandbox: " + file_.string() + " stays as it was: the command failed, and is recorded in " +
                           Parts().front().string() + "\n");
    EXPECT_EQ(ReadFile(file_), "an older recording");
    EXPECT_THAT(ReadFile(Parts().front()), HasSubstr("\"StopNetworkSpeaker\""));
}

TEST_F(RecordTest, WithoutAnOlderRecordingAFailedCommandHasItsOwn)
{
    std::ofstream(file_) << "";
    const Outcome failed = Record("kivctl stop; exit 5");
    EXPECT_EQ(failed.errors, "");
    EXPECT_THAT(ReadFile(file_), HasSubstr("\"StopNetworkSpeaker\""));
}

TEST_F(RecordTest, ARunWithoutCallsKeepsTheOlderRecording)
{
    Record("kivctl stop");
    const std::string recording = ReadFile(file_);
    const Outcome silent = Record("true");
    EXPECT_EQ(silent.exitCode, 0);
    EXPECT_EQ(silent.errors, "kiv-sandbox: " + file_.string() + " stays as it was: no call was made\n");
    EXPECT_EQ(ReadFile(file_), recording);
    EXPECT_THAT(Parts(), IsEmpty());
}

TEST_F(RecordTest, ARecordingWithoutCallsIsToldAndRefusedByStrict)
{
    const std::string empty = ": the recording is empty: no call was made\n";
    EXPECT_EQ(Record("true").errors, "kiv-sandbox: " + file_.string() + empty);
    EXPECT_EQ(RunSandbox({"--record", "/dev/null", "--", "true"}).errors, "kiv-sandbox: /dev/null" + empty);
    const std::string told = "kiv-sandbox: " + file_.string() + ": the recording has no calls";
    const Outcome lenient = Replay("true");
    EXPECT_EQ(lenient.exitCode, 0);
    EXPECT_EQ(lenient.errors, told + "\n");
    const Outcome strict = RunSandbox({"--strict", "--replay", file_, "--", "echo", "started"});
    EXPECT_EQ(strict.exitCode, 125);
    EXPECT_EQ(strict.errors, told + "; --strict needs one to compare with\n");
    EXPECT_EQ(strict.output, "");
}

TEST_F(RecordTest, GoesToAPipeToo)
{
    EXPECT_THAT(
        InSandbox("kivctl stop", {"--record", "/dev/stdout"}).output, HasSubstr("\"method\":\"StopNetworkSpeaker\""));
}

TEST_F(RecordTest, DoesNotReplaceWhatItReads)
{
    Record("kivctl stop");
    const std::string recording = ReadFile(file_);
    const fs::path otherName = scratch_.Path() / "other-name";
    fs::create_hard_link(file_, otherName);
    for (const fs::path& name : {file_, otherName}) {
        const Outcome outcome = RunSandbox({"--record", name, "--replay", file_, "--", "echo", "started"});
        EXPECT_EQ(outcome.exitCode, 125);
        EXPECT_EQ(
            outcome.errors, "kiv-sandbox: --record must name another file than --replay, got the same file: \"" +
                                name.string() + "\"\n");
        EXPECT_THAT(outcome.output, IsEmpty());
        EXPECT_EQ(ReadFile(file_), recording);
    }
    std::ofstream(file_) << "{}";
    EXPECT_THAT(
        RunSandbox({"--record", file_, "--scenario", otherName, "--", "true"}).errors,
        HasSubstr("another file than --scenario"));
}

} // namespace

} // namespace kiv::sandbox::scenario_test
