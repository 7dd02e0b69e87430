#include "simulator/Interfaces.h"
#include "simulator/SimulatorTest.h"
#include "support/Wait.h"

#include <csignal>
#include <future>

namespace kiv::simulator {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

const std::string kInvalid = std::string("error ") + kInvalidArguments;

const Bytes kAtmosOn = {0x28, 0x00, 0x02, 0x02, 4, 0, 0, 0, 1, 0, 0, 0};
const Bytes kExiting = {0x31, 0x00, 0x02, 0x02, 0, 0, 0, 0};

// Returns the answer to arguments that are not valid.
std::string Invalid(const std::string& reason)
{
    return kInvalid + ": " + reason;
}

// Returns a text as the only argument.
std::string Quoted(const std::string& text)
{
    return TakeText(g_variant_print(Own(g_variant_new("(s)", text.c_str())).get(), FALSE));
}

class ControlTest : public SimulatorTest {
protected:
    ControlTest() { Start(); }
};

TEST_F(ControlTest, ARefusedFaultIsAnInvalidArgument)
{
    EXPECT_THAT(Control("Fault", "('Nonsense', {'exit': <true>})"), StartsWith(kInvalid));
}

TEST_F(ControlTest, AnyTextCanBeTheClientId)
{
    for (const std::string id : {"living_room", "", "no/bus name %s", "ümläut"}) {
        EXPECT_EQ(Control("ClientId", "('" + id + "',)"), "()");
        EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('" + id + "',)");
        EXPECT_EQ(Server("SubscribeNamServiceCallback", "(8,)"), "('" + id + "',)");
    }
    Control("ResetClientId");
    EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('tv_7',)");
}

TEST_F(ControlTest, AtmosReachesSubscribersOnlyWhenItBegins)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    const FakeClient other(bus_.Address(), "tv_8");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    other.Tell("check_dbus_connection", 8);

    EXPECT_EQ(Control("Atmos", "(true,)"), "()");
    EXPECT_EQ(Server("kiv_is_receiver_atmos"), "(true,)");
    EXPECT_EQ(Control("Atmos", "(true,)"), "()");
    EXPECT_EQ(Control("Atmos", "(false,)"), "()");
    EXPECT_EQ(Server("kiv_is_receiver_atmos"), "(false,)");
    EXPECT_EQ(Control("Atmos", "(true,)"), "()");
    EXPECT_THAT(subscriber.Payloads(), ElementsAre(kAtmosOn, kAtmosOn));

    Control("Atmos", "(false,)");
    subscriber.Tell("UnsubscribeNamServiceCallback", 7);
    Control("Atmos", "(true,)");
    EXPECT_THAT(subscriber.Payloads(), ElementsAre(kAtmosOn, kAtmosOn));
    EXPECT_THAT(other.Payloads(), IsEmpty());
}

constexpr char kRefused[] = "error org.example.Refused: client tv_7: org.example.Refused: not now";

TEST_F(ControlTest, AtmosReportsTheClientsErrorAndBeginsAllTheSame)
{
    const FakeClient refusing(bus_.Address(), "tv_7", FakeClient::Manner::kRefuses);
    refusing.Tell("SubscribeNamServiceCallback", 7);
    EXPECT_EQ(Control("Atmos", "(true,)"), kRefused);
    EXPECT_EQ(Server("kiv_is_receiver_atmos"), "(true,)");
    EXPECT_THAT(refusing.Payloads(), ElementsAre(kAtmosOn));
    EXPECT_EQ(Control("Apply", Quoted(R"({"events": [{"payload": "01"}], "away": 0})")), kRefused);
    EXPECT_EQ(Control("AwaitServer"), "()");
}

TEST_F(ControlTest, AtmosDoesNotMindIdsThatNoClientCanHave)
{
    Control("ClientId", "('no name',)");
    Server("SubscribeNamServiceCallback", "(9,)");
    EXPECT_EQ(Control("Atmos", "(true,)"), "()");
}

TEST_F(ControlTest, AChangeIsAwaited)
{
    const std::string unknown = Control("AwaitChange", "('',)");
    EXPECT_EQ(unknown, Control("Show"));
    const auto next = [this](const std::string& known) {
        const Variant value = Value(known);
        const char* text = nullptr;
        g_variant_get(value.get(), "(&s)", &text);
        return std::async(std::launch::async, [this, known = Quoted(text)] { return Control("AwaitChange", known); });
    };

    auto atmos = next(unknown);
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(0,)");
    EXPECT_EQ(atmos.wait_for(50ms), std::future_status::timeout) << "nothing has changed";
    Control("Atmos", "(true,)");
    const std::string withAtmos = atmos.get();
    EXPECT_THAT(withAtmos, HasSubstr("\"receiverHasAtmos\": true"));

    auto mode = next(withAtmos);
    auto alsoMode = next(withAtmos);
    Server("SetNetSpkSettingMode", "(81, 0)");
    const std::string withMode = mode.get();
    EXPECT_THAT(withMode, HasSubstr("\"settingMode\": 81"));
    EXPECT_EQ(alsoMode.get(), withMode);

    auto inTime = next(withMode);
    Control("Apply", R"(('{"timetable": [{"at": 10, "home": {"settingMode": 7}}]}',))");
    EXPECT_THAT(inTime.get(), HasSubstr("\"settingMode\": 7,"));
}

TEST_F(ControlTest, TheVolumeIsSetAtTheSpeaker)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    EXPECT_EQ(Control("Volume", "('02:4b:49:56:00:01', 44)"), "()");
    EXPECT_THAT(Control("Show"), HasSubstr("\"volume\": 44"));
    EXPECT_THAT(subscriber.Payloads(), ElementsAre(Bytes{0x40, 0, 2, 2,   14,  0, 0,  0,  2, 0x4b, 0x49,
                                                         0x56, 0, 1, 192, 168, 0, 21, 44, 0, 0,    0}));
    EXPECT_THAT(Control("Volume", "('02:4b:49:56:00:05', 44)"), StartsWith(kInvalid)) << "not connected";
    EXPECT_THAT(
        Control("Volume", "('zebra', 44)"),
        HasSubstr(R"(must be a MAC address such as 02:4b:49:56:00:01, got "zebra")"));
}

TEST_F(ControlTest, ASpeakerIsUnpluggedAndPluggedIn)
{
    const std::string mac = "02:4b:49:56:00:01";
    EXPECT_EQ(
        Control("Apply", R"(('{"home": {"speakers": [{"name": "Hall", "mac": ")" + mac + R"(", "active": true}]}}',))"),
        "()");
    EXPECT_EQ(Control("Plug", "('" + mac + "', true)"), "()");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(1,)") << "it was plugged in already";
    EXPECT_EQ(Control("Plug", "('" + mac + "', false)"), "()");
    EXPECT_EQ(Server("GetSurroundChannelNumber"), "(0,)");
    EXPECT_EQ(Server("GetSpksConnectionTypeByID", "(1,)"), "(0,)");
    EXPECT_EQ(Control("Plug", "('" + mac + "', true)"), "()");
    EXPECT_EQ(Server("GetSpksConnectionTypeByID", "(1,)"), "(1,)");
    EXPECT_THAT(Control("Plug", "('02:4b:49:56:00:77', true)"), StartsWith(kInvalid));
}

TEST_F(ControlTest, SendEventAnnouncesItsLength)
{
    const FakeClient client(bus_.Address(), "tv_7");
    EXPECT_EQ(Control("Event", "('tv_7', -2, [byte 5, 6, 7])"), "(1,)");
    EXPECT_EQ(Control("Event", "('tv_7', 0, @ay [])"), "(1,)");
    EXPECT_THAT(
        client.Payloads(),
        ElementsAre(Bytes{0xfe, 0xff, 0xff, 0xff, 3, 0, 0, 0, 5, 6, 7}, Bytes{0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(ControlTest, SendPayloadSendsTheBytesAsTheyAre)
{
    const FakeClient client(bus_.Address(), "tv_7");
    EXPECT_EQ(Control("Payload", "('tv_7', [byte 1, 2])"), "(1,)");
    EXPECT_EQ(Control("Payload", "('tv_7', @ay [])"), "(1,)");
    EXPECT_THAT(client.Payloads(), ElementsAre(Bytes{1, 2}, Bytes{}));
}

TEST_F(ControlTest, TheEmptyIdMeansEveryClientThatAsked)
{
    const FakeClient first(bus_.Address(), "tv_7");
    const FakeClient second(bus_.Address(), "tv_8");
    const FakeClient stranger(bus_.Address(), "tv_9");
    first.Tell("check_dbus_connection", 7);
    second.Tell("check_dbus_connection", 8);
    EXPECT_EQ(Control("Payload", "('', [byte 1])"), "(2,)");
    EXPECT_THAT(first.Payloads(), ElementsAre(Bytes{1}));
    EXPECT_THAT(second.Payloads(), ElementsAre(Bytes{1}));
    EXPECT_THAT(stranger.Payloads(), IsEmpty());
}

TEST_F(ControlTest, ForgetsClientsThatLeaveTheBus)
{
    std::string left;
    {
        const FakeClient client(bus_.Address(), "tv_7");
        client.Tell("SubscribeNamServiceCallback", 7);
        left = client.BusName();
        EXPECT_EQ(State()["clients"][0]["busName"], left);
    }
    test::WaitUntil("the client to leave the bus", [&] { return !HasOwner(left); });
    EXPECT_THAT(State()["clients"], IsEmpty());
    EXPECT_EQ(Control("Payload", "('', [byte 1])"), "(0,)");
}

TEST_F(ControlTest, SendingReportsTheClientsError)
{
    const FakeClient refusing(bus_.Address(), "tv_7", FakeClient::Manner::kRefuses);
    EXPECT_EQ(Control("Payload", "('tv_7', [byte 1])"), kRefused);
    EXPECT_EQ(Control("Event", "('tv_7', 1, [byte 1])"), kRefused);
    EXPECT_THAT(
        Control("Event", "('tv_8', 1, [byte 1])"),
        StartsWith("error org.freedesktop.DBus.Error.NameHasNoOwner: client tv_8: "));
    EXPECT_THAT(Control("Event", "('no name', 1, [byte 1])"), StartsWith(kInvalid));
}

TEST_F(ControlTest, AClientsInvalidArgumentsAreNotThoseOfTheCall)
{
    const FakeClient client(bus_.Address(), "tv_7", FakeClient::Manner::kRefuses, kInvalidArguments);
    client.Tell("SubscribeNamServiceCallback", 7);
    const std::string failed =
        "error org.freedesktop.DBus.Error.Failed: client tv_7: org.freedesktop.DBus.Error.InvalidArgs: not now";
    EXPECT_EQ(Control("Event", "('tv_7', 1, [byte 1])"), failed);
    EXPECT_EQ(Control("Payload", "('tv_7', [byte 1])"), failed);
    EXPECT_EQ(Control("Atmos", "(true,)"), failed);
    EXPECT_EQ(Control("Apply", Quoted(R"({"events": [{"id": 7}]})")), failed);
}

TEST_F(ControlTest, SendPayloadsPushesManyInOrder)
{
    const FakeClient client(bus_.Address(), "tv_7");
    EXPECT_EQ(Control("Payloads", "('tv_7', [byte 9], uint32 3000)"), "(3000,)");
    EXPECT_EQ(client.Payloads().size(), 3000U);
    EXPECT_EQ(Control("Payloads", "('tv_7', [byte 9], uint32 0)"), "(0,)");
    EXPECT_EQ(Control("Payloads", "('tv_8', [byte 9], uint32 3)"), "(0,)");
}

TEST_F(ControlTest, CallClientTellsWhatCameBack)
{
    const FakeClient client(bus_.Address(), "tv_7");
    EXPECT_EQ(Control("CallClient", "('tv_7', 'Any', <(1, 'x')>, uint32 60000)"), "(true, '', <'()'>)");
    EXPECT_EQ(Control("CallClient", "('tv_7', 'Any', <'()'>, uint32 60000)"), "(true, '', <'()'>)");
    EXPECT_THAT(client.Calls(), ElementsAre("Any(1, 'x')", "Any()"));

    const FakeClient refusing(bus_.Address(), "tv_8", FakeClient::Manner::kRefuses);
    EXPECT_EQ(Control("CallClient", "('tv_8', 'Any', <(1,)>, uint32 60000)"), "(true, 'org.example.Refused', <'()'>)");

    const FakeClient silent(bus_.Address(), "tv_9", FakeClient::Manner::kIsSilent);
    EXPECT_EQ(
        Control("CallClient", "('tv_9', 'Any', <(1,)>, uint32 20)"),
        "(false, 'org.freedesktop.DBus.Error.Timeout', <'()'>)");

    EXPECT_EQ(
        Control("CallClient", "('tv_10', 'Any', <(1,)>, uint32 60000)"),
        "(false, 'org.freedesktop.DBus.Error.NameHasNoOwner', <'()'>)");
}

TEST_F(ControlTest, CallClientRefusesWhatCannotTravel)
{
    EXPECT_THAT(Control("CallClient", "('tv_7', '000_x', <(1,)>, uint32 1)"), StartsWith(kInvalid));
    EXPECT_THAT(Control("CallClient", "('tv_7', 'Any', <1>, uint32 1)"), StartsWith(kInvalid));
    EXPECT_THAT(Control("CallClient", "('', 'Any', <(1,)>, uint32 1)"), StartsWith(kInvalid));
}

TEST_F(ControlTest, ModelShowsTheHome)
{
    const nlohmann::json state = State();
    EXPECT_EQ(state["speakers"].size(), 4U);
    EXPECT_EQ(state["speakers"][3]["mac"], "02:4b:49:56:00:a4");
    EXPECT_EQ(state["speakers"][3]["ip"], "192.168.0.24");
    EXPECT_EQ(state["soundbars"][0]["name"], "Soundbar");
    EXPECT_EQ(state["receiverHasAtmos"], false);
    EXPECT_THAT(state["clients"], IsEmpty());
}

TEST_F(ControlTest, ShowHasTheFaultsAsAScenarioHasThem)
{
    EXPECT_EQ(State()["faults"], nlohmann::json::object());
    const nlohmann::json faults = {
        {"*", {{"delay", 5}}},
        {"DisableSurround", {{"reply", "(7,)"}, {"every", 2}}},
        {"GetSoundbarDeviceInfo", {{"bytes", "01 ff"}, {"count", 3}}},
        {"StopNetworkSpeaker", {{"error", "org.example.Bad"}, {"message", "no"}, {"count", 2}}},
    };
    Control("Apply", Quoted(nlohmann::json{{"faults", faults}}.dump()));
    EXPECT_EQ(State()["faults"], faults);

    Server("StopNetworkSpeaker", "(1,)");
    EXPECT_EQ(State()["faults"]["StopNetworkSpeaker"]["count"], 1);
    EXPECT_EQ(Control("Fault", "('DisableSurround', {'reply': <(8, 'x')>})"), "()");
    EXPECT_EQ(State()["faults"]["DisableSurround"], (nlohmann::json{{"reply", "(8, 'x')"}}));
}

TEST_F(ControlTest, ClearFaultTakesOneBack)
{
    Control("Fault", "('DisableSurround', {'reply': <(7,)>})");
    Control("Fault", "('StopNetworkSpeaker', {'reply': <(7,)>})");
    EXPECT_EQ(Control("ClearFault", "('DisableSurround',)"), "()");
    EXPECT_EQ(Server("DisableSurround"), "(0,)");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(3,)"), "(7,)");
    EXPECT_THAT(
        Control("ClearFault", "('Nonsense',)"),
        StartsWith(Invalid("the server has no method \"Nonsense\"; known are ")));
}

TEST_F(ControlTest, AwayAndFeatureAreMethodsOfTheirOwn)
{
    EXPECT_EQ(Control("Away", "(uint32 1,)"), "()");
    EXPECT_EQ(Control("AwaitServer"), "()");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(3,)"), "(3,)");
    EXPECT_EQ(Control("Feature", "('off',)"), Invalid("the simulator was started without a feature file"));
}

TEST_F(ControlTest, ApplyChangesWhatIsMentioned)
{
    EXPECT_EQ(
        Control(
            "Apply",
            Quoted(R"json({"home": {"settingMode": 81}, "faults": {"DisableSurround": {"reply": "(7,)"}}})json")),
        "()");
    EXPECT_EQ(Server("DisableSurround"), "(7,)");
    EXPECT_EQ(State()["settingMode"], 81);
    EXPECT_EQ(State()["speakers"].size(), 4U);

    EXPECT_EQ(
        Control("Apply", Quoted(R"({"clientId": "den", "faults": {"DisableSurround": null},
                                    "home": {"speakers": [{"name": "Hall", "mac": "02:00:00:00:00:01", "active": true}]}})")),
        "()");
    EXPECT_EQ(Server("DisableSurround"), "(0,)");
    EXPECT_EQ(Server("check_dbus_connection", "(7,)"), "('den',)");
    EXPECT_EQ(State()["speakers"].size(), 1U);
    EXPECT_EQ(State()["speakers"][0]["active"], true);
    EXPECT_EQ(State()["settingMode"], 81);
}

TEST_F(ControlTest, WhatCannotBeAppliedChangesNothing)
{
    EXPECT_EQ(
        Control("Apply", Quoted(R"({"home": {"settingMode": 81},
"colour": 1})")),
        Invalid("scenario:2: /colour: there is no such key; known are $schema, away, clientId, "
                "description, events, exit, faults, feature, home, timetable"));
    EXPECT_THAT(Control("Apply", Quoted(R"({"home": {"settingMode": 81}, "feature": "off"})")), StartsWith(kInvalid));
    EXPECT_EQ(State()["settingMode"], 80);
}

TEST_F(ControlTest, ApplyTellsTheClientsFirst)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    const FakeClient other(bus_.Address(), "tv_8");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    other.Tell("check_dbus_connection", 8);
    EXPECT_EQ(
        Control("Apply", Quoted(R"({"home": {"receiverHasAtmos": true},
                                    "events": [{"payload": "01"}, {"client": "tv_8", "id": "0xfffffffe", "data": "05"}]})")),
        "()");
    EXPECT_THAT(subscriber.Payloads(), ElementsAre(kAtmosOn, Bytes{1}));
    EXPECT_THAT(other.Payloads(), ElementsAre(Bytes{1}, Bytes{0xfe, 0xff, 0xff, 0xff, 1, 0, 0, 0, 5}));
}

TEST_F(ControlTest, ATimetableReplacesTheOneBefore)
{
    const FakeClient client(bus_.Address(), "tv_7");
    client.Tell("check_dbus_connection", 7);
    Control(
        "Apply",
        Quoted(
            R"({"timetable": [{"at": 3600000, "exit": true}, {"at": 0, "every": 1, "events": [{"payload": "01"}]}]})"));
    client.Payloads(3);
    Control("Apply", Quoted(R"({"timetable": [{"at": 0, "events": [{"payload": "02"}]}]})"));
    test::WaitUntil("the event of the second timetable", [&] { return client.Payloads().back() == Bytes{2}; });
    EXPECT_EQ(Control("Apply", Quoted(R"({"events": [{"payload": "03"}]})")), "()");
    EXPECT_THAT(client.Payloads().back(), ElementsAre(3));
}

TEST_F(ControlTest, ACrashFailsTheCallsThatAreUnderWay)
{
    Control("Fault", "('DisableSurround', {'silent': <true>})");
    Control("Fault", "('GetSurroundChannelNumber', {'delay': <uint32 3600000>})");
    const unsigned silent = SendToServer("DisableSurround", "()");
    const unsigned delayed = SendToServer("GetSurroundChannelNumber", "()");
    EXPECT_EQ(Control("Apply", Quoted(R"({"away": 0})")), "()");
    AwaitAnswer(silent);
    AwaitAnswer(delayed);
    EXPECT_EQ(Control("AwaitServer"), "()");
    EXPECT_EQ(Server("StopNetworkSpeaker", "(3,)"), "(3,)");
}

TEST_F(ControlTest, TheWorldOutlastsACrash)
{
    const FakeClient client(bus_.Address(), "tv_7");
    client.Tell("SubscribeNamServiceCallback", 7);
    Control("Fault", "('DisableSurround', {'reply': <(7,)>})");
    Server("SetNetSpkSettingMode", "(81, 3)");
    for (int crash = 0; crash < 3; ++crash) {
        EXPECT_EQ(Control("Apply", Quoted(R"({"away": 1})")), "()");
        EXPECT_EQ(Control("AwaitServer"), "()");
    }
    EXPECT_EQ(Server("DisableSurround"), "(7,)");
    EXPECT_EQ(State()["settingMode"], 81);
    EXPECT_THAT(State()["clients"], IsEmpty());
    EXPECT_THAT(Control("Calls"), HasSubstr("'SubscribeNamServiceCallback'"));
    EXPECT_EQ(Control("Exit"), "()");
    EXPECT_EQ(program_->ExitCode(), 0);
}

TEST_F(ControlTest, CrashesDoNotDisturbItsCallers)
{
    Control("Apply", Quoted(R"({"timetable": [{"at": 0, "every": 1, "away": 0}]})"));
    for (int call = 0; call < 200; ++call) {
        ASSERT_EQ(Control("ClientId", "('den',)"), "()");
    }
    EXPECT_EQ(Control("Apply", Quoted(R"({"timetable": []})")), "()");
    // The last crash may not be over yet.
    test::WaitUntil("the server to be back after its last crash", [this] {
        return Server("check_dbus_connection", "(7,)") == "('den',)";
    });
}

TEST_F(ControlTest, WhileTheServerIsAwayItsControlIsThere)
{
    bus_.WriteService({kServerName, {KIV_SIMULATOR}});
    EXPECT_EQ(Control("Apply", Quoted(R"({"away": 3600000})")), "()");
    EXPECT_EQ(Control("Fault", "('DisableSurround', {'reply': <(7,)>})"), "()");
    EXPECT_FALSE(HasOwner(kServerName));

    // The server comes back before its time.
    const unsigned call = SendToServer("DisableSurround", "()");
    EXPECT_EQ(Control("Apply", Quoted(R"({"away": 100})")), "()");
    AwaitAnswer(call);
    EXPECT_EQ(Control("Apply", Quoted(R"({"away": 3600000})")), "()");
    EXPECT_EQ(Control("Apply", Quoted(R"({"away": 0})")), "()");
    EXPECT_TRUE(HasOwner(kServerName));
    EXPECT_EQ(Server("DisableSurround"), "(7,)");
}

TEST_F(ControlTest, ExitTellsSubscribersAndEnds)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    const FakeClient other(bus_.Address(), "tv_8");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    other.Tell("check_dbus_connection", 8);
    EXPECT_EQ(Control("Exit"), "()");
    EXPECT_EQ(program_->ExitCode(), 0);
    EXPECT_THAT(subscriber.Payloads(1), ElementsAre(kExiting));
    EXPECT_THAT(other.Payloads(), IsEmpty());
}

TEST_F(ControlTest, SigtermEndsItAlike)
{
    const FakeClient subscriber(bus_.Address(), "tv_7");
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    program_->Signal(SIGTERM);
    EXPECT_EQ(program_->ExitCode(), 0);
    EXPECT_THAT(subscriber.Payloads(1), ElementsAre(kExiting));
}

TEST_F(ControlTest, ASilentSubscriberDoesNotKeepItFromEnding)
{
    const FakeClient subscriber(bus_.Address(), "tv_7", FakeClient::Manner::kIsSilent);
    subscriber.Tell("SubscribeNamServiceCallback", 7);
    program_->Signal(SIGTERM);
    EXPECT_EQ(program_->ExitCode(), 0);
    EXPECT_THAT(subscriber.Payloads(1), ElementsAre(kExiting));
}

} // namespace
} // namespace kiv::simulator
