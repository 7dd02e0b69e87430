#include "sandbox/Processes.h"
#include "simulator/Interfaces.h"
#include "simulator/SimulatorTest.h"
#include "support/Wait.h"

#include <fstream>
#include <map>

namespace kiv::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ProgramTest : public SimulatorTest {
protected:
    Program Run(const std::vector<std::string>& arguments) { return {arguments, bus_.Directory() / "errors"}; }

    void ExpectBadScenario(const std::string& scenario, const std::string& reason)
    {
        std::filesystem::remove(bus_.Directory() / "errors");
        Program program = WithScenario(scenario);
        EXPECT_EQ(program.Ready(), "");
        EXPECT_EQ(program.ExitCode(), 2) << scenario;
        EXPECT_THAT(program.Errors(), HasSubstr("scenario.json:" + reason)) << scenario;
    }
};

TEST_F(ProgramTest, IsReadyWhenBothNamesAreOwned)
{
    Program program = Run({});
    EXPECT_EQ(program.Ready(), "ready\n");
    EXPECT_TRUE(HasOwner(kServerName));
    EXPECT_TRUE(HasOwner(kControlName));
}

TEST_F(ProgramTest, IsStartedByTheBus)
{
    bus_.WriteService({kServerName, {KIV_SIMULATOR}});
    EXPECT_EQ(Server("StopNetworkSpeaker", "(3,)"), "(3,)");
    EXPECT_EQ(Control("Exit"), "()");
}

TEST_F(ProgramTest, RefusesToShareItsName)
{
    Start();
    Program second = Run({});
    EXPECT_EQ(second.Ready(), "");
    EXPECT_EQ(second.ExitCode(), 1);
    EXPECT_THAT(second.Errors(), HasSubstr("is already owned on this bus"));
    EXPECT_EQ(Server("DisableSurround"), "(0,)");
}

TEST_F(ProgramTest, NeedsABus)
{
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    Program program = Run({});
    EXPECT_EQ(program.ExitCode(), 1);
    EXPECT_THAT(program.Errors(), HasSubstr("kiv-simulator: no system bus: "));
}

TEST_F(ProgramTest, EndsQuietlyWithTheBus)
{
    Start();
    bus_.Kill();
    EXPECT_EQ(program_->ExitCode(), 0);
    EXPECT_THAT(program_->Errors(), IsEmpty());
}

TEST_F(ProgramTest, TellsItsVersion)
{
    sandbox::Child program({KIV_SIMULATOR, "--version"});
    EXPECT_EQ(program.ReadOutput(), "kiv-simulator " KIV_VERSION "\n");
    EXPECT_EQ(program.WaitForEnd(), 0);
}

TEST_F(ProgramTest, SaysWhatIsWrongWithItsArguments)
{
    const std::string mustBe = "--ready-fd: must be an integer from 0 to 2147483647, got ";
    const std::map<std::string, std::vector<std::string>> reasons = {
        {"unknown option --nonsense", {"--nonsense"}},
        {"--scenario excludes --replay", {"--replay", "/dev/null", "--scenario", "/dev/null"}},
        {mustBe + "\"x\"", {"--ready-fd", "x"}},
        {mustBe + "\"-1\"", {"--ready-fd=-1"}},
        {mustBe + "\"3x\"", {"--ready-fd=3x"}},
        {mustBe + "\"2147483648\"", {"--ready-fd=2147483648"}},
    };
    for (const auto& [reason, arguments] : reasons) {
        std::filesystem::remove(bus_.Directory() / "errors");
        Program program = Run(arguments);
        EXPECT_EQ(program.ExitCode(), 2) << reason;
        EXPECT_EQ(program.Errors(), "kiv-simulator: " + reason + "; see kiv-simulator --help\n");
    }
    EXPECT_EQ(Run({"--ready-fd"}).ExitCode(), 2);
}

TEST_F(ProgramTest, PrintsCallsAndPushes)
{
    Start({"--verbose"});
    const FakeClient client(bus_.Address(), "tv_7");
    client.Tell("SubscribeNamServiceCallback", 7);
    Server("StartNetworkSpeaker", Records({StartRecord(1, 0x01)}));
    Control("Atmos", "(true,)");
    const std::string printed = program_->Errors();
    EXPECT_THAT(printed, HasSubstr(client.BusName() + " -> SubscribeNamServiceCallback (7)\n"));
    EXPECT_THAT(printed, HasSubstr(client.BusName() + " <- SubscribeNamServiceCallback ('tv_7')\n"));
    EXPECT_THAT(printed, HasSubstr(" -> StartNetworkSpeaker ([86 bytes: 00 00 00 00 01 "));
    EXPECT_THAT(printed, HasSubstr("tv_7 <- nam_notify_subscriber ([28 00 "));
    EXPECT_THAT(printed, HasSubstr("tv_7 -> ()\n"));
}

TEST_F(ProgramTest, TheScenarioIsAppliedBeforeTheFirstCall)
{
    const nlohmann::json faults = {
        {"StopNetworkSpeaker", {{"error", "org.example.Bad"}, {"message", "no"}, {"count", 1U}}},
        {"DisableSurround", {{"reply", "(1, 2)"}, {"delay", 1U}}},
        {"GetSurroundChannelNumber", {{"delay", 1U}}},
    };
    Program program = WithScenario(nlohmann::json{{"clientId", "den"}, {"faults", faults}}.dump());
    ASSERT_EQ(program.Ready(), "ready\n") << program.Errors();
    EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('den',)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "error org.example.Bad: no");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "(1,)");
    EXPECT_EQ(Server("DisableSurround"), "(1, 2)");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(0,)");
}

TEST_F(ProgramTest, AScenarioWithEventsForNobodyIsRefused)
{
    Program program = WithScenario("{\n\"events\": [{\"id\": 7}]}");
    EXPECT_EQ(program.ExitCode(), 2);
    EXPECT_THAT(program.Errors(), HasSubstr(":2: /events: there is no client yet when the server starts; put"));
}

TEST_F(ProgramTest, AScenarioThatBeginsWithAnExitIsRefused)
{
    ExpectBadScenario(
        "{\n\"exit\": true}", "2: /exit: a server cannot end while it starts; put \"exit\" into the timetable, or give "
                              "the scenario to \"kiv-sandbox control apply\"");
    Program program = WithScenario(R"({"exit": false, "timetable": [{"at": 3600000, "exit": true}]})");
    EXPECT_EQ(program.Ready(), "ready\n") << program.Errors();
}

TEST_F(ProgramTest, AnEmptyScenarioIsFine)
{
    Program program = WithScenario("{}");
    EXPECT_EQ(program.Ready(), "ready\n") << program.Errors();
}

TEST_F(ProgramTest, RefusesABadScenario)
{
    ExpectBadScenario("{\n  \"faults\": }", "2:13: syntax error");
    ExpectBadScenario("{\n  \"colour\": 1}", "2: /colour: there is no such key");
    ExpectBadScenario(
        "{\n\n\"faults\": {\"Nonsense\": {}}}", "3: /faults/Nonsense: the server has no method \"Nonsense\"");
}

TEST_F(ProgramTest, RefusesFilesThatAreNotThere)
{
    for (const std::string option : {"--scenario", "--replay"}) {
        std::filesystem::remove(bus_.Directory() / "errors");
        Program program = Run({option, "/nonexistent/file"});
        EXPECT_EQ(program.ExitCode(), 2);
        EXPECT_EQ(program.Errors(), "kiv-simulator: /nonexistent/file: No such file or directory\n");
    }
    EXPECT_EQ(Run({"--scenario", bus_.Directory()}).ExitCode(), 2);
}

TEST_F(ProgramTest, RefusesAScenarioWithoutEnd)
{
    Program program = Run({"--scenario", "/dev/zero"});
    EXPECT_EQ(program.ExitCode(), 2);
    EXPECT_EQ(program.Errors(), "kiv-simulator: /dev/zero: must be a file of at most 16 MiB, got more\n");
}

TEST_F(ProgramTest, SlowToComeUpItIsReadyWhenItHas)
{
    Program program = WithScenario(R"({"away": 300})");
    test::WaitUntil("the simulator's control to come up", [this] { return HasOwner(kControlName); });
    EXPECT_EQ(Control("AwaitServer"), "()");
    EXPECT_TRUE(HasOwner(kServerName));
    EXPECT_EQ(program.Ready(), "ready\n");
}

TEST_F(ProgramTest, WritesTheFeatureWhenToldTo)
{
    const std::filesystem::path file = bus_.Directory() / "features";
    Start({"--feature-file", file});
    EXPECT_FALSE(std::filesystem::exists(file));
    const std::string head = "[com.molvane/featureconf]\n";
    for (const auto& [feature, text] : std::map<std::string, std::string>{
             {"off", head + "kiv_multi_ch_support=false\n"},
             {"on", head + "kiv_multi_ch_support=true\n"},
             {"absent", head}}) {
        EXPECT_EQ(Control("Apply", "('{\"feature\": \"" + feature + "\"}',)"), "()");
        EXPECT_EQ(sandbox::ReadFile(file), text);
    }
    EXPECT_EQ(Control("Feature", "('on',)"), "()");
    EXPECT_EQ(sandbox::ReadFile(file), head + "kiv_multi_ch_support=true\n");
    EXPECT_THAT(Control("Feature", "('perhaps',)"), HasSubstr("must be one of on, off, absent, got \"perhaps\""));
}

TEST_F(ProgramTest, AnswersFromARecording)
{
    const std::filesystem::path file = bus_.Directory() / "recording";
    std::ofstream(file) << R"json({"ms":0,"call":1,"method":"check_dbus_connection","arguments":"(1,)"}
{"ms":0,"answer":1,"values":"('den',)"}
{"ms":5,"call":2,"method":"StopNetworkSpeaker","arguments":"(3,)"}
{"ms":5,"answer":2,"values":"(9,)"}
{"ms":6,"event":3,"client":"den","method":"nam_notify_subscriber","arguments":"([byte 0x01, 0x02],)"}
{"ms":7,"call":4,"method":"StopNetworkSpeaker","arguments":"(3,)"}
{"ms":7,"answer":4,"error":"org.example.Bad","message":"no"}
)json";
    Start({"--replay", file});
    const FakeClient client(bus_.Address(), "den");
    EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('den',)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(3,)"), "(9,)");
    EXPECT_THAT(client.Payloads(1), ElementsAre(Bytes{1, 2}));
    EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('den',)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(3,)"), "error org.example.Bad: no");

    const std::string notRecorded = file.string() + " has StopNetworkSpeaker(3) only 2 times";
    EXPECT_EQ(
        Server("StopNetworkSpeaker", "(3,)"),
        "error org.lumra.tv.networkspeaker.simulator.Error.NotRecorded: " + notRecorded);
    EXPECT_THAT(program_->Errors(), HasSubstr("kiv-simulator: " + notRecorded));

    Control("Fault", "('StopNetworkSpeaker', {'reply': <(5,)>})");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(4,)"), "(5,)");
}

// Tests a simulator that answers from a recording.
class ReplayProgramTest : public ProgramTest {
protected:
    ReplayProgramTest()
    {
        std::ofstream(file_) << R"json({"ms":0,"call":1,"method":"GetNetSpkNodeList","arguments":"(0,)"}
{"ms":0,"answer":1,"values":"([byte 0x01],)"}
)json";
        Start({"--replay", file_});
    }

    void ExpectRefusal(const std::string& method, const std::string& arguments, const std::string& reason)
    {
        EXPECT_EQ(
            Control(method, arguments),
            "error org.freedesktop.DBus.Error.InvalidArgs: the server replays " + file_.string() + "; " + reason)
            << method << arguments;
    }

    const std::filesystem::path file_ = bus_.Directory() / "recording";
};

TEST_F(ReplayProgramTest, RefusesControlsOfWhatARecordingLacks)
{
    const std::string home = "it has a home only without --replay";
    ExpectRefusal("Show", "()", home);
    ExpectRefusal("Atmos", "(true,)", home);
    for (const std::string key :
         {"\"speakers\": []", "\"soundbars\": []", "\"settingMode\": 80", "\"tavrinUiMode\": 80", "\"surround\": true",
          "\"receiverHasAtmos\": false"}) {
        ExpectRefusal("Apply", "('{\"home\": {" + key + "}}',)", home);
    }
    ExpectRefusal("Apply", "('{\"timetable\": [{\"at\": 1, \"home\": {\"surround\": true}}]}',)", home);
    const std::string ids = "client ids are those of the recording";
    ExpectRefusal("ClientId", "('den',)", ids);
    ExpectRefusal("ResetClientId", "()", ids);
    ExpectRefusal("Apply", "('{\"clientId\": \"den\"}',)", ids);
    const std::string client = "it does not know its clients, so name one with --client";
    ExpectRefusal("Event", "('', 7, [byte 1])", client);
    ExpectRefusal("Payload", "('', [byte 1])", client);
    ExpectRefusal("Payloads", "('', [byte 1], uint32 2)", client);
    ExpectRefusal("Apply", "('{\"events\": [{\"id\": 7}]}',)", client);
}

TEST_F(ReplayProgramTest, HeedsControlsThatNeedNoHome)
{
    const FakeClient client(bus_.Address(), "den");
    EXPECT_EQ(Control("Event", "('den', 7, [byte 1])"), "(1,)");
    EXPECT_THAT(client.Payloads(1), ElementsAre(Bytes{7, 0, 0, 0, 1, 0, 0, 0, 1}));
    EXPECT_EQ(Control("Apply", "('{\"faults\": {\"GetNetSpkNodeList\": {\"append\": \"02\"}}}',)"), "()");
    EXPECT_EQ(Server("GetNetSpkNodeList", "(0,)"), "([0x01, 0x02],)");
    EXPECT_THAT(Control("Calls"), HasSubstr("GetNetSpkNodeList"));
    EXPECT_EQ(Control("Away", "(uint32 1,)"), "()");
    EXPECT_EQ(Control("AwaitServer"), "()");
    EXPECT_EQ(Control("Exit"), "()");
}

} // namespace
} // namespace kiv::simulator
