#include "contract/EventTest.h"
#include "src/link/Owners.h"

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::StartsWith;

namespace message_length_test {
namespace {

// By default, dbus-daemon carries 32 MiB in a message, with its header.
constexpr std::size_t kStockLength = 32 * 1024 * 1024;

// Returns data with which the call's message has this length.
std::vector<unsigned char> DataFor(std::size_t messageLength)
{
    const kiv::link::MessageOwner message(g_dbus_message_new_method_call(
        kServerName, "/org/lumra/tv/networkspeaker/server", "org.lumra.tv.networkspeaker.server.interface",
        "ConnectNetworkSpeakerByMobile"));
    g_dbus_message_set_serial(message.get(), 1);
    g_dbus_message_set_body(
        message.get(), g_variant_new("(@ay)", g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, "1234", 4, 1)));
    gsize withoutData = 0;
    g_free(g_dbus_message_to_blob(message.get(), &withoutData, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
    return std::vector<unsigned char>(messageLength - withoutData);
}

class MessageLengthTest : public Connected<EventTest> {
protected:
    MessageLengthTest() { trace_.reset(); } // the trace would take long for such a message

    static int Call(std::size_t messageLength)
    {
        const std::vector<unsigned char> data = DataFor(messageLength);
        platform_log::Clear();
        return ConnectNetworkSpeakerByMobile(data.data(), static_cast<unsigned>(data.size()));
    }
};

TEST_F(MessageLengthTest, TheLongestMessageIsCarried)
{
    control_.SetFault("ConnectNetworkSpeakerByMobile", "{'reply': <(5,)>}");
    EXPECT_EQ(Call(kStockLength), 5);
}

TEST_F(MessageLengthTest, OneThatIsLongerCostsTheConnectionAndTheNextCallFindsAnother)
{
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    for (const std::size_t length : {kStockLength + 1, 2 * kStockLength}) {
        EXPECT_EQ(Call(length), -1);
        EXPECT_THAT(
            platform_log::OfTestThread(),
            ElementsAre(
                StartLine("ConnectNetworkSpeakerByMobile"), kEnter, kEnter,
                // GLib's text depends on whether it was still writing the message.
                StartsWith("E MethodCall: [NAM_API] Error: method [ConnectNetworkSpeakerByMobile],["),
                MethodErrorLine("ConnectNetworkSpeakerByMobile"), "I ConnectNetworkSpeakerByMobile: return value[-1]"));
        EXPECT_TRUE(g_dbus_connection_is_closed(CNSGdbus::m_pInstance->m_pConnection));

        EXPECT_EQ(StopNetworkSpeaker(5), 5);
        platform_log::WaitForEndpoint();
        control_.WaitForOwner(ClientBusName());
        EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
    }
}

} // namespace
} // namespace message_length_test
