#include "contract/EventTest.h"
#include "src/link/Owners.h"
#include "support/Wait.h"

#include <atomic>

using namespace kiv::test;
using ::testing::ElementsAre;

namespace {

// Another connection on the bus, which is not the server.
class Stranger {
public:
    explicit Stranger(const std::string& address) : connection_(address) {}

    guint32 RequestName(const std::string& name) const
    {
        return connection_.CallDaemon("org.freedesktop.DBus", "RequestName", g_variant_new("(su)", name.c_str(), 0U));
    }

    void Send(GDBusMessage* message) const
    {
        const kiv::link::MessageOwner sent(message);
        g_dbus_connection_send_message(connection_.Get(), sent.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
    }

    void Flush() const { g_dbus_connection_flush_sync(connection_.Get(), nullptr, nullptr); }

private:
    kiv::sandbox::Connection connection_;
};

std::string UniqueName()
{
    return g_dbus_connection_get_unique_name(CNSGdbus::m_pInstance->m_pConnection);
}

class HostileBusTest : public EventTest {};

// A bus that lets unrequested replies through.
class LooseBusTest : public Connected<EventTest> {
protected:
    LooseBusTest()
        : Connected(
              {{},
               "<policy context=\"mandatory\">"
               "<allow send_requested_reply=\"false\" send_type=\"method_return\"/>"
               "<allow receive_requested_reply=\"false\" receive_type=\"method_return\"/>"
               "</policy>"})
    {
    }
};

std::atomic<unsigned> g_replies;

GDBusMessage* CountReplies(GDBusConnection* /*connection*/, GDBusMessage* message, gboolean incoming, gpointer /*data*/)
{
    if (incoming != FALSE && g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_RETURN) {
        ++g_replies;
    }
    return message;
}

TEST_F(LooseBusTest, RepliesThatNobodyAskedForAreNoAnswers)
{
    constexpr guint32 kReplies = 5000;
    GDBusConnection* connection = CNSGdbus::m_pInstance->m_pConnection;
    const guint filter = g_dbus_connection_add_filter(connection, CountReplies, nullptr, nullptr);
    const Stranger stranger(bus_.Address());
    for (guint32 serial = 1; serial <= kReplies; ++serial) {
        GDBusMessage* reply = g_dbus_message_new();
        g_dbus_message_set_message_type(reply, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
        g_dbus_message_set_destination(reply, UniqueName().c_str());
        g_dbus_message_set_reply_serial(reply, serial);
        g_dbus_message_set_body(reply, g_variant_new("(s)", "nonsense"));
        stranger.Send(reply);
    }
    stranger.Flush();
    WaitUntil("all replies to arrive", [] { return g_replies >= kReplies; });
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
    g_dbus_connection_remove_filter(connection, filter);
}

TEST_F(HostileBusTest, SignalsOfStrangersChangeNothing)
{
    StartAndConnect();
    const Stranger stranger(bus_.Address());
    for (int count = 0; count < 1000; ++count) {
        GDBusMessage* signal = g_dbus_message_new_signal(
            "/org/freedesktop/DBus", "org.freedesktop.DBus", count % 2 == 0 ? "NameLost" : "NameOwnerChanged");
        g_dbus_message_set_destination(signal, UniqueName().c_str());
        g_dbus_message_set_body(signal, g_variant_new("(s)", ClientBusName().c_str()));
        stranger.Send(signal);
    }
    stranger.Flush();
    for (int call = 0; call < 20; ++call) {
        EXPECT_EQ(StopNetworkSpeaker(call), call);
    }
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
}

TEST_F(HostileBusTest, AnIdThatAnotherProcessHasHoldsUpNoCallAndItsEventsComeOnceItIsFree)
{
    StartServer();
    control_.SetClientId("everybodys");
    const std::string name = "org.lumra.tv.networkspeaker.client.everybodys";
    {
        const Stranger first(bus_.Address());
        first.RequestName(name);
        control_.WaitForOwner(name);
        for (int call = 0; call < 3; ++call) {
            EXPECT_EQ(StopNetworkSpeaker(call), call);
        }
        platform_log::WaitForEndpoint();
        EXPECT_EQ(SubscribeNamServiceCallback("name", Subscriber<'n'>), 1);
    }
    // The library gets the name when the other connection is gone, at the latest.
    WaitUntil("the library to have the name", [this] {
        return control_.CallClient("everybodys", "nam_notify_subscriber", "(@ay [],)", 1000).answered;
    });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
}

} // namespace
