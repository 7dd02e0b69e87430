#include "contract/ApiTest.h"
#include "src/link/Owners.h"
#include "support/Gate.h"
#include "support/Process.h"
#include "support/Wait.h"

#include <thread>

using namespace kiv::test;
using kiv::link::NewReference;
using ::testing::ElementsAre;

namespace {

class OfflineLostBusTest : public BusTest {
protected:
    explicit OfflineLostBusTest(const kiv::sandbox::BusOptions& options = {}) : BusTest(options) {}

    // Makes a call over the current connection, and receives an event over it.
    void ExpectCallOnly(int stopType)
    {
        platform_log::Clear();
        EXPECT_EQ(StopNetworkSpeaker(stopType), stopType);
        ExpectEvent();
        EXPECT_THAT(platform_log::OfFunction("m_OnbusAcquired"), ::testing::IsEmpty());
    }

    // Makes a call that finds another connection, over which events then arrive.
    void ExpectCallAndEvent(int stopType)
    {
        platform_log::Clear();
        EXPECT_EQ(StopNetworkSpeaker(stopType), stopType);
        platform_log::WaitForEndpoint();
        ServerControl(bus_.Address()).WaitForOwner(ClientBusName());
        platform_log::Clear();
        ExpectEvent();
    }

    void ExpectEvent() const
    {
        ServerControl(bus_.Address()).SendEvent(0x1234, {});
        EXPECT_THAT(
            platform_log::OfFunction("NamNotifySubscriber"),
            ElementsAre("I NamNotifySubscriber: [NAM_API] ** Enter **"));
    }
};

class LostBusTest : public Connected<OfflineLostBusTest> {};

TEST_F(LostBusTest, ALostBusIsReplacedByTheNextCallAndEventsFlowAgain)
{
    for (int loss = 0; loss < 3; ++loss) {
        LoseBus();
        EXPECT_EQ(StopNetworkSpeaker(1), -1);

        BringBusBack();
        ExpectCallAndEvent(2);
    }
}

TEST_F(LostBusTest, ALostBusThatIsBackIsNoticedByTheVeryNextCall)
{
    LoseAndFindBus();

    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    ExpectLog(
        PrologueLines("StopNetworkSpeaker") + "M StopNetworkSpeaker: [NAM_API] STOP, nStopType[2]" + kEnter +
        "I StopNetworkSpeaker: [NAM_API] StopType[2]");
}

TEST_F(LostBusTest, ALostConnectionThatTheHostKeepsIsDoneWithout)
{
    auto kept = NewReference(client_.m_pConnection);
    for (int loss = 0; loss < 2; ++loss) {
        LoseBus();
        EXPECT_EQ(StopNetworkSpeaker(1), -1);
        BringBusBack();
        ExpectCallAndEvent(2);
    }
    kept.reset();
    ExpectCallOnly(3);
}

// GIO delivers the loss of a connection in the context under which it was opened. Until then, it returns the closed
// connection.
TEST_F(OfflineLostBusTest, AHostThatOpenedTheBusAndRunsNoLoopLosesNoCall)
{
    const kiv::link::ConnectionOwner hosts(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    StartAndConnect();
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, hosts.get());
    for (int loss = 0; loss < 3; ++loss) {
        LoseAndFindBus();
        ExpectCallAndEvent(2);
    }
    const kiv::link::ConnectionOwner shared(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    EXPECT_EQ(shared.get(), hosts.get()); // the same as without the library
}

// The library releases the lost connection, so that GIO opens another one for the process.
TEST_F(OfflineLostBusTest, AHostThatRunsItsLoopHasASharedConnectionAgain)
{
    kiv::link::ConnectionOwner hosts(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    StartAndConnect();
    LoseBus();
    hosts.reset();
    BringBusBack();
    ExpectCallAndEvent(2);
    WaitUntil("the process to have a shared connection again", [] {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        const kiv::link::ConnectionOwner shared(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
        return g_dbus_connection_is_closed(shared.get()) == FALSE;
    });
    ExpectCallOnly(3);
}

TEST_F(LostBusTest, NoThreadAndNoConnectionIsLeftOver)
{
    const auto lose = [this] {
        LoseAndFindBus();
        ExpectCallAndEvent(1);
    };
    lose();
    const std::size_t threads = Threads();
    const std::size_t files = OpenFiles();
    for (int loss = 0; loss < 5; ++loss) {
        lose();
        // GIO closes connections on a thread of its own.
        WaitUntil("GIO to close what the lost bus left", [&] { return Threads() <= threads && OpenFiles() <= files; });
    }
}

TEST_F(LostBusTest, AMonitorWhoseNextConnectionIsLostTooMovesToTheOneAfterThat)
{
    static Gate gate;
    SubscribeNamServiceCallback("busy", [](int event, void*, int) {
        if (event == 0x1234) {
            gate.Pass();
        }
    });
    const auto kept = NewReference(client_.m_pConnection);
    control_.SendEvent(0x1234, {});
    gate.WaitUntilReached();
    Close(kept.get());
    control_.WaitForNoOwner(ClientBusName());
    EXPECT_EQ(StopNetworkSpeaker(1), 1);
    Close(NewReference(client_.m_pConnection).get());

    gate.Open();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    control_.WaitForOwner(ClientBusName());
    EXPECT_TRUE(control_.Reaches(ClientId()));
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
}

TEST_F(LostBusTest, AMonitorThatEndsDoesNotTurnToTheNewConnectionAnyMore)
{
    static Gate gate;
    SubscribeNamServiceCallback("ending", [](int, void*, int) {
        gate.Pass();
        CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    });
    control_.SendEvent(0x1234, {});
    gate.WaitUntilReached();
    LoseAndFindBus();
    EXPECT_EQ(StopNetworkSpeaker(1), 1); // makes the monitor thread follow, too

    gate.Open();
    EXPECT_EQ(CNSGdbus::m_pInstance->m_DestroyMessageMonitor(), 0);
}

// Drops every connection after its authentication, before it gets its name.
class DroppingBus {
public:
    DroppingBus()
    {
        g_main_context_push_thread_default(context_.get());
        const kiv::link::TextOwner guid(g_dbus_generate_guid());
        server_.reset(g_dbus_server_new_sync(
            "unix:tmpdir=/tmp", G_DBUS_SERVER_FLAGS_RUN_IN_THREAD, guid.get(), nullptr, nullptr, nullptr));
        g_dbus_server_start(server_.get());
        g_main_context_pop_thread_default(context_.get());
        thread_ = std::thread(g_main_loop_run, loop_.get());
        setenv("DBUS_SYSTEM_BUS_ADDRESS", g_dbus_server_get_client_address(server_.get()), 1);
    }
    ~DroppingBus()
    {
        g_main_loop_quit(loop_.get());
        thread_.join();
        g_dbus_server_stop(server_.get());
    }
    DroppingBus(const DroppingBus&) = delete;
    DroppingBus& operator=(const DroppingBus&) = delete;

private:
    const kiv::link::ContextOwner context_{g_main_context_new()};
    const kiv::link::LoopOwner loop_{g_main_loop_new(context_.get(), FALSE)};
    kiv::link::ObjectOwner<GDBusServer> server_;
    std::thread thread_;
};

class DroppedTest : public OfflineLostBusTest {
protected:
    void ReturnToTheRealBus() { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1); }
};

// GIO keeps the connection that failed, with its error, until the loss is delivered.
TEST_F(DroppedTest, ABusThatIsLostWhileItIsOpenedIsFoundByTheNextCall)
{
    for (int stopType = 1; stopType <= 20; ++stopType) {
        {
            const DroppingBus dropping;
            EXPECT_EQ(StopNetworkSpeaker(stopType), -1);
        }
        ReturnToTheRealBus();
        StartServer();
        ExpectCallAndEvent(stopType);
        LoseBus();
        bus_.Start();
    }
}

TEST_F(DroppedTest, AHostThatLostTheBusWhileItOpenedItAndRunsNoLoopLosesNoCall)
{
    {
        const DroppingBus dropping;
        EXPECT_EQ(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr), nullptr);
    }
    ReturnToTheRealBus();
    StartServer();
    ExpectCallAndEvent(2);
}

// The library loses a connection while it opens it for itself.
TEST_F(DroppedTest, NothingIsLeftOfABusThatIsLostAgainAndAgainWhileItIsOpened)
{
    const DroppingBus dropping;
    EXPECT_EQ(StopNetworkSpeaker(1), -1);
    const std::size_t files = OpenFiles();
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(StopNetworkSpeaker(1), -1);
    }
    WaitUntil("GIO to close what was opened", [&] { return OpenFiles() <= files; });
}

class SmallBusTest : public Connected<OfflineLostBusTest> {
protected:
    SmallBusTest() : Connected({{}, "<limit name=\"max_message_size\">1000000</limit>"}) {}
};

TEST_F(SmallBusTest, AMessageForWhichTheBusDropsUsCostsOneCall)
{
    const std::vector<STNetSpkConfig> tooLong(20'000, Speaker(1));
    GetNetSpkVolumeList(tooLong);
    EXPECT_EQ(platform_log::Count("E TransformNetSpkList: [NAM_API] MethodCall(GetNetSpkVolumeList) Error"), 1U);

    ExpectCallAndEvent(2);
}

} // namespace
