#include "contract/RequestTest.h"

#include <cstring>
#include <ctime>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace start_stop_test {
namespace {

class StartStopTest : public ApiTest {
protected:
    std::vector<STNetSpkConfig> list_{Speaker(1)};
};

TEST(RecordsTest, LengthsAndModesAreTheServers)
{
    EXPECT_EQ(NETSPK_LIST_NAME_LEN, 128);
    EXPECT_EQ(NETSPK_SPEAKER_TYPE_LEN, 22);
    EXPECT_EQ(NETSPK_MAC_LEN, 6);
    EXPECT_EQ(NETSPK_IP_LEN, 4);
    EXPECT_EQ(NETSPKSETTING_SURROUND, 80);
    EXPECT_EQ(NETSPKSETTING_MULTIROOM, 81);
}

TEST(RecordsTest, RecordsLieAsTheyTravel)
{
    EXPECT_EQ(sizeof(STNetSpkListInfo[3]), 3 * 1086U);
    EXPECT_EQ(sizeof(spk_list_info_s[3]), 3 * 1086U);
    EXPECT_EQ(sizeof(spk_info_s[3]), 3 * 183U);
    EXPECT_EQ(sizeof(CNetSpkNodeInfo[3]), 3 * 134U);
    STNetSpkConfig speaker{};
    unsigned char bytes[86] = {};
    bytes[4] = 0x11;
    bytes[7] = 0x80;
    bytes[8] = 0xa4;
    bytes[13] = 0xa9;
    std::memcpy(&speaker, bytes, sizeof bytes);
    EXPECT_EQ(speaker.nConfig, static_cast<std::int32_t>(0x80000011U));
    EXPECT_EQ(speaker.mac[0], 0xa4);
    EXPECT_EQ(speaker.mac[5], 0xa9);
}

// --- StartNetworkSpeaker ---

TEST_F(StartStopTest, StartSendsTheModeThenTheSpeakers)
{
    std::vector<STNetSpkConfig> list{Speaker(1), Speaker(100), Speaker(200)};
    control_.SetFault("StartNetworkSpeaker", "{'reply': <(55,)>}");

    EXPECT_EQ(StartNetworkSpeaker(-7, list, 2147483647), 55);

    EXPECT_THAT(
        Sent(), ElementsAre(
                    kOwnerQuery, IdQuery(), kOwnerQuery, "SetNetSpkSettingMode(-7, 2147483647)", kOwnerQuery,
                    ::testing::StartsWith("StartNetworkSpeaker(")));
    EXPECT_EQ(SentMessages()[3].signature, "ii");
    EXPECT_EQ(SentMessages()[5].signature, "ay");
    const auto bytes = Bytes(control_.Calls().back());
    ASSERT_EQ(bytes.size(), 258U);
    EXPECT_EQ(std::memcmp(bytes.data(), list.data(), 258), 0);
    ExpectLog(
        PrologueLines("StartNetworkSpeaker") +
        "M StartNetworkSpeaker: [NAM_API] START, nMode[-7], nStartReason[2147483647]" + kEnter + kEnter +
        "I StartNetworkSpeaker: [NAM_API] result[55]");
}

TEST_F(StartStopTest, StartSendsAnEmptyListToo)
{
    std::vector<STNetSpkConfig> none;

    EXPECT_NE(StartNetworkSpeaker(80, none, 0), -1);

    EXPECT_THAT(
        control_.Methods(), ElementsAre("check_dbus_connection", "SetNetSpkSettingMode", "StartNetworkSpeaker"));
    EXPECT_THAT(Bytes(control_.Calls().back()), IsEmpty());
}

TEST_F(StartStopTest, StartLeavesTheListAlone)
{
    std::vector<STNetSpkConfig> list{Speaker(1), Speaker(2)};
    const auto before = list;
    StartNetworkSpeaker(80, list, 0);
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(std::memcmp(list.data(), before.data(), 172), 0);
}

TEST_F(StartStopTest, StartGoesOnWhateverTheServerAnswersToTheMode)
{
    const std::string function = "StartNetworkSpeaker";
    const std::string refused = "E StartNetworkSpeaker: [NAM_API] MethodCall(SetNetSpkSettingMode) Error!";
    const std::string wrongType = WrongTypeLine(function, "SetNetSpkSettingMode", "(i)", "(s)");
    const std::string resultHead = "I StartNetworkSpeaker: [NAM_API] result[";
    const struct {
        const char* mode;
        const char* start;
        int result;
        Lines lines;
    } answers[] = {
        {"(-1,)", "(3,)", 3, {refused, resultHead + "3]"}},
        {"(-2,)", "(-1,)", -1, {resultHead + "-1]"}},
        {"('yes',)", "(3,)", 3, {wrongType, refused, resultHead + "3]"}},
    };
    for (const auto& [mode, start, result, lines] : answers) {
        SCOPED_TRACE(mode);
        control_.SetFault("SetNetSpkSettingMode", std::string("{'reply': <") + mode + ">}");
        control_.SetFault(function, std::string("{'reply': <") + start + ">}");
        platform_log::Clear();
        EXPECT_EQ(StartNetworkSpeaker(80, list_, 1), result);
        EXPECT_EQ(Own(function), (Lines{"M StartNetworkSpeaker: [NAM_API] START, nMode[80], nStartReason[1]"} + lines));
    }
}

TEST_F(StartStopTest, StartEndsWhenTheModeCannotBeSet)
{
    control_.SetFault("SetNetSpkSettingMode", kRefusal);

    EXPECT_EQ(StartNetworkSpeaker(80, list_, 1), -1);

    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "SetNetSpkSettingMode"));
    EXPECT_THAT(Own("StartNetworkSpeaker"), ElementsAre(::testing::_, MethodErrorLine("StartNetworkSpeaker")));
}

TEST_F(StartStopTest, AFailedStartIsLoggedWithTheTime)
{
    control_.SetFault("StartNetworkSpeaker", kRefusal);
    const std::time_t before = std::time(nullptr);

    EXPECT_EQ(StartNetworkSpeaker(80, list_, 1), -1);

    ExpectTimed(Own("StartNetworkSpeaker").back(), "StartNetworkSpeaker", before);
}

TEST_F(StartStopTest, TwentyThousandSpeakersTravel)
{
    std::vector<STNetSpkConfig> list(20'000, Speaker(9));
    control_.SetFault("StartNetworkSpeaker", "{'reply': <(1,)>}");
    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), 1);
    EXPECT_EQ(Bytes(control_.Calls().back()).size(), 1'720'000U);
}

TEST_F(StartStopTest, AListThatTheBusCannotCarryIsAFailedCallOnceTheModeIsSet)
{
    std::vector<STNetSpkConfig> list(kLongestArray / 86 + 1);
    const std::time_t before = std::time(nullptr);

    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), -1);

    const Lines lines = platform_log::OfTestThread();
    EXPECT_THAT(
        lines, ElementsAre(
                   StartLine("StartNetworkSpeaker"), kEnter,
                   "M StartNetworkSpeaker: [NAM_API] START, nMode[80], nStartReason[1]", kEnter, kEnter,
                   TooLongLine("StartNetworkSpeaker"), ::testing::_));
    ExpectTimed(lines.back(), "StartNetworkSpeaker", before);
    ExpectNotCalled({kOwnerQuery, "SetNetSpkSettingMode(80, 1)"});
}

// --- The others ---

std::function<Lines(int)> Answered(const std::string& head)
{
    return [head](int answer) { return Lines{head + std::to_string(answer) + "]"}; };
}

const Request kRequests[] = {
    {
        .name = "StopNetworkSpeaker",
        .call = [] { return StopNetworkSpeaker(3); },
        .sent = "StopNetworkSpeaker(3)",
        .signature = "i",
        .replyType = "(i)",
        .answered = Answered("I StopNetworkSpeaker: [NAM_API] StopType["),
        .failed = {MethodErrorLine("StopNetworkSpeaker")},
        .before = {"M StopNetworkSpeaker: [NAM_API] STOP, nStopType[3]"},
    },
    {
        .name = "DisableSurround",
        .call = DisableSurround,
        .sent = "DisableSurround()",
        .replyType = "(i)",
        .answered = Answered("I DisableSurround: [NAM_API] ["),
        .failed = {MethodErrorLine("DisableSurround")},
    },
    {
        .name = "GetSurroundChannelNumber",
        .call = GetSurroundChannelNumber,
        .sent = "GetSurroundChannelNumber()",
        .replyType = "(i)",
        .answered = Answered("I GetSurroundChannelNumber: [NAM_API] nSurroundChannelNumber["),
        .failed = {MethodErrorLine("GetSurroundChannelNumber")},
    },
};

INSTANTIATE_TEST_SUITE_P(StartStop, RequestTest, ::testing::ValuesIn(kRequests), NameOf());

TEST_F(StartStopTest, ArgumentsPassThroughUnchanged)
{
    for (const int stopType : {0, -1, 2147483647, -2147483647 - 1}) {
        ForgetTraffic();
        StopNetworkSpeaker(stopType);
        EXPECT_EQ(Sent().back(), "StopNetworkSpeaker(" + std::to_string(stopType) + ")");
        EXPECT_EQ(SentMessages().back().signature, "i");
    }
}

} // namespace
} // namespace start_stop_test
