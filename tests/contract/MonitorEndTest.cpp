#include "contract/EventTest.h"
#include "src/link/Owners.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <memory>

using namespace kiv::test;
using ::testing::ElementsAre;

// Tests how the monitor thread ends, and what is left on the bus afterwards.
namespace monitor_end_test {
namespace {

constexpr GDBusInterfaceVTable kNoHandlers = {};

class OfflineMonitorEndTest : public EventTest {
protected:
    // Calls the client's object at the connection that the library and the host share. Returns the error's name.
    std::string CallObject(const std::string& uniqueName) const
    {
        const kiv::sandbox::Connection caller(bus_.Address());
        kiv::link::ErrorOwner error;
        const kiv::link::VariantOwner reply(g_dbus_connection_call_sync(
            caller.Get(), uniqueName.c_str(), ClientPath().c_str(), ClientInterface().c_str(), "nam_notify_subscriber",
            g_variant_new_parsed("(@ay [],)"), nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, 20'000, nullptr, error.Out()));
        if (reply != nullptr) {
            return "";
        }
        const kiv::link::TextOwner name(g_dbus_error_get_remote_error(error.get()));
        return name != nullptr ? name.get() : error->message;
    }

    void ExpectNothingOnTheBus(const std::string& uniqueName)
    {
        control_.WaitForNoOwner(ClientBusName());
        EXPECT_THAT(
            CallObject(uniqueName),
            ::testing::AnyOf(
                "org.freedesktop.DBus.Error.UnknownMethod", "org.freedesktop.DBus.Error.UnknownObject",
                "org.freedesktop.DBus.Error.UnknownInterface"));
    }

    void WaitForReferences(unsigned count)
    {
        auto* connection = G_OBJECT(client_.m_pConnection);
        WaitUntil(std::to_string(count) + " references to the connection", [&] {
            return static_cast<unsigned>(g_atomic_int_get(&connection->ref_count)) == count;
        });
    }
};

class MonitorEndTest : public Connected<OfflineMonitorEndTest> {};

TEST_F(MonitorEndTest, TheObjectGoesWhileTheHostKeepsTheConnection)
{
    const kiv::link::ConnectionOwner hosts(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    const std::string name = g_dbus_connection_get_unique_name(hosts.get());
    EXPECT_EQ(CallObject(name), "");

    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);

    ExpectNothingOnTheBus(name);
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    EXPECT_EQ(g_dbus_connection_get_unique_name(client_.m_pConnection), name);
}

TEST_F(MonitorEndTest, CallsOfOtherMethodsLeaveNothingBehind)
{
    WaitForReferences(2);
    const kiv::sandbox::Connection caller(bus_.Address());
    for (int call = 0; call < 100; ++call) {
        g_dbus_connection_call(
            caller.Get(), ClientBusName().c_str(), ClientPath().c_str(), ClientInterface().c_str(),
            "test_nam_notify_subscriber_1", g_variant_new_parsed("(1, 2, 'path', 3, 4)"), nullptr,
            G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr, nullptr);
    }
    const auto arrived = [] { return platform_log::OfFunction("NamClientReceiveHandleEvent").size(); };
    WaitUntil("the calls to arrive", [&] { return arrived() == 100; });
    WaitForReferences(2);
}

// In a callback, the monitor's context is the thread's default context.
TEST_F(MonitorEndTest, ASourceOfACallbacksThatIsAlwaysReadyHoldsUpNothing)
{
    static std::atomic<bool> isReleased = false;
    Callbacks::Do('a', [] {
        const kiv::link::SourceOwner source(g_idle_source_new());
        g_source_set_priority(source.get(), G_PRIORITY_LOW);
        g_source_set_callback(
            source.get(), [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr,
            [](gpointer) { isReleased = true; });
        g_source_attach(source.get(), g_main_context_get_thread_default());
    });
    SubscribeNamServiceCallback("a", Subscriber<'a'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)"));

    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_TRUE(isReleased);
}

// --- A callback that ends its thread ---

enum class How { kExit, kCancel, kExitAfterDestroy };

struct Ending {
    const char* name;
    How how;

    friend void PrintTo(const Ending& ending, std::ostream* out) { *out << ending.name; }
};

[[noreturn]] void EndThread(How how)
{
    if (how == How::kCancel) {
        pthread_cancel(pthread_self());
        pthread_testcancel();
    } else if (how == How::kExitAfterDestroy) {
        EXPECT_EQ(CNSGdbus::m_pInstance->m_DestroyMessageMonitor(), EDEADLK);
    }
    pthread_exit(nullptr);
}

class EndedThreadTest : public MonitorEndTest, public ::testing::WithParamInterface<Ending> {
protected:
    static void SubscribeAll()
    {
        SubscribeNamServiceCallback("a", Subscriber<'a'>);
        SubscribeNamServiceCallback("b", Subscriber<'b'>);
        SubscribeNamServiceCallback("c", Subscriber<'c'>);
    }

    void ExpectEnd(int eventId)
    {
        const kiv::link::ConnectionOwner hosts(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
        const std::string name = g_dbus_connection_get_unique_name(hosts.get());
        control_.SendEvent(eventId, {}); // answered before it is dispatched

        ExpectNothingOnTheBus(name);
        for (int call = 0; call < 5; ++call) {
            EXPECT_EQ(StopNetworkSpeaker(call), call);
        }
        EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
        EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
        EXPECT_EQ(client_.m_MonitorThread, 0U);
        EXPECT_EQ(client_.m_pMainLoop, nullptr);
        EXPECT_EQ(client_.m_pDbusNodeInfo, nullptr);
        EXPECT_EQ(client_.m_nRegistrationId, 0U);
        EXPECT_EQ(StopNetworkSpeaker(7), 7);
        EXPECT_THAT(DispatchLines(), ::testing::Not(::testing::Contains(kCallbackThrewLine)));
    }
};

TEST_P(EndedThreadTest, BySubscriber)
{
    Callbacks::Do('b', [] { EndThread(GetParam().how); });
    SubscribeAll();

    ExpectEnd(kEvent);

    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("a(7, 0)", "b(7, 0)"));
    // The subscriptions still exist.
    UnsubscribeNamServiceCallback("b");
    UnsubscribeNamServiceCallback("a");
    EXPECT_EQ(SubscribeNamServiceCallback("b", Subscriber<'b'>), 1);
    EXPECT_EQ(platform_log::Count("D SubscribeNamServiceCallback: b subscribe callback successful"), 2U);
}

TEST_P(EndedThreadTest, ByAtmosCallback)
{
    char hall[] = "hall";
    Callbacks::Do('b', [] { EndThread(GetParam().how); });
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'a'>, hall), 0);
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'b'>, hall), 0);
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'c'>, hall), 0);
    SubscribeNamServiceCallback("s", Subscriber<'s'>);

    ExpectEnd(NAMSERVICE_ATMOS_STATE);

    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("a(1, hall)", "b(1, hall)"));
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'b'>), 0);
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'b'>), -1);
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'b'>, hall), 0);
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'a'>), 0);
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'c'>), 0);
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'b'>), 0);
}

// The callback has removed receivers, including itself. They are not called again.
TEST_P(EndedThreadTest, BySubscriberThatHasRemovedOthers)
{
    Callbacks::Do('b', [] {
        for (const char* name : {"a", "b", "c"}) {
            UnsubscribeNamServiceCallback(name);
        }
        EndThread(GetParam().how);
    });
    SubscribeAll();

    ExpectEnd(kEvent);

    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("a(7, 0)", "b(7, 0)"));
    for (const std::string name : {"a", "b", "c"}) {
        const std::string line = "D SubscribeNamServiceCallback: " + name + " subscribe callback successful";
        EXPECT_EQ(SubscribeNamServiceCallback(name.c_str(), Subscriber<'n'>), 1);
        EXPECT_EQ(platform_log::Count(line), 2U); // the registration is a new one
    }
}

INSTANTIATE_TEST_SUITE_P(
    How, EndedThreadTest,
    ::testing::Values(
        Ending{"exit", How::kExit}, Ending{"cancel", How::kCancel},
        Ending{"exitAfterDestroy", How::kExitAfterDestroy}));

// --- Objects of the host's own ---

TEST_F(MonitorEndTest, AnObjectOfTheHostsGivesWayToTheLibrarysOwn)
{
    {
        const CNSGdbus own("own", nullptr, nullptr);
        EXPECT_EQ(CNSGdbus::m_pInstance, &own);
    }
    ASSERT_EQ(CNSGdbus::m_pInstance, &client_);
    EXPECT_NE(client_.m_MonitorThread, 0U);

    EXPECT_EQ(CNSGdbus::m_pInstance->m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
    control_.WaitForNoOwner(ClientBusName());
}

TEST_F(OfflineMonitorEndTest, AnOlderObjectOfTheHostsDoesNotTakeTheInstanceFromANewerOne)
{
    auto older = std::make_unique<CNSGdbus>("older", nullptr, nullptr);
    {
        const CNSGdbus newer("newer", nullptr, nullptr);
        older.reset();
        EXPECT_EQ(CNSGdbus::m_pInstance, &newer);
    }
    EXPECT_EQ(CNSGdbus::m_pInstance, &client_);
}

TEST_F(MonitorEndTest, AnObjectThatDoesNotServeEndsNothing)
{
    {
        CNSGdbus own("own", nullptr, nullptr);
        EXPECT_EQ(own.m_DestroyMessageMonitor(), 0);
        EXPECT_TRUE(own.GetProxy(kClientXml, kNoHandlers, false, false));
        EXPECT_EQ(own.m_DestroyMessageMonitor(), 0);
        EXPECT_NE(client_.m_MonitorThread, 0U);
        EXPECT_NE(client_.m_pMainLoop, nullptr);
        SubscribeNamServiceCallback("name", Subscriber<'n'>);
        EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
    }
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));

    // The monitor still follows the bus.
    LoseAndFindBus();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    ServerControl(bus_.Address()).WaitForOwner(ClientBusName());
}

TEST_F(OfflineMonitorEndTest, AnObjectOfTheHostsThatServesEndsTheMonitor)
{
    StartServer();
    {
        CNSGdbus own("own", nullptr, nullptr);
        EXPECT_TRUE(own.GetProxy(kClientXml, kNoHandlers, false, false));
        control_.WaitForOwner(ClientBusName());
        EXPECT_NE(own.m_MonitorThread, 0U);
        EXPECT_EQ(client_.m_MonitorThread, 0U);

        EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
        EXPECT_NE(own.m_MonitorThread, 0U);
        EXPECT_TRUE(
            control_.CallClient(ClientId(), "no_such_method", "(1,)", 20'000).error.find("UnknownMethod") !=
            std::string::npos);

        EXPECT_EQ(own.m_DestroyMessageMonitor(), 0);
        EXPECT_EQ(own.m_MonitorThread, 0U);
        EXPECT_EQ(own.m_pMainLoop, nullptr);
        control_.WaitForNoOwner(ClientBusName());
    }
    EXPECT_EQ(CNSGdbus::m_pInstance, &client_);
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
}

} // namespace
} // namespace monitor_end_test
