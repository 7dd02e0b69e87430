#include "EventTest.h"

#include <csignal>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::StartsWith;

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
    const std::string noId = "E GetProxy: !!! ERROR [NAM_API] m_GetProxyObj fail";
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "I StopNetworkSpeaker: >>> API Start ", noOwner, kAbsentLine, noId,
            "E StopNetworkSpeaker: !!! ERROR ns_proxy.GetProxy() return error, request launch kiv-service", kEnter,
            "E MethodCall: [NAM_API] Error: method [check_dbus_connection],[Timeout was reached]...", noId, noOwner,
            kAbsentLine, noId, "E StopNetworkSpeaker: !!! ERROR ns_proxy.GetProxy() return error, return"));
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
}

} // namespace
