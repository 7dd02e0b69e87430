#include "simulator/Replay.h"

#include "simulator/JsonNode.h"
#include "simulator/Recording.h"
#include "simulator/ShortText.h"
#include "simulator/SimulatorTest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <map>
#include <utility>

namespace kiv::simulator::replay_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char kRecording[] = R"json({"ms":10,"call":1,"method":"StopNetworkSpeaker","arguments":"(3,)"}
{"ms":12,"call":2,"method":"DisableSurround","arguments":"()"}
{"ms":30,"answer":2,"values":"(0,)"}
{"ms":40,"event":3,"client":"tv_7","method":"nam_notify_subscriber","arguments":"([byte 0x01],)"}
{"ms":41,"answer":3,"values":"()"}
{"ms":45,"answer":1,"values":"(9,)"}
{"ms":50,"call":4,"method":"StopNetworkSpeaker","arguments":"(3,)"}
{"ms":55,"answer":4,"error":"org.example.Bad","message":"no"}
{"ms":60,"call":5,"method":"StopNetworkSpeaker","arguments":"(3,)"}
{"ms":70,"call":6,"method":"check_dbus_connection","arguments":"(1,)"}
{"ms":71,"answer":6,"values":"('tv_1',)"}
)json";

const std::string kCall = R"json({"ms":1,"call":1,"method":"DisableSurround","arguments":"()"})json";

class ReplayTest : public ::testing::Test {
protected:
    RecordedAnswer Next(const std::string& method, const std::string& arguments = "()")
    {
        return replay_.Next(method, Value(arguments).get()).value();
    }

    // Returns why there is no answer.
    std::string WhyNot(const std::string& method, const std::string& arguments = "()")
    {
        EXPECT_FALSE(replay_.Next(method, Value(arguments).get()).has_value());
        return replay_.WhyNot(method, Value(arguments).get());
    }

    // Returns the calls that have not been made, as "line: method(arguments)".
    std::vector<std::string> Unmade() const
    {
        std::vector<std::string> calls;
        for (const RecordedExchange& exchange : replay_.Unmade()) {
            calls.push_back(
                fmt::format("{}: {}{}", exchange.line, exchange.method, ShortText(exchange.arguments.get())));
        }
        return calls;
    }

    Replay replay_{"file", kRecording};
};

std::string Complaint(const std::string& text)
{
    try {
        Replay("file", text);
    } catch (const FileError& error) {
        return error.what();
    }
    return "none";
}

TEST_F(ReplayTest, TheSameCallsGetTheirAnswersInOrder)
{
    const Fault first = Next("StopNetworkSpeaker", "(3,)").fault;
    EXPECT_TRUE(g_variant_equal(first.reply.get(), Value("(9,)").get()));
    EXPECT_EQ(first.delay.count(), 35);
    const Fault second = Next("StopNetworkSpeaker", "(3,)").fault;
    EXPECT_EQ(second.error, "org.example.Bad");
    EXPECT_EQ(second.message, "no");
    EXPECT_EQ(second.delay.count(), 5);
    EXPECT_TRUE(Next("StopNetworkSpeaker", "(3,)").fault.silent);
}

TEST_F(ReplayTest, OtherCallsInBetweenDoNotMatter)
{
    EXPECT_TRUE(g_variant_equal(Next("DisableSurround").fault.reply.get(), Value("(0,)").get()));
    EXPECT_TRUE(g_variant_equal(Next("StopNetworkSpeaker", "(3,)").fault.reply.get(), Value("(9,)").get()));
}

TEST_F(ReplayTest, AnEventFollowsTheAnswerThatItFollowed)
{
    EXPECT_THAT(Next("StopNetworkSpeaker", "(3,)").events, IsEmpty());
    const std::vector<RecordedEvent> events = Next("DisableSurround").events;
    ASSERT_THAT(events, SizeIs(1));
    EXPECT_EQ(events[0].delay.count(), 10);
    EXPECT_EQ(events[0].client, "tv_7");
    EXPECT_EQ(events[0].method, "nam_notify_subscriber");
    EXPECT_TRUE(g_variant_equal(events[0].arguments.get(), Value("([byte 1],)").get()));
}

TEST_F(ReplayTest, WhoACallerIsCanBeAskedByAnyAndAgain)
{
    for (const std::string arguments : {"(1,)", "(2,)", "(3,)"}) {
        EXPECT_TRUE(
            g_variant_equal(Next("check_dbus_connection", arguments).fault.reply.get(), Value("('tv_1',)").get()));
    }
}

TEST_F(ReplayTest, SaysWhatIsNotRecorded)
{
    EXPECT_EQ(WhyNot("ResetAllNetSpkVolume"), "file has no call of ResetAllNetSpkVolume");
    EXPECT_EQ(
        WhyNot("StopNetworkSpeaker", "(4,)"),
        "file has no such StopNetworkSpeaker: stopType must be 3 as in line 1, got 4");
    Next("DisableSurround");
    EXPECT_EQ(WhyNot("DisableSurround"), "file has DisableSurround() only once");
}

TEST_F(ReplayTest, TellsTheCallsThatWereNotMadeInTheirOrder)
{
    EXPECT_THAT(
        Unmade(), ElementsAre(
                      "1: StopNetworkSpeaker(3)", "2: DisableSurround()", "7: StopNetworkSpeaker(3)",
                      "9: StopNetworkSpeaker(3)"));
    Next("StopNetworkSpeaker", "(3,)");
    Next("DisableSurround");
    Next("StopNetworkSpeaker", "(3,)");
    EXPECT_THAT(Unmade(), ElementsAre("9: StopNetworkSpeaker(3)"));
    Next("StopNetworkSpeaker", "(3,)");
    EXPECT_THAT(Unmade(), IsEmpty());
}

// Returns a recording of calls without answers.
Replay ReplayOf(const std::vector<std::pair<std::string, std::string>>& calls)
{
    std::string text;
    int number = 0;
    for (const auto& [method, arguments] : calls) {
        RecordedLine line;
        line.call = ++number;
        line.method = method;
        line.arguments = arguments;
        text += WriteLine(line) + "\n";
    }
    return {"file", text};
}

TEST(UnmadeCallsTest, OneSubscriptionStandsForAll)
{
    Replay replay = ReplayOf({{"SubscribeNamServiceCallback", "(7,)"}, {"SubscribeNamServiceCallback", "(7,)"}});
    EXPECT_THAT(replay.Unmade(), SizeIs(1));
    replay.Next("SubscribeNamServiceCallback", Value("(8,)").get());
    EXPECT_THAT(replay.Unmade(), IsEmpty());
}

// Returns why the second call is not in a recording of the first one.
std::string WhyNotInstead(const std::string& method, const std::string& recorded, const std::string& got)
{
    return ReplayOf({{method, recorded}}).WhyNot(method, Value(got).get());
}

std::string Tuple(const Bytes& bytes)
{
    return fmt::format("([byte {}],)", fmt::join(bytes, ", "));
}

TEST(NotRecordedTest, TheArgumentHasItsNameAndAnUnknownOneItsNumber)
{
    EXPECT_EQ(
        WhyNotInstead("SetNetSpkSettingMode", "(80, 1)", "(80, 2)"),
        "file has no such SetNetSpkSettingMode: startReason must be 1 as in line 1, got 2");
    EXPECT_EQ(
        WhyNotInstead("OfAnotherServer", "(80, 'x')", "(80, 'y')"),
        "file has no such OfAnotherServer: argument 2 must be 'x' as in line 1, got 'y'");
    EXPECT_EQ(
        WhyNotInstead("OfAnotherServer", "(80, 1, 2)", "(80, 1)"),
        "file has no such OfAnotherServer: the arguments must be (80, 1, 2) as in line 1, got (80, 1)");
}

TEST(NotRecordedTest, SpeakersAreShownAsPeopleWriteThem)
{
    const auto tuple = [](const std::vector<Bytes>& records) { return Tuple(Joined(records)); };
    EXPECT_EQ(
        WhyNotInstead(
            "StartNetworkSpeaker", tuple({StartRecord(1, 0x01), StartRecord(2, 0x02)}),
            tuple({StartRecord(1, 0x01), StartRecord(2, 0x03)})),
        "file has no such StartNetworkSpeaker: records[1] must be 02:4b:49:56:00:02=2 as in line 1, got "
        "02:4b:49:56:00:03=2");
    EXPECT_EQ(
        WhyNotInstead("StartNetworkSpeaker", tuple({StartRecord(1, 0x01)}), "(@ay [],)"),
        "file has no such StartNetworkSpeaker: records[0] must be 02:4b:49:56:00:01=1 as in line 1, got none");
    EXPECT_EQ(
        WhyNotInstead(
            "AutoConnectNewSpeakers", Tuple({1, 0, 0, 0, 2, 0x4b, 0x49, 0x56, 0, 5}),
            Tuple({1, 0, 0, 0, 2, 0x4b, 0x49, 0x56, 0, 6})),
        "file has no such AutoConnectNewSpeakers: macs[0] must be 02:4b:49:56:00:05 as in line 1, got "
        "02:4b:49:56:00:06");
}

TEST(NotRecordedTest, BytesAreShownAroundTheFirstThatDiffers)
{
    Bytes other = StartRecord(1, 0x01);
    other[50] = 0xff;
    EXPECT_EQ(
        WhyNotInstead("StartNetworkSpeaker", Tuple(StartRecord(1, 0x01)), Tuple(other)),
        "file has no such StartNetworkSpeaker: records must be [86 bytes, from byte 42: " +
            fmt::format("{:02x}", fmt::join(Bytes(32, 0), " ")) +
            " ...] as in line 1, got [86 bytes, from byte 42: 00 00 00 00 00 00 00 00 ff " +
            fmt::format("{:02x}", fmt::join(Bytes(23, 0), " ")) + " ...]");
    EXPECT_EQ(
        WhyNotInstead("SetSoundbarSoundMode", Tuple({1, 2}), Tuple({1, 3, 4})),
        "file has no such SetSoundbarSoundMode: setting must be [01 02] as in line 1, got [01 03 04]");
}

TEST(NotRecordedTest, TheCallMostLikeItIsNamedAndCallsThatAreStillToComeFirst)
{
    Replay replay = ReplayOf(
        {{"SetNetSpkSettingMode", "(81, 5)"},
         {"SetNetSpkSettingMode", "(80, 1)"},
         {"SetNetSpkSettingMode", "(82, 6)"}});
    const auto whyNot = [&replay] { return replay.WhyNot("SetNetSpkSettingMode", Value("(80, 2)").get()); };
    EXPECT_THAT(whyNot(), HasSubstr("startReason must be 1 as in line 2"));
    replay.Next("SetNetSpkSettingMode", Value("(80, 1)").get());
    EXPECT_THAT(whyNot(), HasSubstr("mode must be 81 as in line 1"));
    replay.Next("SetNetSpkSettingMode", Value("(81, 5)").get());
    EXPECT_THAT(whyNot(), HasSubstr("mode must be 82 as in line 3"));
}

TEST(NotRecordedTest, LongArgumentsAreShortAlsoInACallThatWasMadeTooOften)
{
    const std::string longCall = Tuple(Bytes(2000, 7));
    Replay replay = ReplayOf({{"StartNetworkSpeaker", longCall}});
    replay.Next("StartNetworkSpeaker", Value(longCall).get());
    const std::string reason = replay.WhyNot("StartNetworkSpeaker", Value(longCall).get());
    EXPECT_THAT(reason, ::testing::StartsWith("file has StartNetworkSpeaker([2000 bytes: 07 07 "));
    EXPECT_LT(reason.size(), 200U);
}

TEST(ReplayFileTest, RefusesWhatIsNoRecording)
{
    EXPECT_EQ(Complaint(kCall), "none");
    EXPECT_EQ(Complaint(""), "none");
    const std::map<std::string, std::string> complaints = {
        {R"({"ms":1,"call":1})", "file:1: must be a call or an event with"},
        {R"({"ms":1})", "file:1: must be a line with one of"},
        {R"({"call":1})", R"(file:1: "ms" is missing)"},
        {R"({"ms":1,"colour":1})", "file:1: /colour: there is no such key"},
        {kCall + "\n{", "file:2:2: syntax error"},
        {kCall + "\n" + kCall, "file:2: there was a call 1 before"},
        {kCall + "\n" + R"json({"ms":1,"answer":2,"values":"()"})json", "file:2: there was no call 2"},
        {kCall + "\n" + R"json({"ms":1,"answer":1,"values":"(1"})json",
         R"(file:2: must be a value in GVariant text form, got "(1": )"},
        {kCall + "\n" + R"json({"ms":1,"answer":1})json", "file:2: must be a call or an event with"},
        {R"json({"ms":1,"event":1,"client":"x","method":"m","arguments":"()"})json",
         "file:1: an event must follow an answer"},
        {kCall + "\n" + R"json({"ms":1,"answer":1,"values":"()"})json" + "\n" +
             R"json({"ms":1,"event":2,"client":"no name","method":"m","arguments":"()"})json",
         R"(file:3: an event must be for a client and a method that D-Bus can have, got "no name" and "m")"},
    };
    for (const auto& [recording, complaint] : complaints) {
        EXPECT_THAT(Complaint(recording), HasSubstr(complaint)) << recording;
    }
}

TEST(ReplayFileTest, AMistypedMethodIsRefused)
{
    const std::string mistyped = R"json({"ms":1,"call":2,"method":"StopNetworkSpeker","arguments":"(3,)"})json";
    EXPECT_EQ(
        Complaint(kCall + "\n" + mistyped),
        "file:2: /method: the server has no method \"StopNetworkSpeker\"; did you mean StopNetworkSpeaker?");
    // The server has answered a program that made this call.
    EXPECT_EQ(
        Complaint(
            mistyped + "\n" +
            R"json({"ms":1,"answer":2,"error":"org.freedesktop.DBus.Error.UnknownMethod","message":"no"})json"),
        "none");
}

TEST(ReplayFileTest, ArgumentsOfAnotherTypeAreRefused)
{
    const std::string call = R"json({"ms":1,"call":1,"method":"DisableSurround","arguments":"()"})json";
    const std::string wrong = R"json({"ms":1,"call":2,"method":"StopNetworkSpeaker","arguments":"('3',)"})json";
    EXPECT_EQ(
        Complaint(call + "\n" + wrong),
        "file:2: /arguments: StopNetworkSpeaker must be called with arguments of the D-Bus type (i), got (s)");
    EXPECT_EQ(
        Complaint(R"json({"ms":1,"call":1,"method":"DisableSurround","arguments":"(1, 2)"})json"),
        "file:1: /arguments: DisableSurround must be called with arguments of the D-Bus type (), got (ii)");
    // The server has refused this call.
    EXPECT_EQ(
        Complaint(
            wrong + "\n" +
            R"json({"ms":1,"answer":2,"error":"org.freedesktop.DBus.Error.InvalidArgs","message":"no"})json"),
        "none");
}

TEST(ReplayFileTest, AnotherFileIsToldByItsFirstLine)
{
    const std::string wanted = "file:1: must be a recording, a JSON object in each line, as --record writes it, got ";
    EXPECT_EQ(Complaint("{\n  \"home\": {}\n}"), wanted + "{");
    EXPECT_EQ(Complaint(R"({"home": {}})"), wanted + R"({"home": {}})");
    EXPECT_EQ(Complaint("7"), wanted + "7");
    EXPECT_EQ(Complaint(std::string(59, 'x') + "\u00fc"), wanted + std::string(59, 'x') + "...");
}

TEST(ReplayFileTest, ALineThatIsCutOffIsNotShownWhole)
{
    const std::string complaint =
        Complaint(kCall + "\n" + R"json({"ms":1,"answer":1,"values":")json" + std::string(5000, 'x'));
    EXPECT_THAT(complaint, ::testing::StartsWith("file:2:"));
    EXPECT_THAT(complaint, HasSubstr("missing closing quote; last read: '\"xxx"));
    EXPECT_LT(complaint.size(), 250U);
}

TEST(RecordingTest, LinesAreReadAsTheyWereWritten)
{
    for (const std::string line :
         {R"json({"ms":1,"call":2,"method":"StopNetworkSpeaker","arguments":"(3,)"})json",
          R"json({"ms":1,"event":2,"client":"tv_7","method":"nam_notify_subscriber","arguments":"([byte 0x01],)"})json",
          R"json({"ms":1,"answer":2,"values":"('\"ü\"',)"})json",
          R"json({"ms":1,"answer":2,"error":"org.example.Bad","message":""})json"}) {
        EXPECT_EQ(WriteLine(ReadLine("file", line, 1)), line);
    }
}

} // namespace
} // namespace kiv::simulator::replay_test
