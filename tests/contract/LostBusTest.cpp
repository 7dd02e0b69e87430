#include "ApiTest.h"

#include <filesystem>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace {

std::size_t EntriesOf(const char* directory)
{
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

class LostBusTest : public BusTest {
protected:
    explicit LostBusTest(const kiv::sandbox::BusOptions& options = {}) : BusTest(options) {}

    void LoseBus()
    {
        server_.reset();
        trace_.reset();
        bus_.Kill();
    }

    void BringBusBack()
    {
        bus_.Start();
        StartServer();
    }

    // Makes a call that finds another connection, on which events then come.
    void ExpectCallAndEvent(int stopType)
    {
        platform_log::Clear();
        EXPECT_EQ(StopNetworkSpeaker(stopType), stopType);
        platform_log::WaitForLine(
            [](const LogLine& line) { return line.text.find("strProxyObjPath") != std::string::npos; });
        ServerControl control(bus_.Address());
        control.WaitForOwner(ClientBusName());
        platform_log::Clear();
        control.SendEvent(0x1234, {});
        EXPECT_THAT(
            platform_log::OfFunction("NamNotifySubscriber"),
            ElementsAre("I NamNotifySubscriber: [NAM_API] ** Enter **"));
    }
};

TEST_F(LostBusTest, ALostBusIsReplacedByTheNextCallAndEventsFlowAgain)
{
    StartServer();
    Connect();
    for (int loss = 0; loss < 3; ++loss) {
        LoseBus();
        EXPECT_EQ(StopNetworkSpeaker(1), -1);

        BringBusBack();
        ExpectCallAndEvent(2);
    }
}

TEST_F(LostBusTest, ALostBusThatIsBackIsNoticedByTheVeryNextCall)
{
    StartServer();
    Connect();
    LoseBus();
    BringBusBack();
    platform_log::Clear();

    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "I StopNetworkSpeaker: >>> API Start ", kEnter, "M StopNetworkSpeaker: [NAM_API] STOP, nStopType[2]",
            kEnter, "I StopNetworkSpeaker: [NAM_API] StopType[2]"));
}

TEST_F(LostBusTest, ALostConnectionThatTheHostKeepsIsDoneWithout)
{
    StartServer();
    Connect();
    auto* kept = static_cast<GDBusConnection*>(g_object_ref(CNSGdbus::m_pInstance->m_pConnection));
    for (int loss = 0; loss < 2; ++loss) {
        LoseBus();
        EXPECT_EQ(StopNetworkSpeaker(1), -1);
        BringBusBack();
        ExpectCallAndEvent(2);
    }
    g_object_unref(kept);
    ExpectCallAndEvent(3);
}

// GIO delivers the loss of a connection in the context under which it was opened, and refers to it until then.
TEST_F(LostBusTest, AHostThatOpenedTheBusAndRunsNoLoopLosesNoCall)
{
    auto* hosts = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    StartServer();
    Connect();
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, hosts);
    g_object_unref(hosts);
    LoseBus();
    BringBusBack();

    ExpectCallAndEvent(2);

    // The host runs its loop after all: the connection is a shared one again.
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    ExpectCallAndEvent(3);
    auto* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, shared);
    g_object_unref(shared);
}

TEST_F(LostBusTest, NoThreadAndNoConnectionIsLeftOver)
{
    StartServer();
    Connect();
    const auto loseAndCount = [this] {
        LoseBus();
        BringBusBack();
        ExpectCallAndEvent(1);
        return std::pair(EntriesOf("/proc/self/fd"), EntriesOf("/proc/self/task"));
    };
    const auto first = loseAndCount();
    for (int loss = 0; loss < 5; ++loss) {
        EXPECT_EQ(loseAndCount(), first);
    }
}

class SmallBusTest : public LostBusTest {
protected:
    SmallBusTest() : LostBusTest({{}, "<limit name=\"max_message_size\">1000000</limit>"}) {}
};

TEST_F(SmallBusTest, AMessageForWhichTheBusDropsUsCostsOneCall)
{
    StartServer();
    Connect();
    const std::vector<STNetSpkConfig> tooLong(20'000, Speaker(1));
    GetNetSpkVolumeList(tooLong);
    EXPECT_EQ(platform_log::Count("E TransformNetSpkList: [NAM_API] MethodCall(GetNetSpkVolumeList) Error"), 1U);

    ExpectCallAndEvent(2);
}

} // namespace
