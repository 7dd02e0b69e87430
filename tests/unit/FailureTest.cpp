// What cannot be made to fail from outside: the calls below are replaced at link time, and fail when a test says so.

#include "link/ClientEndpoint.h"
#include "link/EventDispatch.h"
#include "support/BusTest.h"

#include <atomic>
#include <cstdarg>
#include <cstdlib>

using namespace kiv::test;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

// Fails the next call that is made while it is armed.
class Failure {
public:
    void Arm() { armed_ = true; }
    bool Strikes() { return armed_.exchange(false); }

private:
    std::atomic<bool> armed_ = false;
};

Failure g_calloc;
Failure g_variant;
Failure g_messages;
Failure g_contexts;
Failure g_nodeInfo;
Failure g_bus;
Failure g_registration;
Failure g_thread;
std::atomic<int> g_monitorThreads;

} // namespace

// Seen by the libraries that call them too.
#pragma GCC visibility push(default)

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return g_calloc.Strikes() ? nullptr : __real_calloc(count, size);
}

GVariant* __wrap_g_variant_new(const gchar* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    GVariant* value = g_variant.Strikes() ? nullptr : g_variant_new_va(format, nullptr, &arguments);
    va_end(arguments);
    return value;
}

GDBusMessage* __real_g_dbus_message_new_method_call(
    const gchar* name, const gchar* path, const gchar* interface, const gchar* method);
GDBusMessage*
__wrap_g_dbus_message_new_method_call(const gchar* name, const gchar* path, const gchar* interface, const gchar* method)
{
    return g_messages.Strikes() ? nullptr : __real_g_dbus_message_new_method_call(name, path, interface, method);
}

GMainContext* __real_g_main_context_new();
GMainContext* __wrap_g_main_context_new()
{
    return g_contexts.Strikes() ? nullptr : __real_g_main_context_new();
}

GDBusNodeInfo* __real_g_dbus_node_info_new_for_xml(const gchar* xml, GError** error);
GDBusNodeInfo* __wrap_g_dbus_node_info_new_for_xml(const gchar* xml, GError** error)
{
    return g_nodeInfo.Strikes() ? nullptr : __real_g_dbus_node_info_new_for_xml(xml, error);
}

GDBusConnection* __real_g_bus_get_sync(GBusType type, GCancellable* cancellable, GError** error);
GDBusConnection* __wrap_g_bus_get_sync(GBusType type, GCancellable* cancellable, GError** error)
{
    return g_bus.Strikes() ? nullptr : __real_g_bus_get_sync(type, cancellable, error);
}

guint __real_g_dbus_connection_register_object(
    GDBusConnection* connection, const gchar* path, GDBusInterfaceInfo* interface, const GDBusInterfaceVTable* vtable,
    gpointer data, GDestroyNotify free, GError** error);
guint __wrap_g_dbus_connection_register_object(
    GDBusConnection* connection, const gchar* path, GDBusInterfaceInfo* interface, const GDBusInterfaceVTable* vtable,
    gpointer data, GDestroyNotify free, GError** error)
{
    return g_registration.Strikes()
               ? 0
               : __real_g_dbus_connection_register_object(connection, path, interface, vtable, data, free, error);
}

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    if (body == CNSGdbus::m_Monitor) {
        ++g_monitorThreads;
        if (g_thread.Strikes()) {
            return EAGAIN;
        }
    }
    return __real_pthread_create(thread, attributes, body, argument);
}

// NOLINTEND(bugprone-reserved-identifier)
}

#pragma GCC visibility pop

namespace {

class FailureTest : public BusTest {
protected:
    CNSGdbus& client_ = *CNSGdbus::m_pInstance;
};

TEST_F(FailureTest, StartWithoutMemoryForTheSpeakers)
{
    StartServer();
    Connect();
    std::vector<STNetSpkConfig> list(3);
    g_calloc.Arm();

    EXPECT_EQ(StartNetworkSpeaker(80, list, 0), -1);

    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "SetNetSpkSettingMode"));
    EXPECT_EQ(platform_log::OfTestThread().back(), "E StartNetworkSpeaker: [NAM_API] calloc() fail");
}

TEST_F(FailureTest, StartWhereNoBytesAreNoMemory)
{
    StartServer();
    Connect();
    std::vector<STNetSpkConfig> none;
    g_calloc.Arm();

    EXPECT_EQ(StartNetworkSpeaker(80, none, 0), -1);

    EXPECT_EQ(platform_log::OfTestThread().back(), "E StartNetworkSpeaker: [NAM_API] calloc() fail");
}

TEST_F(FailureTest, NoArgumentForTheIdQuery)
{
    StartServer();
    Connect();
    g_variant.Arm();

    EXPECT_FALSE(client_.m_GetProxyObj(false));

    EXPECT_THAT(platform_log::OfTestThread(), ElementsAre("E m_GetProxyObj: (param_in == NULL) return"));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(FailureTest, NoMessageForTheOwnerQuery)
{
    StartServer();
    Connect();
    g_messages.Arm();

    EXPECT_FALSE(client_.m_IsExistedBusname(kServerName));

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "E m_IsExistedBusname: Failed to alloc new method call",
            "E m_IsExistedBusname: !!! ERROR org.lumra.tv.networkspeaker.server not exist "));
}

TEST_F(FailureTest, NoConnectionAndNoErrorEither)
{
    StartServer();
    Connect();
    g_bus.Arm();

    EXPECT_FALSE(client_.GetProxy("<node/>", {}, false, false));

    EXPECT_THAT(platform_log::OfTestThread(), ElementsAre("E GetProxy: [NAM_API] m_pConnection is NULL"));
    EXPECT_EQ(client_.m_pConnection, nullptr);
    EXPECT_FALSE(client_.m_bProxyReady);
}

TEST_F(FailureTest, MonitorWithoutAContext)
{
    g_contexts.Arm();
    EXPECT_EQ(CNSGdbus::m_Monitor(&client_), nullptr);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAre("E m_Monitor: [NAM_API] pContext is NULL"));
}

TEST_F(FailureTest, MonitorWithoutNodeInfo)
{
    StartServer();
    g_nodeInfo.Arm();
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_THAT(platform_log::OfFunction("m_Monitor"), ElementsAre("E m_Monitor: m_pDbusNodeInfo is NULL"));
    EXPECT_EQ(client_.m_pMainLoop, nullptr);
}

TEST_F(FailureTest, MonitorWithBrokenXml)
{
    StartServer();
    EXPECT_TRUE(client_.GetProxy("<node><interface", {}, false, false));
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_THAT(platform_log::OfFunction("m_Monitor"), ElementsAre("E m_Monitor: pError is not NULL"));
    EXPECT_EQ(client_.m_pDbusNodeInfo, nullptr);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

TEST_F(FailureTest, MonitorWithoutAnInterfaceToServe)
{
    StartServer();
    EXPECT_TRUE(client_.GetProxy("<node/>", {}, false, false));
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_THAT(
        platform_log::OfFunction("m_Monitor"),
        ElementsAre("E m_Monitor: [NAM_API] the introspection XML has no interface"));
}

TEST_F(FailureTest, RegistrationWithoutIdAndWithoutError)
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

TEST_F(FailureTest, ThereIsNeverASecondMonitorThread)
{
    StartServer();
    for (int call = 0; call < 5; ++call) {
        EXPECT_EQ(StopNetworkSpeaker(call), call);
    }
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(g_monitorThreads, 1);
}

TEST_F(FailureTest, AMonitorThreadThatCannotBeCreatedIsNotTriedAgain)
{
    StartServer();
    g_thread.Arm();
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(StopNetworkSpeaker(6), 6);
    EXPECT_EQ(g_monitorThreads, 1);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
}

TEST_F(FailureTest, AnEventOfAnotherTypeIsAnsweredAndDropped)
{
    StartServer();
    const char* const xml = "<node><interface name='org.lumra.tv.networkspeaker.client.interface.%s'>"
                            "<method name='nam_notify_subscriber'><arg name='param' type='i' direction='in'/></method>"
                            "</interface></node>";
    EXPECT_TRUE(client_.GetProxy(xml, kiv::link::kClientVTable, false, false));
    control_.WaitForOwner(ClientBusName());

    EXPECT_TRUE(control_.CallClient(ClientId(), "nam_notify_subscriber", "(5,)", 20000).answered);

    EXPECT_THAT(
        platform_log::OfFunction("NamNotifySubscriber"),
        ElementsAre(
            "I NamNotifySubscriber: [NAM_API] ** Enter **",
            "E NamNotifySubscriber: [NAM_API] method [nam_notify_subscriber], type [(ay)] expected, [(i)] found",
            "E NamNotifySubscriber: NULL payload"));
}

TEST_F(FailureTest, AnEventWithoutParameters)
{
    EXPECT_FALSE(kiv::link::NamNotifySubscriber(nullptr, nullptr));
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre(
            "I NamNotifySubscriber: [NAM_API] ** Enter **", "E NamNotifySubscriber: (return_data == NULL) return"));
}

} // namespace
