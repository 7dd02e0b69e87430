#include "contract/EventTest.h"
#include "src/link/Owners.h"
#include "support/Wait.h"
#include "tools/sandbox/Connection.h"

#include <csignal>
#include <future>

using namespace kiv::test;

// Tests with a bus daemon that hangs.
namespace hung_bus_test {
namespace {

// Shorter than GIO's default, and than any time limit for which the bus could delay the library's end.
constexpr int kPatienceOfOthersMs = 20'000;

class HungBusTest : public EventTest {
protected:
    ~HungBusTest() override { Resume(); }

    void Stop() { SignalBus(SIGSTOP); }
    void Resume() { SignalBus(SIGCONT); }

    // Ends the monitor while the bus hangs. That must be done before an earlier call of other code gives up.
    void ExpectEndWithoutTheBus()
    {
        bool hasGivenUp = false;
        g_main_context_push_thread_default(others_.Context());
        g_dbus_connection_call(
            others_.Get(), "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer", "Ping",
            nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, kPatienceOfOthersMs, nullptr,
            [](GObject* connection, GAsyncResult* result, gpointer givenUp) {
                const kiv::link::VariantOwner reply(
                    g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, nullptr));
                EXPECT_EQ(reply.get(), nullptr) << "the bus does not hang";
                *static_cast<bool*>(givenUp) = true;
            },
            &hasGivenUp);
        g_main_context_pop_thread_default(others_.Context());

        EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);

        while (g_main_context_iteration(others_.Context(), FALSE) != FALSE) {
        }
        EXPECT_FALSE(hasGivenUp);
        Close(others_.Get());
        WaitUntil("the other call to end", [&] {
            g_main_context_iteration(others_.Context(), FALSE);
            return hasGivenUp;
        });
    }

private:
    const kiv::sandbox::Connection others_{bus_.Address()};
};

GDBusMessage* TellOfRequest(GDBusConnection* /*connection*/, GDBusMessage* message, gboolean incoming, gpointer asked)
{
    if (incoming == FALSE && g_strcmp0(g_dbus_message_get_member(message), "RequestName") == 0) {
        static_cast<std::promise<void>*>(asked)->set_value();
    }
    return message;
}

TEST_F(HungBusTest, TheMonitorEndsAtOnce)
{
    StartAndConnect();
    Stop();
    ExpectEndWithoutTheBus();

    Resume();
    control_.WaitForNoOwner(ClientBusName());
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
}

TEST_F(HungBusTest, AMonitorThatHasJustAskedForItsNameEndsAtOnce)
{
    StartServer();
    std::promise<void> asked;
    const kiv::link::ConnectionOwner shared(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    g_dbus_connection_set_exit_on_close(shared.get(), FALSE);
    const guint filter = g_dbus_connection_add_filter(shared.get(), TellOfRequest, &asked, nullptr);
    platform_log::OnLine([&](const LogLine& line) {
        if (line.text.starts_with("strProxyObjPath")) {
            Stop(); // before the name is requested
        }
    });
    EXPECT_TRUE(client_.GetProxy(kClientXml, {}, false, false));
    Await("the name to be asked for", asked.get_future());
    platform_log::OnLine(nullptr);
    g_dbus_connection_remove_filter(shared.get(), filter);
    ExpectEndWithoutTheBus();

    Resume();
    control_.WaitForNoOwner(ClientBusName());
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
}

} // namespace
} // namespace hung_bus_test
