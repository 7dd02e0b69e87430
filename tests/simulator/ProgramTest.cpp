#include "SimulatorTest.h"
#include "simulator/Interfaces.h"

namespace kiv::simulator {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ProgramTest : public SimulatorTest {
protected:
    Program Run(std::vector<std::string> arguments)
    {
        return Program(std::move(arguments), bus_.Directory() / "errors");
    }

    void ExpectBadSetUp(const std::string& setUp, const std::string& reason)
    {
        std::filesystem::remove(bus_.Directory() / "errors");
        Program program = WithSetUp(setUp);
        EXPECT_EQ(program.Ready(), "");
        EXPECT_EQ(program.ExitCode(), 2) << setUp;
        EXPECT_THAT(program.Errors(), HasSubstr("set-up.json: ")) << setUp;
        EXPECT_THAT(program.Errors(), HasSubstr(reason)) << setUp;
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

TEST_F(ProgramTest, RefusesBadArguments)
{
    EXPECT_EQ(Run({"--nonsense"}).ExitCode(), 2);
    EXPECT_EQ(Run({"--ready-fd", "x"}).ExitCode(), 2);
    EXPECT_EQ(Run({"--ready-fd"}).ExitCode(), 2);
}

TEST_F(ProgramTest, PrintsCallsAndPushes)
{
    Start({"--verbose"});
    const FakeClient client(bus_.Address(), "tv_7");
    client.Tell("SubscribeNamServiceCallback", 7);
    Server("StartNetworkSpeaker", Records({StartRecord(1, 0x01)}));
    Control("SetAtmos", "(true,)");
    const std::string printed = program_->Errors();
    EXPECT_THAT(printed, HasSubstr(client.BusName() + " -> SubscribeNamServiceCallback (7)\n"));
    EXPECT_THAT(printed, HasSubstr(client.BusName() + " <- SubscribeNamServiceCallback ('tv_7')\n"));
    EXPECT_THAT(printed, HasSubstr(" -> StartNetworkSpeaker (<86 bytes>)\n"));
    EXPECT_THAT(printed, HasSubstr("tv_7 <- nam_notify_subscriber ([0x28, "));
    EXPECT_THAT(printed, HasSubstr("tv_7 -> ()\n"));
}

TEST_F(ProgramTest, SetUpIsAppliedBeforeTheFirstCall)
{
    const nlohmann::json faults = {
        {"StopNetworkSpeaker", {{"error", "org.example.Bad"}, {"message", "no"}, {"count", 1U}}},
        {"DisableSurround", {{"reply", "(1, 2)"}, {"delay", 1U}}},
        {"GetSurroundChannelNumber", {{"silent", false}}},
    };
    Program program = WithSetUp(nlohmann::json{{"clientId", "den"}, {"faults", faults}}.dump());
    ASSERT_EQ(program.Ready(), "ready\n") << program.Errors();
    EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('den',)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "error org.example.Bad: no");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "(1,)");
    EXPECT_EQ(Server("DisableSurround"), "(1, 2)");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(0,)");
}

TEST_F(ProgramTest, AnEmptySetUpIsFine)
{
    Program program = WithSetUp("{}");
    EXPECT_EQ(program.Ready(), "ready\n") << program.Errors();
}

TEST_F(ProgramTest, RefusesABadSetUp)
{
    ExpectBadSetUp("", "parse error");
    ExpectBadSetUp("{", "parse error");
    ExpectBadSetUp("[]", "a set-up is an object");
    ExpectBadSetUp(R"({"colour": 1})", "'colour' cannot be 1");
    ExpectBadSetUp(R"({"clientId": 1})", "'clientId' cannot be 1");
    ExpectBadSetUp(R"({"faults": []})", "'faults' is an object");
    ExpectBadSetUp(R"({"faults": {"DisableSurround": 1}})", "a fault is an object");
    ExpectBadSetUp(R"({"faults": {"Nonsense": {}}})", "no method 'Nonsense'");
    ExpectBadSetUp(
        R"({"faults": {"DisableSurround": {"colour": 1}}})", "DisableSurround: there is no fault key 'colour'");
    ExpectBadSetUp(R"({"faults": {"DisableSurround": {"delay": "1"}}})", "'delay' has type 'u'");
    ExpectBadSetUp(R"({"faults": {"DisableSurround": {"delay": -1}}})", "'delay' cannot be -1");
    ExpectBadSetUp(R"({"faults": {"DisableSurround": {"delay": 4294967296}}})", "'delay' cannot be 4294967296");
    ExpectBadSetUp(R"({"faults": {"DisableSurround": {"reply": "(1"}}})", "'(1' is no value");
}

TEST_F(ProgramTest, RefusesASetUpFileThatIsNotThere)
{
    Program program = Run({"--set-up", "/nonexistent/file"});
    EXPECT_EQ(program.ExitCode(), 2);
    EXPECT_THAT(program.Errors(), HasSubstr("/nonexistent/file: No such file or directory"));
}

} // namespace
} // namespace kiv::simulator
