#include "ApiTest.h"

#include <cstring>
#include <ctime>
#include <ostream>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace start_stop_test {
namespace {

class StartStopTest : public ApiTest {};

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
    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAre(
                                          "I StartNetworkSpeaker: >>> API Start ", kEnter,
                                          "M StartNetworkSpeaker: [NAM_API] START, nMode[-7], nStartReason[2147483647]",
                                          kEnter, kEnter, "I StartNetworkSpeaker: [NAM_API] result[55]"));
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

TEST_F(StartStopTest, StartGoesOnWhenTheServerRefusesTheMode)
{
    control_.SetFault("SetNetSpkSettingMode", "{'reply': <(-1,)>}");
    control_.SetFault("StartNetworkSpeaker", "{'reply': <(3,)>}");
    std::vector<STNetSpkConfig> list{Speaker(1)};

    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), 3);

    EXPECT_THAT(
        Own("StartNetworkSpeaker"), ElementsAre(
                                        "M StartNetworkSpeaker: [NAM_API] START, nMode[80], nStartReason[1]",
                                        "E StartNetworkSpeaker: [NAM_API] MethodCall(SetNetSpkSettingMode) Error!",
                                        "I StartNetworkSpeaker: [NAM_API] result[3]"));
}

TEST_F(StartStopTest, StartTakesAnyOtherAnswerToTheModeSilently)
{
    control_.SetFault("SetNetSpkSettingMode", "{'reply': <(-2,)>}");
    control_.SetFault("StartNetworkSpeaker", "{'reply': <(-1,)>}");
    std::vector<STNetSpkConfig> list{Speaker(1)};

    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), -1);

    EXPECT_THAT(Own("StartNetworkSpeaker"), ElementsAre(::testing::_, "I StartNetworkSpeaker: [NAM_API] result[-1]"));
}

TEST_F(StartStopTest, StartEndsWhenTheModeCannotBeSet)
{
    control_.SetFault("SetNetSpkSettingMode", kRefusal);
    std::vector<STNetSpkConfig> list{Speaker(1)};

    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), -1);

    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "SetNetSpkSettingMode"));
    EXPECT_THAT(
        Own("StartNetworkSpeaker"), ElementsAre(::testing::_, "E StartNetworkSpeaker: [NAM_API] MethodCall Error"));
}

TEST_F(StartStopTest, AFailedStartIsLoggedWithTheTime)
{
    control_.SetFault("StartNetworkSpeaker", kRefusal);
    std::vector<STNetSpkConfig> list{Speaker(1)};
    const std::time_t before = std::time(nullptr);

    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), -1);

    ExpectTimed(Own("StartNetworkSpeaker").back(), "StartNetworkSpeaker", before);
}

TEST_F(StartStopTest, AModeAnswerOfAnotherTypeCountsAsARefusal)
{
    control_.SetFault("SetNetSpkSettingMode", "{'reply': <('yes',)>}");
    control_.SetFault("StartNetworkSpeaker", "{'reply': <(3,)>}");
    std::vector<STNetSpkConfig> list{Speaker(1)};

    EXPECT_EQ(StartNetworkSpeaker(80, list, 1), 3);

    EXPECT_THAT(
        Own("StartNetworkSpeaker"),
        ElementsAre(
            ::testing::_,
            "E StartNetworkSpeaker: [NAM_API] method [SetNetSpkSettingMode], type [(i)] expected, [(s)] found",
            "E StartNetworkSpeaker: [NAM_API] MethodCall(SetNetSpkSettingMode) Error!",
            "I StartNetworkSpeaker: [NAM_API] result[3]"));
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
                   "I StartNetworkSpeaker: >>> API Start ", kEnter,
                   "M StartNetworkSpeaker: [NAM_API] START, nMode[80], nStartReason[1]", kEnter, kEnter,
                   TooLongLine("StartNetworkSpeaker"), ::testing::_));
    ExpectTimed(lines.back(), "StartNetworkSpeaker", before);
    ExpectNotCalled({kOwnerQuery, "SetNetSpkSettingMode(80, 1)"});
}

// --- The others ---

struct Scalar {
    const char* name;
    std::string sent;
    Lines before; // its lines before the call
    std::string answerHead;
    int (*call)();
};

void PrintTo(const Scalar& scalar, std::ostream* out)
{
    *out << scalar.name;
}

const Scalar kScalars[] = {
    {"StopNetworkSpeaker",
     "StopNetworkSpeaker(3)",
     {"M StopNetworkSpeaker: [NAM_API] STOP, nStopType[3]"},
     "I StopNetworkSpeaker: [NAM_API] StopType[",
     [] { return StopNetworkSpeaker(3); }},
    {"DisableSurround", "DisableSurround()", {}, "I DisableSurround: [NAM_API] [", [] { return DisableSurround(); }},
    {"GetSurroundChannelNumber",
     "GetSurroundChannelNumber()",
     {},
     "I GetSurroundChannelNumber: [NAM_API] nSurroundChannelNumber[",
     [] { return GetSurroundChannelNumber(); }},
};

class ScalarTest : public StartStopTest, public ::testing::WithParamInterface<Scalar> {
protected:
    const Scalar& scalar_ = GetParam();
    const std::string name_ = GetParam().name;
};

TEST_P(ScalarTest, TheServersAnswerIsReturnedAndLogged)
{
    for (const int answer : {0, 77, -5, -1, 2147483647}) {
        control_.SetFault(name_, "{'reply': <(" + std::to_string(answer) + ",)>}");
        ForgetTraffic();
        EXPECT_EQ(scalar_.call(), answer);
        EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery, scalar_.sent));
        EXPECT_EQ(
            platform_log::OfTestThread(),
            Logged(name_, scalar_.before, {scalar_.answerHead + std::to_string(answer) + "]"}));
    }
}

TEST_P(ScalarTest, AFailedCallIsMinusOneAndOneMoreLine)
{
    control_.SetFault(name_, kRefusal);
    EXPECT_EQ(scalar_.call(), -1);
    EXPECT_EQ(
        platform_log::OfTestThread(),
        Logged(name_, scalar_.before, {RefusedLine(name_), "E " + name_ + ": [NAM_API] MethodCall Error"}));
}

TEST_P(ScalarTest, AnAnswerOfAnotherTypeIsOneLineAndThePreset)
{
    for (const WrongReply& reply : WrongReplies("(i)")) {
        control_.SetFault(name_, reply.Fault());
        platform_log::Clear();
        EXPECT_EQ(scalar_.call(), -1) << reply.value;
        EXPECT_EQ(
            platform_log::OfTestThread(),
            Logged(
                name_, scalar_.before, {WrongTypeLine(name_, name_, "(i)", reply.type), scalar_.answerHead + "-1]"}));
    }
}

INSTANTIATE_TEST_SUITE_P(Functions, ScalarTest, ::testing::ValuesIn(kScalars), [](const auto& scalar) {
    return std::string(scalar.param.name);
});

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
