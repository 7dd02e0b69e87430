#include "contract/EventTest.h"

#include <csignal>

using namespace kiv::test;
using ::testing::ElementsAre;

// This is a program of its own, because it takes long: three time limits of calls, one after the other.

namespace {

class HungCallTest : public EventTest {
protected:
    ~HungCallTest() override { Resume(); }

    void Stop() { SignalBus(SIGSTOP); }
    void Resume() { SignalBus(SIGCONT); }
};

TEST_F(HungCallTest, ACallEndsOnABusThatHangsAndTheNextOneWorks)
{
    StartAndConnect();
    Stop();
    EXPECT_EQ(StopNetworkSpeaker(1), -1);
    Resume();

    const std::string noOwner = "E m_IsExistedBusname: Failed to get uid [Timeout was reached]";
    ExpectLog(
        {StartLine("StopNetworkSpeaker"), noOwner, kAbsentLine, kNoIdLine, LaunchLine("StopNetworkSpeaker"), kEnter,
         "E MethodCall: [NAM_API] Error: method [check_dbus_connection],[Timeout was reached]...", kNoIdLine, noOwner,
         kAbsentLine, kNoIdLine, GivenUpLine("StopNetworkSpeaker")});
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
}

} // namespace
