#include "contract/RequestTest.h"

#include <climits>

using namespace kiv::test;
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
        .failed = {"E GetSpksConnectionTypeByID: [NAM_API] MethodCall(GetSpksConnectionTypeByID) Error"},
        .failure = 0,
    },
    {
        .name = "GetSpksConnectionType",
        .call = [] { return GetSpksConnectionType(&g_speakers); },
        .sent = "GetSpksConnectionType(" + BytesText(Records(g_speakers)) + ")",
        .signature = "ay",
        .replyType = "(i)",
        .answered = [](int answer) { return ResultLine("GetSpksConnectionType", answer); },
        .isTimed = true,
    },
};

INSTANTIATE_TEST_SUITE_P(ConnectionType, RequestTest, ::testing::ValuesIn(kRequests), NameOf());

class ConnectionTypeTest : public ApiTest {};

TEST_F(ConnectionTypeTest, SpeakerNumbersPassThroughUnchanged)
{
    for (const int id : {0, INT_MAX, INT_MIN}) {
        GetSpksConnectionTypeByID(id);
        EXPECT_EQ(Sent().back(), "GetSpksConnectionTypeByID(" + std::to_string(id) + ")");
    }
}

TEST_F(ConnectionTypeTest, AnEmptyListIsSentToo)
{
    std::vector<STNetSpkConfig> none;
    control_.SetFault("GetSpksConnectionType", "{'reply': <(9,)>}");

    EXPECT_EQ(GetSpksConnectionType(&none), 9);

    EXPECT_THAT(Bytes(control_.Calls().back()), IsEmpty());
    ExpectLog(Logged("GetSpksConnectionType", {}, ResultLine("GetSpksConnectionType", 9)));
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
    ExpectUnreached("GetSpksConnectionType", {}, [] { EXPECT_EQ(GetSpksConnectionType(nullptr), -1); });
}

TEST_F(ConnectionTypeTest, AListThatTheBusCannotCarryIsAFailedCall)
{
    std::vector<STNetSpkConfig> list(kLongestArray / 86 + 1);
    const std::string function = "GetSpksConnectionType";
    const std::time_t before = std::time(nullptr);

    EXPECT_EQ(GetSpksConnectionType(&list), -1);

    const std::string last = platform_log::OfTestThread().back();
    ExpectLog(Logged(function, {}, {TooLongLine(function), last}));
    ExpectTimed(last, function, before);
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
