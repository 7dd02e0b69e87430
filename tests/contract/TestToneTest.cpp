#include "contract/RequestTest.h"

#include <climits>

using namespace kiv::test;
using ::testing::IsEmpty;

namespace test_tone_test {
namespace {

const Request kRequests[] = {
    {
        .name = "StartNetSpkTest",
        .call = [] { return StartNetSpkTest(kMac, 10, -20, 30), 0; },
        .sent = "StartNetSpkTest(" + kMacSent + ", 10, -20, 30)",
        .signature = "yyyyyyiii",
        .failed = {MethodErrorLine("StartNetSpkTest")},
        .before = {"I StartNetSpkTest: [NAM_API] MAC[" + kMacLogged + "], nChType[-20], [30]"},
    },
    {
        .name = "StopNetSpkTest",
        .call = [] { return StopNetSpkTest(kMac, 10, -30), 0; },
        .sent = "StopNetSpkTest(" + kMacSent + ", 10, -30)",
        .signature = "yyyyyyii",
        .failed = {MethodErrorLine("StopNetSpkTest")},
        .first = {"I StopNetSpkTest: [NAM_API] Enter, MAC[" + kMacLogged + "], [-30]"},
    },
};

INSTANTIATE_TEST_SUITE_P(TestTone, RequestTest, ::testing::ValuesIn(kRequests), NameOf());

class TestToneTest : public ApiTest {};

TEST_F(TestToneTest, NumbersPassThroughUnchanged)
{
    StartNetSpkTest(kMac, INT_MIN, INT_MAX, -1);
    EXPECT_EQ(Sent().back(), "StartNetSpkTest(" + kMacSent + ", -2147483648, 2147483647, -1)");
    EXPECT_EQ(
        platform_log::Count("I StartNetSpkTest: [NAM_API] MAC[" + kMacLogged + "], nChType[2147483647], [-1]"), 1U);

    StopNetSpkTest(kMac, INT_MIN, INT_MAX);
    EXPECT_EQ(Sent().back(), "StopNetSpkTest(" + kMacSent + ", -2147483648, 2147483647)");
    EXPECT_EQ(platform_log::Count("I StopNetSpkTest: [NAM_API] Enter, MAC[" + kMacLogged + "], [2147483647]"), 1U);
}

TEST_F(TestToneTest, AStartWithoutASpeakerIsRefusedOnceTheServerIsReached)
{
    StartNetSpkTest(nullptr, 1, 2, 3);
    ExpectLog(PrologueLines("StartNetSpkTest") + "E StartNetSpkTest: (pMac == NULL) return");
    ExpectNothingAsked();

    ExpectUnreached("StartNetSpkTest", {}, [] { StartNetSpkTest(nullptr, 1, 2, 3); });
}

TEST_F(TestToneTest, AStopWithoutASpeakerIsRefusedBeforeAllElse)
{
    StopNetSpkTest(nullptr, 1, 2);
    g_KivDisabled = true;
    StopNetSpkTest(nullptr, 1, 2);
    ExpectLog(Lines(2, "E StopNetSpkTest: (pMac == NULL) return"));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(TestToneTest, AServerThatGoesBeforeTheCallIsAFailedCall)
{
    const std::string mac = "I StartNetSpkTest: [NAM_API] MAC[" + kMacLogged + "], nChType[2], [3]";
    AtLine(mac, [&] { KillServer(); });

    StartNetSpkTest(kMac, 1, 2, 3);

    ExpectLog(PrologueLines("StartNetSpkTest") + mac + kAbsentLine + MethodErrorLine("StartNetSpkTest"));
}

class UnreadFeatureTest : public BusTest {};

TEST_F(UnreadFeatureTest, AStopWithoutASpeakerDoesNotReadIt)
{
    StopNetSpkTest(nullptr, 1, 2);
    EXPECT_EQ(feature::Reads(), 0);
}

} // namespace
} // namespace test_tone_test
