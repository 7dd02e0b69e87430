#include "simulator/Replay.h"

#include "SimulatorTest.h"
#include "simulator/JsonNode.h"
#include "simulator/Recording.h"

namespace kiv::simulator::replay_test {
namespace {

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

class ReplayTest : public ::testing::Test {
protected:
    RecordedAnswer Next(const std::string& method, const std::string& arguments = "()")
    {
        return replay_.Next(method, Value(arguments).get());
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
    const auto reason = [this](const std::string& method, const std::string& arguments) {
        const Fault fault = Next(method, arguments).fault;
        EXPECT_EQ(fault.error, "org.lumra.tv.networkspeaker.simulator.Error.NotRecorded");
        return fault.message;
    };
    EXPECT_EQ(reason("ResetAllNetSpkVolume", "()"), "file has no call of ResetAllNetSpkVolume");
    EXPECT_EQ(reason("StopNetworkSpeaker", "(4,)"), "file has no StopNetworkSpeaker(4,), but StopNetworkSpeaker(3,)");
    Next("DisableSurround");
    EXPECT_EQ(reason("DisableSurround", "()"), "file has DisableSurround() only once");
}

TEST(ReplayFileTest, RefusesWhatIsNoRecording)
{
    EXPECT_THAT(Complaint("{\"ms\":1,\"call\":1}"), HasSubstr("file:1: must be a call or an event with"));
    EXPECT_THAT(Complaint("{\"ms\":1}"), HasSubstr("file:1: must be a line with one of"));
    EXPECT_THAT(Complaint("{\"call\":1}"), HasSubstr("file:1: 'ms' is missing"));
    EXPECT_THAT(Complaint("{\"ms\":1,\"colour\":1}"), HasSubstr("file:1: /colour: there is no such key"));
    const std::string call = R"json({"ms":1,"call":1,"method":"DisableSurround","arguments":"()"})json";
    EXPECT_EQ(Complaint(call), "none");
    EXPECT_EQ(Complaint(""), "none");
    EXPECT_THAT(Complaint(call + "\n{"), HasSubstr("file:2:2: syntax error"));
    EXPECT_THAT(Complaint(call + "\n" + call), HasSubstr("file:2: there was a call 1 before"));
    EXPECT_THAT(
        Complaint(call + "\n" + R"json({"ms":1,"answer":2,"values":"()"})json"),
        HasSubstr("file:2: there was no call 2"));
    EXPECT_THAT(
        Complaint(call + "\n" + R"json({"ms":1,"answer":1,"values":"(1"})json"),
        HasSubstr("file:2: must be a value in GVariant text form, got '(1': "));
    EXPECT_THAT(
        Complaint(call + "\n" + R"json({"ms":1,"answer":1})json"),
        HasSubstr("file:2: must be a call or an event with"));
    EXPECT_THAT(
        Complaint(R"json({"ms":1,"event":1,"client":"x","method":"m","arguments":"()"})json"),
        HasSubstr("file:1: an event must follow an answer"));
    EXPECT_THAT(
        Complaint(
            call + "\n" + R"json({"ms":1,"answer":1,"values":"()"})json" + "\n" +
            R"json({"ms":1,"event":2,"client":"no name","method":"m","arguments":"()"})json"),
        HasSubstr("file:3: an event must be for a client and a method that D-Bus can have, got 'no name' and 'm'"));
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
