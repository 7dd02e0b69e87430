#include "src/link/ClientEndpoint.h"
#include "src/link/EventDispatch.h"
#include "support/BusTest.h"
#include "support/Gate.h"
#include "support/Wait.h"
#include "unit/Failures.h"

#include <pthread.h>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

class LinkFailureTest : public BusTest {};
class ConnectedLinkFailureTest : public Connected<BusTest> {};

TEST_F(LinkFailureTest, NoArgumentForTheIdQuery)
{
    g_variant.Arm(); // before the first call, which creates it

    EXPECT_FALSE(client_.m_GetProxyObj(false));

    ExpectLog({"E m_GetProxyObj: (param_in == NULL) return"});
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(ConnectedLinkFailureTest, NoMessageForTheOwnerQuery)
{
    g_messages.Arm();

    EXPECT_FALSE(client_.m_IsExistedBusname(kServerName));

    ExpectLog({"E m_IsExistedBusname: Failed to alloc new method call", kAbsentLine});
}

TEST_F(ConnectedLinkFailureTest, NoConnectionAndNoErrorEither)
{
    g_bus.Arm();

    EXPECT_FALSE(client_.GetProxy("<node/>", {}, false, false));

    ExpectLog({"E GetProxy: [NAM_API] m_pConnection is NULL"});
    EXPECT_EQ(client_.m_pConnection, nullptr);
    EXPECT_FALSE(client_.m_bProxyReady);
}

TEST_F(LinkFailureTest, MonitorWithoutAContext)
{
    g_contexts.Arm();
    EXPECT_EQ(CNSGdbus::m_Monitor(&client_), nullptr);
    ExpectLog({"E m_Monitor: [NAM_API] pContext is NULL"});
}

TEST_F(LinkFailureTest, MonitorWithoutNodeInfo)
{
    StartServer();
    g_nodeInfo.Arm();
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    platform_log::WaitFor("E m_Monitor: m_pDbusNodeInfo is NULL");
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_THAT(platform_log::OfFunction("m_Monitor"), ElementsAre("E m_Monitor: m_pDbusNodeInfo is NULL"));
    EXPECT_EQ(client_.m_pMainLoop, nullptr);
}

TEST_F(LinkFailureTest, MonitorWithBrokenXml)
{
    StartServer();
    EXPECT_TRUE(client_.GetProxy("<node><interface", {}, false, false));
    platform_log::WaitFor("E m_Monitor: pError is not NULL");
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_THAT(platform_log::OfFunction("m_Monitor"), ElementsAre("E m_Monitor: pError is not NULL"));
    EXPECT_EQ(client_.m_pDbusNodeInfo, nullptr);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

TEST_F(LinkFailureTest, MonitorWithoutAnInterfaceToServe)
{
    StartServer();
    EXPECT_TRUE(client_.GetProxy("<node/>", {}, false, false));
    platform_log::WaitFor("E m_Monitor: [NAM_API] the introspection XML has no interface");
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_THAT(
        platform_log::OfFunction("m_Monitor"),
        ElementsAre("E m_Monitor: [NAM_API] the introspection XML has no interface"));
}

TEST_F(LinkFailureTest, RegistrationWithoutIdAndWithoutError)
{
    StartServer();
    g_registration.Arm();
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    platform_log::WaitFor("E m_OnbusAcquired: [NAM_API] 0 == pInstance->m_nRegistrationId");
    EXPECT_THAT(
        platform_log::OfFunction("m_OnbusAcquired"),
        ElementsAre(
            "D m_OnbusAcquired: [NAM_API] Enter", ::testing::StartsWith("I m_OnbusAcquired: strProxyObjPath ["),
            "E m_OnbusAcquired: [NAM_API] 0 == pInstance->m_nRegistrationId"));
}

TEST_F(LinkFailureTest, ThereIsNeverASecondMonitorThread)
{
    StartServer();
    for (int call = 0; call < 5; ++call) {
        EXPECT_EQ(StopNetworkSpeaker(call), call);
    }
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(g_monitorThreads, 1);
}

TEST_F(LinkFailureTest, AMonitorThreadThatCannotBeCreatedIsNotTriedAgain)
{
    StartServer();
    g_thread.Arm();
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(StopNetworkSpeaker(6), 6);
    EXPECT_EQ(g_monitorThreads, 1);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
}

// A host may cancel the thread that waits for the monitor's end.
TEST_F(ConnectedLinkFailureTest, AWaitForTheMonitorsEndIsOverBeforeItsThreadIsCancelled)
{
    static Gate gate;
    SubscribeNamServiceCallback("busy", [](int, void*, int) { gate.Pass(); });
    control_.SendEvent(7, {});
    gate.WaitUntilReached();
    const auto end = [](void* client) -> void* {
        EXPECT_EQ(static_cast<CNSGdbus*>(client)->m_DestroyMessageMonitor(), 0);
        pthread_testcancel();
        return nullptr;
    };
    pthread_t waiting = 0;
    ASSERT_EQ(pthread_create(&waiting, nullptr, end, &client_), 0);
    WaitUntil("the thread to wait for the monitor's end", [] { return g_isJoining.load(); });
    ASSERT_EQ(pthread_cancel(waiting), 0);
    gate.Open();
    void* result = nullptr;
    ASSERT_EQ(pthread_join(waiting, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
}

TEST_F(LinkFailureTest, AnEventOfAnotherTypeIsAnsweredAndDropped)
{
    StartServer();
    const char* const xml = "<node><interface name='org.lumra.tv.networkspeaker.client.interface.%s'>"
                            "<method name='nam_notify_subscriber'><arg name='param' type='i' direction='in'/></method>"
                            "</interface></node>";
    EXPECT_TRUE(client_.GetProxy(xml, kiv::link::kClientVTable, false, false));
    control_.WaitForOwner(ClientBusName());

    EXPECT_TRUE(control_.CallClient(ClientId(), "nam_notify_subscriber", "(5,)", 20000).answered);

    // The answer is sent before that.
    platform_log::WaitFor("E NamNotifySubscriber: NULL payload");
    EXPECT_THAT(
        platform_log::OfFunction("NamNotifySubscriber"),
        ElementsAre(
            "I NamNotifySubscriber: [NAM_API] ** Enter **",
            "E NamNotifySubscriber: [NAM_API] method [nam_notify_subscriber], type [(ay)] expected, [(i)] found",
            "E NamNotifySubscriber: NULL payload"));
}

TEST_F(LinkFailureTest, AnEventWithoutParameters)
{
    EXPECT_FALSE(kiv::link::NamNotifySubscriber(nullptr, nullptr));
    ExpectLog({"I NamNotifySubscriber: [NAM_API] ** Enter **", "E NamNotifySubscriber: (return_data == NULL) return"});
}

} // namespace
