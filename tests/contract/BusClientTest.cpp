#include "contract/ApiTest.h"
#include "src/link/Owners.h"
#include "support/Life.h"
#include "support/Wait.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr const char* kXml = "<node/>";
const GDBusInterfaceVTable kNoHandlers = {};
// An "(i)" that reports when its last reference is released.
class WatchedValue {
public:
    GVariant* New()
    {
        return g_variant_new_from_data(G_VARIANT_TYPE("(i)"), &number_, sizeof number_, TRUE, OnFreed, this);
    }
    bool IsFreed() const { return freed_; }
    void WaitUntilFreed() const
    {
        WaitUntil("the last reference to a value to be given up", [this] { return IsFreed(); });
    }

private:
    static void OnFreed(gpointer self) { static_cast<WatchedValue*>(self)->freed_ = true; }

    const gint32 number_ = 5;
    std::atomic<bool> freed_ = false;
};

class OfflineBusClientTest : public BusTest {
protected:
    bool Call(const std::string& method, GVariant* input = nullptr, bool noOwnerCheck = false)
    {
        GVariant* output = nullptr;
        const bool succeeded = client_.MethodCall(method, input, &output, noOwnerCheck);
        output_.reset(output);
        return succeeded;
    }

    // Expects that the object is as a new one, apart from its name.
    static void ExpectEmpty(const CNSGdbus& client)
    {
        EXPECT_EQ(client.m_strClientName, "");
        EXPECT_EQ(client.m_strIntrospectionXml, "");
        EXPECT_EQ(client.m_MonitorThread, 0U);
        EXPECT_EQ(client.m_pDbusNodeInfo, nullptr);
        EXPECT_EQ(client.m_pMainLoop, nullptr);
        EXPECT_EQ(client.m_pConnection, nullptr);
        EXPECT_EQ(client.m_stInterfaceVTable.method_call, nullptr);
        EXPECT_EQ(client.m_stInterfaceVTable.get_property, nullptr);
        EXPECT_EQ(client.m_stInterfaceVTable.set_property, nullptr);
        EXPECT_EQ(client.m_nRegistrationId, 0U);
        EXPECT_FALSE(client.m_bProxyReady);
        EXPECT_EQ(client.m_pfnEventCallback, nullptr);
        EXPECT_EQ(client.m_pUserData, nullptr);
    }

    // The client has one reference to the connection, and the endpoint another. GIO's worker has one for a moment now
    // and then.
    void WaitForReferences() const
    {
        WaitUntil("two references to the connection", [this] {
            return g_atomic_int_get(&G_OBJECT(client_.m_pConnection)->ref_count) == 2;
        });
    }

    kiv::link::VariantOwner output_;
};

class BusClientTest : public Connected<OfflineBusClientTest> {};

TEST_F(OfflineBusClientTest, LoadingTouchesNoBusAndLeavesEverythingEmpty)
{
    EXPECT_EQ(client_.m_strProxyName, "ns");
    ExpectEmpty(client_);
    EXPECT_FALSE(g_KivDisabled);
    EXPECT_FALSE(g_GetSystemVal);
    EXPECT_EQ(m_launchthreadId, 0U);
    EXPECT_EQ(sizeof g_strDeviceName, 128U);
    EXPECT_THAT(g_strDeviceName, ::testing::Each('\0'));
    EXPECT_THAT(platform_log::Lines(), IsEmpty());
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(OfflineBusClientTest, MembersStandInTheirOrder)
{
    const void* const members[] = {
        &client_.m_strClientName, &client_.m_MonitorThread, &client_.m_strIntrospectionXml, &client_.m_pDbusNodeInfo,
        &client_.m_pMainLoop,     &client_.m_pConnection,   &client_.m_stInterfaceVTable,   &client_.m_nRegistrationId,
        &client_.m_strProxyName,  &client_.m_bProxyReady,   &client_.m_pfnEventCallback,    &client_.m_pUserData};
    EXPECT_TRUE(std::ranges::is_sorted(members));
    EXPECT_EQ(members[0], &client_); // there is nothing before the first member, so the class has no virtual functions
}

TEST_F(OfflineBusClientTest, TheConstructorLeavesNothingAsItWas)
{
    alignas(CNSGdbus) unsigned char memory[sizeof(CNSGdbus)];
    std::ranges::fill(memory, 0xff);
    auto* built = new (memory) CNSGdbus("built", nullptr, nullptr);
    ExpectEmpty(*built);
    built->~CNSGdbus();
    CNSGdbus::m_pInstance = &client_;
}

TEST_F(BusClientTest, AnObjectOfTheHostsCallsAndDropsItsConnection)
{
    {
        CNSGdbus own("own", nullptr, nullptr);
        EXPECT_TRUE(own.GetProxy(kXml, kNoHandlers, false, false));
        EXPECT_EQ(own.m_strClientName, ClientId());
        EXPECT_EQ(own.m_pConnection, client_.m_pConnection);
        EXPECT_EQ(own.m_MonitorThread, 0U);
    }
    CNSGdbus::m_pInstance = &client_;
    WaitForReferences();
    EXPECT_NE(client_.m_MonitorThread, 0U);
    EXPECT_TRUE(control_.Reaches(ClientId()));
}

TEST_F(OfflineBusClientTest, TheObjectBuiltLastIsTheInstance)
{
    int userData = 0;
    const auto callback = [](const _NS_PROXY_ASYNC_EVENT&, void*) { FAIL() << "nobody calls it"; };
    {
        const CNSGdbus other("other", callback, &userData);
        EXPECT_EQ(CNSGdbus::m_pInstance, &other);
        EXPECT_EQ(other.m_strProxyName, "other");
        EXPECT_NE(other.m_pfnEventCallback, nullptr);
        EXPECT_EQ(other.m_pUserData, &userData);
        EXPECT_EQ(other.m_pConnection, nullptr);
        EXPECT_FALSE(other.m_bProxyReady);
    }
    CNSGdbus::m_pInstance = &client_;
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(BusClientTest, TheFirstCallConnectsLearnsTheIdAndStartsTheMonitor)
{
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_TRUE(client_.m_bProxyReady);
    EXPECT_NE(client_.m_pConnection, nullptr);
    EXPECT_NE(client_.m_MonitorThread, 0U);
    EXPECT_NE(client_.m_pMainLoop, nullptr);
    EXPECT_NE(client_.m_pDbusNodeInfo, nullptr);
    EXPECT_NE(client_.m_nRegistrationId, 0U);
    EXPECT_NE(client_.m_stInterfaceVTable.method_call, nullptr);
    EXPECT_EQ(client_.m_stInterfaceVTable.get_property, nullptr);
    EXPECT_EQ(client_.m_stInterfaceVTable.set_property, nullptr);
    EXPECT_NE(client_.m_strIntrospectionXml.find("interface.%s"), std::string::npos);
}

TEST_F(BusClientTest, EachCallIsFourMessagesWithTheseHeaders)
{
    EXPECT_EQ(GetSurroundChannelNumber(), 0);

    const auto messages = SentMessages();
    ASSERT_EQ(messages.size(), 4U);
    for (const std::size_t query : {0U, 2U}) {
        const auto& message = messages[query];
        EXPECT_EQ(message.destination, "org.freedesktop.DBus");
        EXPECT_EQ(message.path, "/org/freedesktop/DBus");
        EXPECT_EQ(message.interface, "org.freedesktop.DBus");
        EXPECT_EQ(message.member, "NameHasOwner");
        EXPECT_EQ(message.signature, "s");
        EXPECT_EQ(message.BodyText(), "('org.lumra.tv.networkspeaker.server',)");
        EXPECT_EQ(message.flags, G_DBUS_MESSAGE_FLAGS_NONE);
    }
    for (const std::size_t call : {1U, 3U}) {
        const auto& message = messages[call];
        EXPECT_EQ(message.destination, "org.lumra.tv.networkspeaker.server");
        EXPECT_EQ(message.path, "/org/lumra/tv/networkspeaker/server");
        EXPECT_EQ(message.interface, "org.lumra.tv.networkspeaker.server.interface");
        EXPECT_EQ(message.flags, G_DBUS_MESSAGE_FLAGS_NONE); // the bus may start the server
    }
    EXPECT_EQ(messages[1].member, "check_dbus_connection");
    EXPECT_EQ(messages[1].signature, "i");
    EXPECT_EQ(messages[1].BodyText(), "(" + std::to_string(getpid()) + ",)");
    EXPECT_EQ(messages[3].member, "GetSurroundChannelNumber");
    EXPECT_EQ(messages[3].signature, "");
}

TEST_F(OfflineBusClientTest, TheHostsBufferIsTheHosts)
{
    StartServer();
    std::ranges::fill(g_strDeviceName, 'x');
    Connect();
    KillServer();
    StopNetworkSpeaker(0);
    EXPECT_THAT(g_strDeviceName, ::testing::Each('x'));
}

TEST_F(BusClientTest, ReusingAHeldConnectionSendsNothing)
{
    EXPECT_TRUE(client_.GetProxy(kXml, kNoHandlers, true, false));
    EXPECT_TRUE(client_.GetProxy(kXml, kNoHandlers, true, true));

    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(platform_log::Lines(), IsEmpty());
    EXPECT_NE(client_.m_strIntrospectionXml, kXml);
}

TEST_F(BusClientTest, ReuseWithoutAConnectionConnects)
{
    client_.GiveProxy();

    EXPECT_TRUE(client_.GetProxy(kXml, kNoHandlers, true, true));

    EXPECT_THAT(Sent(), ElementsAre(IdQuery()));
    EXPECT_EQ(client_.m_strIntrospectionXml, kXml);
    EXPECT_EQ(client_.m_stInterfaceVTable.method_call, nullptr);
}

TEST_F(BusClientTest, WithoutReuseTheIdIsAskedForEachTime)
{
    EXPECT_TRUE(client_.GetProxy(kXml, kNoHandlers, false, false));
    EXPECT_TRUE(client_.GetProxy(kXml, kNoHandlers, false, true));

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), IdQuery()));
}

TEST_F(BusClientTest, OneReferenceToTheConnectionWhateverTheNumberOfCalls)
{
    for (int call = 0; call < 100; ++call) {
        StopNetworkSpeaker(call);
    }
    WaitForReferences();
}

class ReleaseTest : public OfflineBusClientTest {
protected:
    void EndAndExpectTheConnectionGone()
    {
        Life connection(client_.m_pConnection);
        client_.m_DestroyMessageMonitor();
        client_.GiveProxy();
        connection.WaitForEnd();
    }
};

TEST_F(ReleaseTest, NobodyHoldsTheConnectionOnceItIsGivenUp)
{
    StartAndConnect();
    EndAndExpectTheConnectionGone();
}

TEST_F(ReleaseTest, NobodyHoldsItIfTheMonitorEndsBeforeItHasItsName)
{
    StartServer();
    StopNetworkSpeaker(0);
    EndAndExpectTheConnectionGone();
}

TEST_F(OfflineBusClientTest, WithoutXmlThereIsNoProxy)
{
    StartServer();
    EXPECT_FALSE(client_.GetProxy(nullptr, kNoHandlers, false, false));
    ExpectLog({"E GetProxy: (pszXml == NULL) return"});
}

TEST_F(BusClientTest, GiveProxyDropsTheConnection)
{
    client_.GiveProxy();
    EXPECT_EQ(client_.m_pConnection, nullptr);
    EXPECT_FALSE(client_.m_bProxyReady);
    EXPECT_EQ(client_.m_strClientName, ClientId());
    client_.GiveProxy();

    EXPECT_FALSE(Call("DisableSurround"));
    EXPECT_THAT(platform_log::Lines(), ::testing::SizeIs(1));
    EXPECT_EQ(platform_log::Count("E MethodCall: [NAM_API] m_pConnection is NULL"), 1U);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(BusClientTest, AnAbsentServerIsNotCalled)
{
    KillServer();
    MakeServerActivatable();
    ForgetTrafficOnly();

    EXPECT_FALSE(Call("DisableSurround"));

    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery));
    ExpectLog({kAbsentLine});
}

TEST_F(BusClientTest, WithoutTheOwnerCheckTheBusStartsTheServer)
{
    KillServer();
    MakeServerActivatable();
    ForgetTrafficOnly();

    EXPECT_TRUE(Call("DisableSurround", nullptr, true));

    EXPECT_THAT(Sent(), ElementsAre("DisableSurround()"));
    ExpectLog({kEnter});
}

TEST_F(BusClientTest, AnErrorOfTheServerIsOneLineAndAnEmptyReply)
{
    control_.SetFault("StopNetworkSpeaker", "{'error': <'org.example.Refused'>, 'message': <'not today'>}");

    const auto preset = kiv::link::Sink(g_variant_new("(i)", 1));
    GVariant* output = preset.get();
    EXPECT_FALSE(client_.MethodCall("StopNetworkSpeaker", g_variant_new("(i)", 1), &output, false));

    EXPECT_EQ(output, nullptr);
    ExpectLog({kEnter, ErrorLine("StopNetworkSpeaker", "GDBus.Error:org.example.Refused: not today")});
}

TEST_F(BusClientTest, ACallThatIsNotSentLeavesTheReplyAlone)
{
    KillServer();

    const auto preset = kiv::link::Sink(g_variant_new("(i)", 1));
    GVariant* output = preset.get();
    EXPECT_FALSE(client_.MethodCall("StopNetworkSpeaker", g_variant_new("(i)", 1), &output, false));

    EXPECT_EQ(output, preset.get());
}

TEST_F(BusClientTest, ACallEndsAfterEightSeconds)
{
    control_.SetFault("StopNetworkSpeaker", "{'silent': <true>}");

    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Call("StopNetworkSpeaker", g_variant_new("(i)", 1)));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_GE(elapsed, std::chrono::milliseconds(7990));
    EXPECT_LT(elapsed, std::chrono::seconds(20)); // GIO's own limit would be 25

    ExpectLog({kEnter, ErrorLine("StopNetworkSpeaker", "Timeout was reached")});
}

TEST_F(BusClientTest, ASlowAnswerWithinTheLimitIsWaitedFor)
{
    control_.SetFault("StopNetworkSpeaker", "{'delay': <uint32 4000>}");

    EXPECT_EQ(StopNetworkSpeaker(4), 4);
}

TEST_F(OfflineBusClientTest, AFloatingInputIsConsumedOnEveryPath)
{
    WatchedValue unconnected;
    EXPECT_FALSE(Call("StopNetworkSpeaker", unconnected.New()));
    EXPECT_TRUE(unconnected.IsFreed());

    StartServer();
    Connect();
    WatchedValue sent;
    EXPECT_TRUE(Call("StopNetworkSpeaker", sent.New()));
    sent.WaitUntilFreed();

    WatchedValue misnamed;
    EXPECT_FALSE(Call("no method", misnamed.New()));
    EXPECT_TRUE(misnamed.IsFreed());

    control_.SetFault("StopNetworkSpeaker", "{'error': <'org.example.Refused'>}");
    WatchedValue refused;
    EXPECT_FALSE(Call("StopNetworkSpeaker", refused.New()));
    refused.WaitUntilFreed();

    KillServer();
    WatchedValue unsent;
    EXPECT_FALSE(Call("StopNetworkSpeaker", unsent.New()));
    EXPECT_TRUE(unsent.IsFreed());
}

TEST_F(BusClientTest, AnInputThatTheCallerOwnsStaysTheCallers)
{
    WatchedValue value;
    kiv::link::VariantOwner owned = kiv::link::Sink(value.New());

    EXPECT_TRUE(Call("StopNetworkSpeaker", owned.get()));
    KillServer();
    EXPECT_FALSE(Call("StopNetworkSpeaker", owned.get()));

    EXPECT_FALSE(value.IsFreed());
    owned.reset();
    value.WaitUntilFreed();
}

TEST_F(BusClientTest, OwnerQuery)
{
    EXPECT_TRUE(client_.m_IsExistedBusname(kServerName));
    ExpectLog({});
    EXPECT_FALSE(client_.m_IsExistedBusname("org.example.Nobody"));
    ExpectLog({"E m_IsExistedBusname: !!! ERROR org.example.Nobody not exist "});
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, "NameHasOwner('org.example.Nobody')"));
}

class DenyingBusTest : public BusTest {
protected:
    DenyingBusTest()
        : BusTest(
              {{},
               "<policy context=\"mandatory\"><deny send_destination=\"org.freedesktop.DBus\" "
               "send_interface=\"org.freedesktop.DBus\" send_member=\"NameHasOwner\"/></policy>"})
    {
    }
};

TEST_F(DenyingBusTest, AnErrorInPlaceOfTheOwnerIsNoOwner)
{
    StartServer();

    EXPECT_EQ(GetSurroundChannelNumber(), -1);

    // The bus's error is a reply, too, with a text in place of the boolean.
    EXPECT_EQ(
        platform_log::Count("E m_IsExistedBusname: [NAM_API] method [NameHasOwner], type [(b)] expected, [(s)] found"),
        2U);
    EXPECT_EQ(platform_log::Count(kAbsentLine), 2U);
    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection"));
}

TEST_F(BusClientTest, OwnerQueryWithWhatIsNoText)
{
    EXPECT_FALSE(client_.m_IsExistedBusname(nullptr));
    EXPECT_FALSE(client_.m_IsExistedBusname("\xff\xfe"));

    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_EQ(platform_log::Count("E m_IsExistedBusname: (pszName is not valid UTF-8) return"), 2U);
}

TEST_F(BusClientTest, OwnerQueryOnALostConnection)
{
    LoseBus();

    EXPECT_FALSE(client_.m_IsExistedBusname(kServerName));

    ExpectLog({"E m_IsExistedBusname: Failed to get uid [The connection is closed]", kAbsentLine});
}

TEST_F(OfflineBusClientTest, WithoutABusEachAttemptIsOneLine)
{
    ReadFeature();
    LoseBus();

    EXPECT_EQ(GetSurroundChannelNumber(), -1);

    const std::string noBus = "E GetProxy: [NAM_API] NULL != pError";
    ExpectLog(
        {StartLine("GetSurroundChannelNumber"), noBus, LaunchLine("GetSurroundChannelNumber"), noBus, noBus,
         GivenUpLine("GetSurroundChannelNumber")});
    EXPECT_EQ(client_.m_pConnection, nullptr);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
}

TEST_F(BusClientTest, ABusThatIsLostLeavesNoConnectionBehind)
{
    LoseBus();

    EXPECT_FALSE(client_.GetProxy(kXml, kNoHandlers, false, false));

    ExpectLog({"E GetProxy: [NAM_API] NULL != pError"});
    EXPECT_EQ(client_.m_pConnection, nullptr);
    EXPECT_FALSE(client_.m_bProxyReady);
    EXPECT_FALSE(client_.GetProxy(kXml, kNoHandlers, true, true));
}

TEST_F(BusClientTest, AFailedIdQueryDropsTheConnectionAndKeepsTheLastId)
{
    control_.SetFault("check_dbus_connection", kRefusal);

    EXPECT_FALSE(client_.GetProxy(kXml, kNoHandlers, false, false));

    EXPECT_EQ(client_.m_pConnection, nullptr);
    EXPECT_FALSE(client_.m_bProxyReady);
    EXPECT_EQ(client_.m_strClientName, ClientId());
    ExpectLog({kEnter, RefusedLine("check_dbus_connection"), kNoIdLine});
}

TEST_F(BusClientTest, AnIdOfAnotherTypeIsNone)
{
    control_.SetFault("check_dbus_connection", "{'reply': <(42,)>}");

    EXPECT_FALSE(client_.m_GetProxyObj(false));

    EXPECT_EQ(client_.m_strClientName, "");
    ExpectLog({kEnter, "E m_GetProxyObj: [NAM_API] method [check_dbus_connection], type [(s)] expected, [(i)] found"});
}

TEST_F(BusClientTest, TheLatestIdIsKept)
{
    control_.SetClientId("another");

    EXPECT_EQ(StopNetworkSpeaker(1), 1);

    EXPECT_EQ(client_.m_strClientName, "another");
    EXPECT_NE(client_.m_pMainLoop, nullptr);
}

TEST_F(BusClientTest, LosingTheConnectionDoesNotEndTheHost)
{
    EXPECT_FALSE(g_dbus_connection_get_exit_on_close(client_.m_pConnection));
}

TEST_F(OfflineBusClientTest, ASharedConnectionOfTheHostsIsUsedAndNoLongerEndsIt)
{
    StartServer();
    const kiv::link::ConnectionOwner hosts(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    ASSERT_NE(hosts.get(), nullptr);

    EXPECT_EQ(StopNetworkSpeaker(1), 1);

    EXPECT_EQ(client_.m_pConnection, hosts.get());
    EXPECT_FALSE(g_dbus_connection_get_exit_on_close(hosts.get()));
}

} // namespace
