#include "ApiTest.h"
#include "support/Wait.h"

#include <dlfcn.h>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>

using namespace kiv::test;

// A program of its own, because it comes between GIO and GLib.

namespace {

const std::thread::id g_testThread = std::this_thread::get_id();

// Where GIO takes up the client's bus name on the monitor thread: it listens for the loss of the connection, but has
// not asked for the name yet.
std::atomic<bool> g_stopsThere = false;
std::promise<void> g_isThere;
std::promise<void> g_goOn;

std::function<void()> g_atSleep;

bool g_deliversNothing = false;

template <typename Function>
Function* Next(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

[[gnu::visibility("default")]] gulong g_signal_connect_data(
    gpointer instance, const gchar* signal, GCallback handler, gpointer data, GClosureNotify destroyData,
    GConnectFlags flags)
{
    static auto* const next = Next<decltype(g_signal_connect_data)>("g_signal_connect_data");
    const gulong id = next(instance, signal, handler, data, destroyData, flags);
    if (std::strcmp(signal, "closed") == 0 && std::this_thread::get_id() != g_testThread &&
        g_stopsThere.exchange(false)) {
        g_isThere.set_value();
        Await("the test to let GIO go on", g_goOn.get_future());
    }
    return id;
}

[[gnu::visibility("default")]] void g_usleep(gulong microseconds)
{
    static auto* const next = Next<decltype(g_usleep)>("g_usleep");
    if (std::this_thread::get_id() == g_testThread && g_atSleep) {
        std::exchange(g_atSleep, nullptr)();
    }
    next(microseconds);
}

[[gnu::visibility("default")]] gboolean g_main_context_iteration(GMainContext* context, gboolean mayBlock)
{
    static auto* const next = Next<decltype(g_main_context_iteration)>("g_main_context_iteration");
    const bool isDelivery = std::this_thread::get_id() == g_testThread && mayBlock == FALSE;
    return isDelivery && g_deliversNothing ? FALSE : next(context, mayBlock);
}

namespace {

class NameRaceTest : public BusTest {
protected:
    void StartMonitorUpToThere()
    {
        StartServer();
        g_stopsThere = true;
        EXPECT_EQ(StopNetworkSpeaker(1), 1);
        Await("the monitor to be about to ask for its name", g_isThere.get_future());
    }
};

TEST_F(NameRaceTest, ACallThatFindsTheBusLostWaitsUntilGioHasAskedForTheName)
{
    StartMonitorUpToThere();
    auto* lost = static_cast<GDBusConnection*>(g_object_ref(CNSGdbus::m_pInstance->m_pConnection));
    Close(lost);

    g_atSleep = [] { g_goOn.set_value(); };
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    EXPECT_FALSE(g_atSleep);
    g_object_unref(lost);
    control_.WaitForOwner(ClientBusName());
    EXPECT_EQ(CNSGdbus::m_pInstance->m_DestroyMessageMonitor(), 0);
}

// GIO says that a connection is closed a moment before the loss can be delivered, and hands out the closed one
// meanwhile.
TEST_F(NameRaceTest, ALossThatIsDeliveredLateCostsTheSharedConnectionForAWhileOnly)
{
    StartServer();
    Connect();
    auto* lost = static_cast<GDBusConnection*>(g_object_ref(CNSGdbus::m_pInstance->m_pConnection));
    Close(lost);
    g_object_unref(lost);
    g_deliversNothing = true;
    EXPECT_EQ(StopNetworkSpeaker(1), 1);
    g_deliversNothing = false;
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    EXPECT_EQ(StopNetworkSpeaker(3), 3);
    auto* shared = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    EXPECT_FALSE(g_dbus_connection_is_closed(shared));
    EXPECT_EQ(CNSGdbus::m_pInstance->m_pConnection, shared);
    g_object_unref(shared);
}

// The library cannot keep a host from having the loss delivered just then, after which GIO never comes back to the
// name.
TEST_F(NameRaceTest, TheMonitorEndsAlthoughGioHasLostTheName)
{
    bool isDelivered = false;
    auto* hosts = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    StartMonitorUpToThere();
    const auto deliver = [](GDBusConnection*, gboolean, GError*, gpointer flag) { *static_cast<bool*>(flag) = true; };
    g_signal_connect(
        hosts, "closed", G_CALLBACK(static_cast<void (*)(GDBusConnection*, gboolean, GError*, gpointer)>(deliver)),
        &isDelivered);
    g_dbus_connection_close_sync(hosts, nullptr, nullptr);
    WaitUntil("the loss to be delivered", [&] {
        g_main_context_iteration(nullptr, FALSE);
        return isDelivered;
    });
    g_object_unref(hosts);

    g_log_set_always_fatal(G_LOG_LEVEL_ERROR); // GIO complains of itself
    g_goOn.set_value();
    EXPECT_EQ(CNSGdbus::m_pInstance->m_DestroyMessageMonitor(), 0);
}

} // namespace
