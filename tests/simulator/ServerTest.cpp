#include "simulator/SimulatorTest.h"

#include <array>
#include <chrono>
#include <optional>

namespace kiv::simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class ServerTest : public SimulatorTest {
protected:
    ServerTest() { Start(); }
};

TEST_F(ServerTest, WhatOneCallSetsAnotherReads)
{
    EXPECT_EQ(Server("SetNetSpkSettingMode", "(80, 12)"), "(0,)");
    EXPECT_EQ(
        Server("StartNetworkSpeaker", Records({StartRecord(1, 0x01), StartRecord(2, 0x02), StartRecord(3, 0x03)})),
        "(3,)");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(3,)");
    EXPECT_EQ(State()["startReason"], 12);
    EXPECT_EQ(Server("DisableSurround"), "(0,)");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(0,)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "(1,)");
    EXPECT_EQ(State()["speakers"][0]["active"], false);
}

// Returns the event after a call about volumes. The arguments are the last bytes of MAC and IP, and the volumes.
Bytes VolumeEvent(const std::vector<std::array<std::uint8_t, 3>>& volumes)
{
    Writer event;
    event.Int32(0x02020040).Int32(static_cast<int>(14 * volumes.size()));
    for (const auto& [mac, ip, volume] : volumes) {
        event.Append(SpeakerMac(mac)).Append(Ip{192, 168, 0, ip}).Int32(volume);
    }
    return event.Written();
}

TEST_F(ServerTest, VolumeCallsReachSubscribers)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    const FakeClient other(bus_.Address(), "tv_8");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    other.Tell("check_dbus_connection", 8);

    EXPECT_EQ(Server("GetNetSpkVolume", "(" + MacArguments(0x01) + ", 0)"), "(20,)");
    EXPECT_EQ(Server("SetNetSpkVolume", "(" + MacArguments(0xa4) + ", 0, 77)"), "(77,)");
    EXPECT_EQ(Server("GetNetSpkVolume", "(" + MacArguments(0xee) + ", 0)"), "(-1,)");
    EXPECT_EQ(Server("GetNetSpkVolumeList", Records({StartRecord(0, 0x02), StartRecord(0, 0xa4)})), "(2,)");
    EXPECT_EQ(Server("GetNetSpkVolumeList", Records({})), "(0,)");
    EXPECT_EQ(Server("DecreaseNetSpkVolume", "(" + MacArguments(0xa4) + ", 0)"), "(76,)");

    EXPECT_THAT(
        subscriber.Payloads(4), ElementsAre(
                                    VolumeEvent({{0x01, 21, 20}}), VolumeEvent({{0xa4, 24, 77}}),
                                    VolumeEvent({{0x02, 22, 20}, {0xa4, 24, 77}}), VolumeEvent({{0xa4, 24, 76}})));
    EXPECT_THAT(other.Payloads(), IsEmpty());
}

TEST_F(ServerTest, TheVolumeEventComesAfterTheAnswer)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    subscriber.Ask("ResetAllNetSpkVolume", "()");
    subscriber.Payloads(1);
    const std::vector<std::string> arrivals = subscriber.Arrivals();
    ASSERT_GE(arrivals.size(), 2U);
    EXPECT_EQ(arrivals[arrivals.size() - 2], "answer");
    EXPECT_EQ(arrivals.back(), "event");
}

TEST_F(ServerTest, AFaultKeepsTheVolumeEventBack)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    Control("Fault", "('ResetAllNetSpkVolume', {'reply': <(4,)>})");
    Server("ResetAllNetSpkVolume");
    Server("SetNetSpkVolume", "(" + MacArguments(0x01) + ", 0, 5)");
    EXPECT_THAT(subscriber.Payloads(1), ElementsAre(VolumeEvent({{0x01, 21, 5}})));
}

TEST_F(ServerTest, ArgumentsComeInTheirOrder)
{
    EXPECT_EQ(
        Server("Vireon_StartNetworkSpeakerByID", "(byte 0x4b, byte 0x49, byte 0x56, byte 0x30, byte 0x31, 11, 12, 13)"),
        "(1,)");
    EXPECT_EQ(State()["speakers"][0]["channel"], 11);
    EXPECT_EQ(State()["settingMode"], 12);
    EXPECT_EQ(State()["startReason"], 13);
    EXPECT_EQ(Server("StartNetworkSpeakerByID", "(2, 14, 15)"), "(1,)");
    EXPECT_EQ(Server("GetNetSpkSettingMode"), "(14,)");
    EXPECT_EQ(State()["startReason"], 15);

    EXPECT_EQ(Server("StartNetSpkTest", "(" + MacArguments(0x02) + ", 1, 2, 3)"), "(0,)");
    EXPECT_EQ(State()["speakers"][1]["test"], (nlohmann::json{{"parameter", 1}, {"channelType", 2}, {"extra", 3}}));
    EXPECT_EQ(Server("SetNetSpkName", "(" + MacArguments(0x02) + ", 9, 'Door')"), "(0,)");
    EXPECT_EQ(State()["speakers"][1]["name"], "Door");
}

TEST_F(ServerTest, AStartedGroupIsTheActiveOne)
{
    Server("StartNetworkSpeakerGroupByMobile", "(4,)");
    const std::optional<Bytes> active = AnsweredBytes(Server("GetActiveNetSpkInfo", "(0,)"));
    ASSERT_TRUE(active);
    EXPECT_EQ(active->size(), 155U + 2 * 183);
    EXPECT_EQ(std::string(active->begin(), active->begin() + 8), std::string("Terrace\0", 8));
    EXPECT_EQ(Server("GetNetSpkListInfoNumber"), "(3,)");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(2,)");
}

TEST_F(ServerTest, RefusesArgumentsOfAnotherType)
{
    EXPECT_THAT(Server("StopNetworkSpeaker", "('x',)"), StartsWith("error org.freedesktop.DBus.Error.InvalidArgs"));
    EXPECT_THAT(Server("Nonsense"), StartsWith("error org.freedesktop.DBus.Error.UnknownMethod"));
}

TEST_F(ServerTest, FormsTheIdFromThePid)
{
    EXPECT_EQ(Server("check_dbus_connection", "(4711,)"), "('tv_4711',)");
    EXPECT_EQ(Server("SubscribeNamServiceCallback", "(4711,)"), "('tv_4711',)");
    EXPECT_EQ(Server("check_dbus_connection", "(-1,)"), "('tv_4294967295',)");
}

TEST_F(ServerTest, CountsSubscriptions)
{
    Server("SubscribeNamServiceCallback", "(7,)");
    Server("SubscribeNamServiceCallback", "(7,)");
    EXPECT_EQ(State()["clients"][0]["subscriptions"], 2);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Server("UnsubscribeNamServiceCallback", "(7,)"), "('tv_7',)");
    }
    EXPECT_EQ(State()["clients"][0]["subscriptions"], 0);
}

TEST_F(ServerTest, FaultError)
{
    Control("Fault", "('StopNetworkSpeaker', {'error': <'org.example.Bad'>, 'message': <'no, no'>})");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "error org.example.Bad: no, no");
    EXPECT_EQ(Server("DisableSurround"), "(0,)");
    Control("ClearFaults");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "(1,)");
}

TEST_F(ServerTest, FaultReplyOfAnyType)
{
    for (const std::string reply : {"('x',)", "(1, 2)", "({'a': <1>}, 2.5)"}) {
        Control("Fault", "('StopNetworkSpeaker', {'reply': <" + reply + ">})");
        EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), reply);
    }
    Control("Fault", "('StopNetworkSpeaker', {'reply': <'()'>})");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "()");
}

TEST_F(ServerTest, FaultKeepsTheHomeAsItIs)
{
    Control("Fault", "('SetNetSpkSettingMode', {'reply': <(0,)>})");
    Server("SetNetSpkSettingMode", "(81, 1)");
    EXPECT_EQ(State()["settingMode"], 80);
}

TEST_F(ServerTest, FaultSilent)
{
    Control("Fault", "('StopNetworkSpeaker', {'silent': <true>})");
    const unsigned silent = SendToServer("StopNetworkSpeaker", "(1,)");
    EXPECT_EQ(Server("DisableSurround"), "(0,)");
    EXPECT_FALSE(IsAnswered(silent));
}

TEST_F(ServerTest, FaultDelayLetsOtherCallsPass)
{
    Control("Fault", "('StopNetworkSpeaker', {'delay': <uint32 150>, 'count': <uint32 1>})");
    const auto before = std::chrono::steady_clock::now();
    const unsigned delayed = SendToServer("StopNetworkSpeaker", "(1,)");
    AwaitAnswer(delayed);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(150));

    Control("Fault", "('StopNetworkSpeaker', {'delay': <uint32 600000>, 'count': <uint32 1>})");
    const unsigned longDelayed = SendToServer("StopNetworkSpeaker", "(1,)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(2,)"), "(2,)");
    EXPECT_FALSE(IsAnswered(longDelayed));
}

TEST_F(ServerTest, FaultDelayGoesWithAnotherOutcome)
{
    Control("Fault", "('StopNetworkSpeaker', {'delay': <uint32 1>, 'error': <'org.example.Late'>})");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(1,)"), "error org.example.Late: ");
}

TEST_F(ServerTest, FaultExit)
{
    Control("Fault", "('StopNetworkSpeaker', {'exit': <true>})");
    EXPECT_THAT(Server("StopNetworkSpeaker", "(1,)"), StartsWith("error org.freedesktop.DBus.Error.NoReply"));
    EXPECT_EQ(program_->ExitCode(), 1);
}

TEST_F(ServerTest, DoesNotAnswerWhoExpectsNoReply)
{
    for (const std::string fault : {"{'delay': <uint32 0>}", "{'reply': <(9,)>}", "{'error': <'org.example.Bad'>}"}) {
        Control("Fault", "('StopNetworkSpeaker', " + fault + ")");
        const unsigned serial = SendToServer("StopNetworkSpeaker", "(1,)", G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        EXPECT_EQ(Server("DisableSurround"), "(0,)");
        EXPECT_FALSE(IsAnswered(serial)) << fault;
    }
}

TEST_F(ServerTest, RecordsItsCalls)
{
    const std::string sender = connection_->UniqueName();
    Server("check_dbus_connection", "(7,)");
    SendToServer(
        "StopNetworkSpeaker", "(3,)",
        static_cast<GDBusMessageFlags>(G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED | G_DBUS_MESSAGE_FLAGS_NO_AUTO_START));
    Server("DisableSurround");
    EXPECT_EQ(
        Control("Calls"), "([(1, '" + sender + "', 'check_dbus_connection', 0, <(7,)>), (2, '" + sender +
                              "', 'StopNetworkSpeaker', 3, <(3,)>), (3, '" + sender +
                              "', 'DisableSurround', 0, <'()'>)],)");
    Control("ForgetCalls");
    EXPECT_EQ(Control("Calls"), "([],)");
    Server("DisableSurround");
    EXPECT_THAT(Control("Calls"), StartsWith("([(1, "));
}

TEST_F(ServerTest, RecordsCallsThatGetNoAnswer)
{
    Control("Fault", "('StopNetworkSpeaker', {'silent': <true>})");
    SendToServer("StopNetworkSpeaker", "(1,)");
    EXPECT_THAT(Control("Calls"), HasSubstr("'StopNetworkSpeaker'"));
}

} // namespace
} // namespace kiv::simulator
