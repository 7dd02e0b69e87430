#include "RequestTest.h"

#include <climits>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace connection_type_test {
namespace {

std::vector<STNetSpkConfig> g_speakers{Speaker(1), Speaker(100), Speaker(200)};

Lines ResultLine(const std::string& function, int answer)
{
    return {"I " + function + ": [NAM_API] result[" + std::to_string(answer) + "]"};
}

const Request kRequests[] = {
    {
        .name = "GetSpksConnectionTypeByID",
        .call = [] { return GetSpksConnectionTypeByID(-7); },
        .sent = "GetSpksConnectionTypeByID(-7)",
        .signature = "i",
        .replyType = "(i)",
        .answered = [](int answer) { return ResultLine("GetSpksConnectionTypeByID", answer); },
    },
    {
        .name = "GetSpksConnectionType",
        .call = [] { return GetSpksConnectionType(&g_speakers); },
        .sent = "GetSpksConnectionType(" + BytesText(Records(g_speakers)) + ")",
        .signature = "ay",
        .replyType = "(i)",
        .answered = [](int answer) { return ResultLine("GetSpksConnectionType", answer); },
    },
};

class ConnectionTypeRequestTest : public RequestTest {};

TEST_P(ConnectionTypeRequestTest, TheServersAnswerIsReturnedAndLogged)
{
    for (const int answer : {0, 77, -1, -5, INT_MAX, INT_MIN}) {
        ExpectAnswered(answer);
    }
}

TEST_P(ConnectionTypeRequestTest, AnAnswerOfAnotherTypeIsOneLineAndThePreset)
{
    ExpectOtherTypes(-1);
}

INSTANTIATE_TEST_SUITE_P(Functions, ConnectionTypeRequestTest, ::testing::ValuesIn(kRequests), NameOf);

class ConnectionTypeTest : public ApiTest {
protected:
    // Checks the line of a failed call for a list, which has the time.
    static void ExpectListFailure(const std::string& line, std::vector<STNetSpkConfig>* list = &g_speakers)
    {
        platform_log::Clear();
        const std::time_t before = std::time(nullptr);

        EXPECT_EQ(GetSpksConnectionType(list), -1);

        const std::string function = "GetSpksConnectionType";
        const Lines lines = platform_log::OfTestThread();
        EXPECT_EQ(lines, Logged(function, {}, {line, lines.back()}));
        ExpectTimed(lines.back(), function, before);
    }
};

TEST_F(ConnectionTypeTest, AFailedCallForOneSpeakerIsZero)
{
    const std::string function = "GetSpksConnectionTypeByID";
    const std::string line = "E " + function + ": [NAM_API] MethodCall(GetSpksConnectionTypeByID) Error";

    control_.SetFault(function, kRefusal);
    EXPECT_EQ(GetSpksConnectionTypeByID(1), 0);
    EXPECT_EQ(platform_log::OfTestThread(), Logged(function, {}, {RefusedLine(function), line}));

    control_.SetFault(function, kDeath);
    platform_log::Clear();
    EXPECT_EQ(GetSpksConnectionTypeByID(1), 0);
    EXPECT_EQ(platform_log::OfTestThread(), Logged(function, {}, {DiedLine(function), line}));
}

TEST_F(ConnectionTypeTest, AFailedCallForAListIsMinusOne)
{
    control_.SetFault("GetSpksConnectionType", kRefusal);
    ExpectListFailure(RefusedLine("GetSpksConnectionType"));
    control_.SetFault("GetSpksConnectionType", kDeath);
    ExpectListFailure(DiedLine("GetSpksConnectionType"));
}

TEST_F(ConnectionTypeTest, SpeakerNumbersPassThroughUnchanged)
{
    for (const int id : {0, INT_MAX, INT_MIN}) {
        GetSpksConnectionTypeByID(id);
        EXPECT_EQ(Sent().back(), "GetSpksConnectionTypeByID(" + std::to_string(id) + ")");
    }
}

TEST_F(ConnectionTypeTest, RecordsTravelBackToBackWithoutTheirNumber)
{
    GetSpksConnectionType(&g_speakers);
    const auto bytes = Bytes(control_.Calls().back());
    EXPECT_EQ(bytes.size(), 258U);
    EXPECT_EQ(bytes, Records(g_speakers));
}

TEST_F(ConnectionTypeTest, AnEmptyListIsSentToo)
{
    std::vector<STNetSpkConfig> none;
    control_.SetFault("GetSpksConnectionType", "{'reply': <(9,)>}");

    EXPECT_EQ(GetSpksConnectionType(&none), 9);

    EXPECT_THAT(Bytes(control_.Calls().back()), IsEmpty());
    EXPECT_EQ(
        platform_log::OfTestThread(), Logged("GetSpksConnectionType", {}, ResultLine("GetSpksConnectionType", 9)));
}

TEST_F(ConnectionTypeTest, TheListIsLeftAlone)
{
    auto list = g_speakers;
    GetSpksConnectionType(&list);
    EXPECT_EQ(Records(list), Records(g_speakers));
}

TEST_F(ConnectionTypeTest, NoListIsAFailure)
{
    EXPECT_EQ(GetSpksConnectionType(nullptr), -1);
    ExpectNothingAsked();
    ExpectArgumentsLast("GetSpksConnectionType", {}, [] { EXPECT_EQ(GetSpksConnectionType(nullptr), -1); });
}

TEST_F(ConnectionTypeTest, AListThatTheBusCannotCarryIsAFailedCall)
{
    std::vector<STNetSpkConfig> list(kLongestArray / 86 + 1);
    ExpectListFailure(TooLongLine("GetSpksConnectionType"), &list);
    ExpectNotCalled();
}

TEST_F(ConnectionTypeTest, TwentyThousandSpeakersTravel)
{
    std::vector<STNetSpkConfig> list(20'000, Speaker(9));
    control_.SetFault("GetSpksConnectionType", "{'reply': <(1,)>}");
    EXPECT_EQ(GetSpksConnectionType(&list), 1);
    EXPECT_EQ(Bytes(control_.Calls().back()), Records(list));
}

} // namespace
} // namespace connection_type_test
