#include "kivctl/KivctlTest.h"

namespace kiv::ctl::name_and_volume_test {
namespace {

// 192.168.0.21 with its first octet in the lowest byte.
constexpr const char* kIp = "352364736";

class NameAndVolumeTest : public KivctlTest {
protected:
    // Returns the simulator's state of a speaker.
    Json Speaker(const std::string& mac) const
    {
        const Json state = State();
        for (const Json& speaker : state.at("speakers")) {
            if (speaker.at("mac") == mac) {
                return speaker;
            }
        }
        return nullptr;
    }
};

const struct {
    const char* command;
    const char* method;
} kRequests[] = {
    {"get", "GetNetSpkVolume"},
    {"up", "IncreaseNetSpkVolume"},
    {"down", "DecreaseNetSpkVolume"},
    {"reset", "ResetNetSpkVolume"},
};

// Returns the arguments, with those that make kivctl wait for the volumes and decode them.
Arguments Waiting(Arguments arguments)
{
    arguments.insert(arguments.end(), {"--wait", "--layout", KIV_LAYOUT_FILE});
    return arguments;
}

TEST_F(NameAndVolumeTest, NameIsSent)
{
    ExpectOutput({"name", kLeft, "Stube links ä", "--ip", "192.168.0.21"}, "sent");
    EXPECT_EQ(Speaker(kLeft).at("name"), "Stube links ä");
    ExpectJson({"name", kLeft, ""}, {{"sent", true}});
    ExpectOutput({"name", kLeft, "stop"}, "sent");
    ExpectCalls(
        {"SetNetSpkName(" + kLeftBytes + ", " + kIp + ", 'Stube links ä')", "SetNetSpkName(" + kLeftBytes + ", 0, '')",
         "SetNetSpkName(" + kLeftBytes + ", 0, 'stop')"});
}

TEST_F(NameAndVolumeTest, VolumeIsSent)
{
    ExpectOutput({"volume", "set", kLeft, "77", "--ip", "192.168.0.21"}, "sent");
    EXPECT_EQ(Speaker(kLeft).at("volume"), 77);
    ExpectJson({"call", "SetNetSpkVolume", kLeft, "-1", "--ip", "1.2.3.255"}, {{"sent", true}});
    ExpectCalls(
        {"SetNetSpkVolume(" + kLeftBytes + ", " + kIp + ", 77)", "SetNetSpkVolume(" + kLeftBytes + ", -16580095, -1)"});
}

TEST_F(NameAndVolumeTest, OneSpeakerIsNamedByItsAddresses)
{
    for (const auto& [command, method] : kRequests) {
        SCOPED_TRACE(command);
        ExpectOutput({"volume", command, kLeft, "--ip", "192.168.0.21"}, "sent");
        EXPECT_EQ(Calls().back(), std::string(method) + "(" + kLeftBytes + ", " + kIp + ")");
        ExpectJson({"volume", command, kLeft}, {{"sent", true}});
        EXPECT_EQ(Calls().back(), std::string(method) + "(" + kLeftBytes + ", 0)");
    }
}

TEST_F(NameAndVolumeTest, SeveralSpeakersTravelInAList)
{
    const std::string file = WriteFile(R"(["02:4b:49:56:00:02"])");
    for (const auto& [command, method] : kRequests) {
        SCOPED_TRACE(command);
        const std::string list = std::string(method) + "List([";
        ExpectOutput({"volume", command, kLeft + "=3", kRight}, "sent");
        EXPECT_EQ(Calls().back(), list + Record(3, kLeftBytes) + ", " + Record(0, kRightBytes) + "],)");
        ExpectJson({"volume", command, "--file", file}, {{"sent", true}});
        EXPECT_EQ(Calls().back(), list + Record(0, kRightBytes) + "],)");
        ExpectOutput({"volume", command, kLeft + "=3"}, "sent");
        EXPECT_EQ(Calls().back(), list + Record(3, kLeftBytes) + "],)");
    }
}

TEST_F(NameAndVolumeTest, ResetAllSendsNoArguments)
{
    ExpectOutput({"volume", "reset-all"}, "sent");
    ExpectJson({"volume", "reset-all"}, {{"sent", true}});
    ExpectCalls({"ResetAllNetSpkVolume()", "ResetAllNetSpkVolume()"});
}

const std::string kUnknown = "02:00:00:00:00:99";
constexpr const char* kRefused =
    ": the server refused it; kivctl list nodes shows which speakers there are; one that is "
    "only seen must be connected first: kivctl connect new MAC\n";

TEST_F(NameAndVolumeTest, ARequestThatTheServerRefusesIsAFailure)
{
    const struct {
        Arguments arguments;
        const char* function;
    } cases[] = {
        {{"name", kUnknown, "hello"}, "SetNetSpkName"},
        {{"volume", "set", kUnknown, "30"}, "SetNetSpkVolume"},
        {{"volume", "set", kUnknown, "30", "--wait"}, "SetNetSpkVolume"},
        {{"call", "SetNetSpkName", kUnknown, "hello"}, "SetNetSpkName"},
        {{"call", "SetNetSpkVolume", kUnknown, "30"}, "SetNetSpkVolume"},
    };
    for (const auto& [arguments, function] : cases) {
        EXPECT_THAT(Run(arguments), Ends(1, "", std::string("kivctl: ") + function + kRefused));
    }
    for (const auto& [command, method] : kRequests) {
        EXPECT_EQ(Run({"volume", command, kUnknown}).err, std::string("kivctl: ") + method + kRefused);
        EXPECT_EQ(Run({"call", method, kUnknown}).err, std::string("kivctl: ") + method + kRefused);
        SetFault((std::string(method) + "List").c_str(), "reply", "<(-1,)>");
        EXPECT_EQ(Run({"volume", command, kLeft, kRight}).err, std::string("kivctl: ") + method + "List" + kRefused);
        EXPECT_EQ(Run({"call", std::string(method) + "List", kLeft}).exitCode, 1);
    }
    SetFault("ResetAllNetSpkVolume", "reply", "<(-1,)>");
    for (const Arguments& arguments :
         {Arguments{"volume", "reset-all"}, {"volume", "reset-all", "--wait"}, {"call", "ResetAllNetSpkVolume"}}) {
        ExpectFailure(arguments, 1, "ResetAllNetSpkVolume: the server refused it");
    }
}

TEST_F(NameAndVolumeTest, TheAdviceHelpsWithASpeakerThatIsOnlySeen)
{
    const std::string bedroom = "02:4b:49:56:00:05";
    EXPECT_EQ(Run({"name", bedroom, "Bed"}).err, std::string("kivctl: SetNetSpkName") + kRefused);
    ExpectOutput(
        {"start", bedroom}, "the server answered 0 (none plays now; a speaker that is only seen must be connected "
                            "first: kivctl connect new MAC)");
    EXPECT_EQ(Run({"connect", "new", bedroom}).exitCode, 0);
    ExpectOutput({"name", bedroom, "Bed"}, "sent");
    ExpectOutput({"start", bedroom}, "the server answered 1 (number of speakers that play now)");
    ExpectOutput({"start", "--file", WriteFile("[]")}, "the server answered 0 (number of speakers that play now)");
}

TEST_F(NameAndVolumeTest, ARequestThatTheBusDeniesIsAFailure)
{
    Forbid(R"(<deny send_interface="org.lumra.tv.networkspeaker.server.interface" send_member="SetNetSpkVolume"/>)");
    for (const Arguments& arguments :
         {Arguments{"volume", "set", kLeft, "1"}, Waiting({"volume", "set", kLeft, "1"}),
          Arguments{"call", "SetNetSpkVolume", kLeft, "1"}}) {
        ExpectFailure(
            arguments, 1,
            "SetNetSpkVolume: the bus answered with the error org.freedesktop.DBus.Error.AccessDenied: Rejected");
    }
}

TEST_F(NameAndVolumeTest, ARequestThatIsNotAnsweredIsAFailure)
{
    SetFault("IncreaseNetSpkVolumeList", "silent", "true");
    EXPECT_THAT(
        Run(Waiting({"volume", "up", kLeft, kRight})),
        Ends(
            1, _,
            "kivctl: IncreaseNetSpkVolumeList: the server has not answered in time; the server's own log tells why\n"));
}

TEST_F(NameAndVolumeTest, ARequestThatTheServerDoesNotSurviveIsAFailure)
{
    SetFault("SetNetSpkName", "exit", "true");
    const Ended ended = Run({"--json", "name", kLeft, "Left"});
    EXPECT_EQ(ended.exitCode, 1);
    const std::string reason = Json::parse(ended.out).at("error");
    EXPECT_THAT(
        reason, StartsWith("SetNetSpkName: the bus answered with the error org.freedesktop.DBus.Error.NoReply: "));
}

TEST_F(NameAndVolumeTest, AVolumeComesAsAnEvent)
{
    Running monitor(bus_, {"monitor", "--count", "1"});
    ASSERT_EQ(monitor.ErrLine(), "kivctl: ready, waiting for events");
    ExpectOutput({"volume", "get", kLeft}, "sent");
    const std::string line = monitor.OutLine();
    EXPECT_THAT(line, EndsWith(" event 0x02020040, length 14: 02 4b 49 56 00 01 c0 a8 00 15 14 00 00 00"));
    EXPECT_EQ(monitor.Wait().exitCode, 0);
}

TEST_F(NameAndVolumeTest, TheVolumeIsShownToWhomWaits)
{
    ExpectOutput(Waiting({"volume", "get", kLeft}), kLeft + "  20");
    ExpectOutput(Waiting({"volume", "set", kLeft, "100"}), kLeft + "  100");
    ExpectOutput(Waiting({"volume", "down", kLeft, kRight}), kLeft + "  99\n" + kRight + "  19");
    ExpectOutput(
        Waiting({"volume", "reset-all"}),
        kLeft + "  25\n" + kRight + "  25\n02:4b:49:56:00:03  25\n02:4b:49:56:00:a4  25");
    ExpectJson(
        Waiting({"volume", "get", kRight}),
        {{"sent", true}, {"volumes", {{{"mac", kRight}, {"ip", "192.168.0.22"}, {"volume", 25}}}}});
}

TEST_F(NameAndVolumeTest, ASpeakerOfAListThatTheServerDoesNotKnowHasNoVolume)
{
    EXPECT_THAT(
        Run(Waiting({"volume", "up", kUnknown, kLeft})),
        Ends(1, "", HasSubstr(": sent, but no volume of " + kUnknown + " came within 3 s")));
    const Json json = Json::parse(Run(Waiting({"--json", "volume", "get", kUnknown, kLeft})).out);
    EXPECT_EQ(json.at("volumes").at(0).at("mac"), kLeft);
    EXPECT_THAT(json.at("error").get<std::string>(), HasSubstr("no volume of " + kUnknown + " came"));
}

TEST_F(NameAndVolumeTest, WhereNoVolumeComesEventsAreSuspect)
{
    const std::string suspect = ", or its events do not arrive";
    Forbid(R"(<deny send_path="*" send_member="nam_notify_subscriber"/>)");
    const std::string denied = Run(Waiting({"volume", "get", kLeft})).err;
    EXPECT_THAT(denied, HasSubstr(suspect + "; kivctl doctor tells why\n"));

    Forbid("");
    const Ended some = Run(Waiting({"volume", "get", kLeft, "02:00:00:00:00:99"}));
    EXPECT_EQ(some.exitCode, 1);
    EXPECT_THAT(some.err, HasSubstr("no volume of 02:00:00:00:00:99 came"));
    EXPECT_THAT(some.err, Not(HasSubstr(suspect)));
}

TEST_F(NameAndVolumeTest, WithoutALayoutTheEventIsShownAsItCame)
{
    ExpectOutput(
        {"volume", "get", kLeft, "--wait"}, "event 0x02020040, length 14: 02 4b 49 56 00 01 c0 a8 00 15 14 00 00 00\n"
                                            "--layout names the fields of the event");
}

TEST_F(NameAndVolumeTest, WaitingForAVolumeFailsWhereNoEventsCome)
{
    Forbid(kDenyClientName);
    ExpectFailure(Waiting({"volume", "get", kLeft}), 1, "no volume can come: nobody owns the bus name");
    Break("SubscribeNamServiceCallback");
    ExpectFailure(Waiting({"volume", "get", kLeft}), 1, "SubscribeNamServiceCallback returned 0");
    SwitchFeatureOff();
    ExpectFailure(Waiting({"volume", "get", kLeft}), 3, "this device has no network speakers");
}

TEST_F(NameAndVolumeTest, OnATerminalTheVolumeIsWaitedFor)
{
    EXPECT_EQ(RunOnTerminal({"volume", "get", kLeft, "--layout", KIV_LAYOUT_FILE}), kLeft + "  20\r\n");
    EXPECT_EQ(RunOnTerminal({"volume", "get", kLeft, "--no-wait"}), "sent\r\n");
}

TEST_F(NameAndVolumeTest, BadArgumentsSendNothing)
{
    std::vector<Refusal> cases = {
        {{"name", kLeft}, "NAME"},
        {{"name", "left", "Left"}, "MAC: must be a MAC address such as 02:4b:49:56:00:01, got \"left\""},
        {{"name", kLeft, "\xff"}, "NAME must be valid UTF-8"},
        {{"volume", "set", kLeft}, "VOLUME"},
        {{"volume", "get", kLeft, "--wait", "--no-wait"}, "--wait"},
        {{"volume", "get", kLeft, "--wait", "--layout", "/nowhere"}, "/nowhere: No such file"},
        {{"volume", "up"}, "speakers must be named as SPEAKER or in --file, got neither"},
        {{"volume", "up", "left"}, "must be a MAC address such as 02:4b:49:56:00:01, got \"left\""},
        {{"volume", "up", kLeft, "--file", WriteFile("[]")},
         "speakers must be named as SPEAKER or in --file, got both"},
        {{"volume", "up", kLeft, kRight, "--ip", "1.2.3.4"}, "--ip must go with the MAC address of one speaker"},
        {{"volume", "up", kLeft + "=1", "--ip", "1.2.3.4"}, "--ip must go with the MAC address of one speaker"},
        {{"volume", "reset-all", kLeft}, kLeft},
    };
    for (const char* ip : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.04", "1.2.3.4 ", "0x1.2.3.4", "1.2.3.-4"}) {
        cases.push_back(
            {{"volume", "set", kLeft, "1", "--ip", ip},
             "--ip: must be an IPv4 address such as 192.168.0.21, got \"" + std::string(ip) + '"'});
    }
    for (const std::string volume : {"loud", "-5", "101", "500", "5000000000", "1.5", ""}) {
        cases.push_back(
            {{"volume", "set", kLeft, volume}, "VOLUME: must be an integer from 0 to 100, got \"" + volume + '"'});
    }
    ExpectRefused(cases);
}

TEST_F(NameAndVolumeTest, AListThatTheBusCannotCarryIsNotSent)
{
    std::string list = "[0";
    for (size_t i = 0; i < 64UL * 1024 * 1024 / 86; ++i) {
        list += ",0";
    }
    ExpectFailure(
        {"volume", "up", "--file", WriteFile(list + "]")}, 2, "780336 speakers are more than the bus carries");
    ExpectCalls({});
}

} // namespace
} // namespace kiv::ctl::name_and_volume_test
