#include "ApiTest.h"
#include "support/Process.h"
#include "support/Wait.h"

#include <future>
#include <thread>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace {

class LostBusTest : public BusTest {
protected:
    explicit LostBusTest(const kiv::sandbox::BusOptions& options = {}) : BusTest(options) {}

    void BringBusBack()
    {
        bus_.Start();
        StartServer();
    }

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
        platform_log::WaitForLine(
            [](const LogLine& line) { return line.text.find("strProxyObjPath") != std::string::npos; });
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
    ExpectCallOnly(3);
}

// GIO delivers the loss of a connection in the context under which it was opened. Until then, it returns the closed
// connection.
TEST_F(LostBusTest, AHostThatOpenedTheBusAndRunsNoLoopLosesNoCall)
{
    auto* hosts = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    StartServer();
    Connect();
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, hosts);
    for (int loss = 0; loss < 3; ++loss) {
        LoseBus();
        BringBusBack();
        ExpectCallAndEvent(2);
    }
    auto* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    EXPECT_EQ(shared, hosts); // the same as without the library
    g_object_unref(shared);
    g_object_unref(hosts);
}

// The library releases the lost connection, so that GIO opens another one for the process.
TEST_F(LostBusTest, AHostThatRunsItsLoopHasASharedConnectionAgain)
{
    auto* hosts = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    StartServer();
    Connect();
    LoseBus();
    g_object_unref(hosts);
    BringBusBack();
    ExpectCallAndEvent(2);
    WaitUntil("the process to have a shared connection again", [] {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        auto* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
        const bool isClosed = g_dbus_connection_is_closed(shared) != FALSE;
        g_object_unref(shared);
        return !isClosed;
    });
    ExpectCallOnly(3);
}

TEST_F(LostBusTest, NoThreadAndNoConnectionIsLeftOver)
{
    StartServer();
    Connect();
    const auto lose = [this] {
        LoseBus();
        BringBusBack();
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
    StartServer();
    Connect();
    static std::promise<void> entered;
    static std::promise<void> release;
    SubscribeNamServiceCallback("busy", [](int event, void*, int) {
        if (event == 0x1234) {
            entered.set_value();
            Await("the test to let the callback go on", release.get_future());
        }
    });
    auto& client = *CNSGdbus::m_pInstance;
    auto* kept = static_cast<GDBusConnection*>(g_object_ref(client.m_pConnection));
    control_.SendEvent(0x1234, {});
    Await("the callback to be called", entered.get_future());
    Close(kept);
    control_.WaitForNoOwner(ClientBusName());
    EXPECT_EQ(StopNetworkSpeaker(1), 1);
    auto* next = static_cast<GDBusConnection*>(g_object_ref(client.m_pConnection));
    Close(next);
    g_object_unref(next);

    release.set_value();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    control_.WaitForOwner(ClientBusName());
    EXPECT_TRUE(control_.CallClient(ClientId(), "nam_notify_subscriber", "(@ay [0],)", 20000).answered);
    EXPECT_EQ(client.m_DestroyMessageMonitor(), 0);
    g_object_unref(kept);
}

TEST_F(LostBusTest, AMonitorThatEndsDoesNotTurnToTheNewConnectionAnyMore)
{
    StartServer();
    Connect();
    static std::promise<void> entered;
    static std::promise<void> release;
    SubscribeNamServiceCallback("ending", [](int, void*, int) {
        entered.set_value();
        Await("the test to let the callback go on", release.get_future());
        CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
    });
    control_.SendEvent(0x1234, {});
    Await("the callback to be called", entered.get_future());
    LoseBus();
    BringBusBack();
    EXPECT_EQ(StopNetworkSpeaker(1), 1); // makes the monitor thread follow, too

    release.set_value();
    EXPECT_EQ(CNSGdbus::m_pInstance->m_DestroyMessageMonitor(), 0);
}

// Drops every connection after its authentication, before it gets its name.
class DroppingBus {
public:
    DroppingBus()
    {
        g_main_context_push_thread_default(context_);
        gchar* guid = g_dbus_generate_guid();
        server_ = g_dbus_server_new_sync(
            "unix:tmpdir=/tmp", G_DBUS_SERVER_FLAGS_RUN_IN_THREAD, guid, nullptr, nullptr, nullptr);
        g_free(guid);
        g_dbus_server_start(server_);
        g_main_context_pop_thread_default(context_);
        thread_ = std::thread(g_main_loop_run, loop_);
        setenv("DBUS_SYSTEM_BUS_ADDRESS", g_dbus_server_get_client_address(server_), 1);
    }
    ~DroppingBus()
    {
        g_main_loop_quit(loop_);
        thread_.join();
        g_dbus_server_stop(server_);
        g_object_unref(server_);
        g_main_loop_unref(loop_);
        g_main_context_unref(context_);
    }
    DroppingBus(const DroppingBus&) = delete;
    DroppingBus& operator=(const DroppingBus&) = delete;

private:
    GMainContext* context_ = g_main_context_new();
    GMainLoop* loop_ = g_main_loop_new(context_, FALSE);
    GDBusServer* server_ = nullptr;
    std::thread thread_;
};

class DroppedTest : public LostBusTest {
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
