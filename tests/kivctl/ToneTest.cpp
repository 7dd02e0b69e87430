#include "kivctl/KivctlTest.h"

namespace kiv::ctl::tone_test {
namespace {

using ToneTest = KivctlTest;

TEST_F(ToneTest, NumbersAreSent)
{
    ExpectOutput({"tone", "start", kLeft, "--param", "1", "--channel", "-2", "--extra", "3"}, "sent");
    ExpectOutput({"tone", "stop", kLeft, "--param", "4", "--extra", "5"}, "sent");
    ExpectCalls({"StartNetSpkTest(" + kLeftBytes + ", 1, -2, 3)", "StopNetSpkTest(" + kLeftBytes + ", 4, 5)"});
}

TEST_F(ToneTest, NumbersAreZeroByDefault)
{
    ExpectJson({"tone", "start", kLeft}, {{"sent", true}});
    ExpectJson({"tone", "stop", kLeft}, {{"sent", true}});
    ExpectCalls({"StartNetSpkTest(" + kLeftBytes + ", 0, 0, 0)", "StopNetSpkTest(" + kLeftBytes + ", 0, 0)"});
}

TEST_F(ToneTest, ATestThatTheServerRefusesIsAFailure)
{
    constexpr const char* kUnknown = "02:00:00:00:00:99";
    for (const Arguments& arguments :
         {Arguments{"tone", "start", kUnknown},
          {"tone", "stop", kUnknown},
          {"call", "StartNetSpkTest", kUnknown},
          {"call", "StopNetSpkTest", kUnknown}}) {
        ExpectFailure(arguments, 1, "NetSpkTest: the server refused it");
        EXPECT_THAT(
            Run(arguments).err, EndsWith("; one that is only seen must be connected first: kivctl connect new MAC\n"));
    }
}

TEST_F(ToneTest, BadArgumentsSendNothing)
{
    ExpectRefused({
        {{"tone", "start"}, "MAC"},
        {{"tone", "start", "left"}, "MAC: must be a MAC address such as 02:4b:49:56:00:01, got \"left\""},
        {{"tone", "start", kLeft, "--channel", "left"}, "--channel: must be a 32-bit integer, got \"left\""},
        {{"tone", "stop", kLeft, "--channel", "1"}, "--channel"},
    });
}

} // namespace
} // namespace kiv::ctl::tone_test
