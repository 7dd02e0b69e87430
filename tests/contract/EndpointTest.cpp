#include "src/link/Owners.h"
#include "support/BusTest.h"
#include "support/Gate.h"
#include "support/Wait.h"

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <future>
#include <mutex>
#include <numeric>
#include <ostream>

using namespace kiv::test;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr int kSomeEvent = 0x01234567;
const std::string kEventEntered = "I NamNotifySubscriber: [NAM_API] ** Enter **";

using Data = std::vector<unsigned char>;

struct Event {
    int id;
    int length;
    Data data; // the whole buffer
    pthread_t thread;
};

// The events that subscribers have received, in order.
class Received {
public:
    static void Add(int id, void* data, int length)
    {
        const auto* bytes = static_cast<const unsigned char*>(data);
        const std::lock_guard lock(mutex_);
        events_.push_back({id, length, Data(bytes, bytes + NAMSERVICE_EVENT_DATA_MAX), pthread_self()});
        changed_.notify_all();
    }
    static std::vector<Event> WaitFor(std::size_t count)
    {
        std::unique_lock lock(mutex_);
        WaitUntil(std::to_string(count) + " events", changed_, lock, [&] { return events_.size() >= count; });
        return events_;
    }

private:
    static inline std::mutex mutex_;
    static inline std::condition_variable changed_;
    static inline std::vector<Event> events_;
};

class OfflineEndpointTest : public BusTest {};
class EndpointTest : public Connected<OfflineEndpointTest> {};

class SubscribedEndpointTest : public EndpointTest {
protected:
    SubscribedEndpointTest()
    {
        EXPECT_EQ(SubscribeNamServiceCallback("test", Received::Add), 1);
        ForgetTraffic();
    }

    Event TheOneEvent()
    {
        // Events arrive in order, and this one is the last.
        control_.SendEvent(kSomeEvent, {});
        const auto events = Received::WaitFor(2);
        EXPECT_EQ(events.size(), 2U);
        return events.front();
    }

    // Expects that this event is the next one that arrives.
    void ExpectOnlyTheNextEvent()
    {
        control_.SendEvent(kSomeEvent, {});
        EXPECT_EQ(Received::WaitFor(1).front().id, kSomeEvent);
    }
};

Data Numbers(std::size_t count)
{
    Data data(count);
    std::iota(data.begin(), data.end(), static_cast<unsigned char>(1));
    return data;
}

// Returns a whole buffer that begins with the data.
Data Padded(Data data)
{
    data.resize(NAMSERVICE_EVENT_DATA_MAX);
    return data;
}

TEST_F(EndpointTest, TheObjectIsServedUnderTheClientsNames)
{
    const kiv::sandbox::Connection caller(bus_.Address());
    const kiv::link::VariantOwner reply(g_dbus_connection_call_sync(
        caller.Get(), ClientBusName().c_str(), ClientPath().c_str(), "org.freedesktop.DBus.Introspectable",
        "Introspect", nullptr, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, -1, nullptr, nullptr));
    ASSERT_NE(reply.get(), nullptr);
    const char* xml = nullptr;
    g_variant_get(reply.get(), "(&s)", &xml);
    const kiv::link::NodeInfoOwner node(g_dbus_node_info_new_for_xml(xml, nullptr));
    ASSERT_NE(node.get(), nullptr);
    GDBusInterfaceInfo* interface = g_dbus_node_info_lookup_interface(node.get(), ClientInterface().c_str());
    ASSERT_NE(interface, nullptr);
    Lines methods;
    for (GDBusMethodInfo** method = interface->methods; *method != nullptr; ++method) {
        std::string line = (*method)->name;
        for (GDBusArgInfo** arg = (*method)->in_args; *arg != nullptr; ++arg) {
            line += std::string(" ") + (*arg)->name + ":" + (*arg)->signature;
        }
        methods.push_back(line);
        EXPECT_TRUE((*method)->out_args == nullptr || (*method)->out_args[0] == nullptr);
    }
    EXPECT_THAT(
        methods, ElementsAre(
                     "nam_notify_subscriber param:ay",
                     "test_nam_notify_subscriber_1 client_cb:i request_id:i img_path:s result:i user_data:i",
                     "000_nam_notify_subscriber client_cb:i eventtype:i param:ay result:i user_data:i"));
}

TEST_F(OfflineEndpointTest, RegisteringTheObjectIsLogged)
{
    StartServer();
    StopNetworkSpeaker(0);

    const LogLine line = platform_log::WaitForLine(
        [](const LogLine& one) { return one.function == "m_OnbusAcquired" && one.priority == 4; });
    const kiv::link::TextOwner pointer(g_strdup_printf("%p", static_cast<void*>(client_.m_pConnection)));
    EXPECT_EQ(line.text, "strProxyObjPath [" + ClientPath() + "] pConnection " + pointer.get());
    EXPECT_EQ(platform_log::OfFunction("m_OnbusAcquired").front(), "D m_OnbusAcquired: [NAM_API] Enter");
}

TEST_F(OfflineEndpointTest, AnObjectThatIsThereAlreadyIsOneErrorLine)
{
    StartServer();
    const kiv::link::ConnectionOwner shared(g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    const std::string xml = "<node><interface name='" + ClientInterface() + "'/></node>";
    const kiv::link::NodeInfoOwner node(g_dbus_node_info_new_for_xml(xml.c_str(), nullptr));
    const guint taken = g_dbus_connection_register_object(
        shared.get(), ClientPath().c_str(), node->interfaces[0], nullptr, nullptr, nullptr, nullptr);
    ASSERT_NE(taken, 0U);

    EXPECT_EQ(StopNetworkSpeaker(3), 3);

    const LogLine line = platform_log::WaitForLine(
        [](const LogLine& one) { return one.function == "m_OnbusAcquired" && one.priority == 6; });
    EXPECT_EQ(
        line.text, "[NAM_API] Error: [An object is already exported for the interface " + ClientInterface() + " at " +
                       ClientPath() + "]...");
    EXPECT_EQ(StopNetworkSpeaker(4), 4);
}

TEST_F(EndpointTest, AnEventIsAnsweredAndLogged)
{
    control_.SendEvent(kSomeEvent, {1, 2, 3});

    EXPECT_THAT(
        Lines{
            platform_log::OfFunction("NamClientReceiveHandleEvent") + platform_log::OfFunction("NamNotifySubscriber")},
        ElementsAre(
            "I NamClientReceiveHandleEvent: [NAM_API] object_path[" + ClientPath() + "], interface_name[" +
                ClientInterface() + "], method_name[nam_notify_subscriber]",
            kEventEntered));
}

TEST_F(EndpointTest, TheAnswerIsEmpty)
{
    const auto answer =
        control_.CallClient(ClientId(), "nam_notify_subscriber", "(@ay [1, 0, 0, 0, 0, 0, 0, 0],)", 20000);

    EXPECT_TRUE(answer.answered);
    EXPECT_EQ(answer.error, "");
    EXPECT_EQ(answer.reply, "'()'"); // the simulator's form of an empty tuple
}

TEST_F(EndpointTest, TheServerDoesNotWaitForReceivers)
{
    static Gate gate;
    SubscribeNamServiceCallback("blocking", [](int, void*, int) { gate.Pass(); });
    SubscribeNamServiceCallback("then", Received::Add);

    control_.SendEvent(kSomeEvent, {});

    gate.Open();
    Received::WaitFor(1);
}

TEST_F(SubscribedEndpointTest, ReceiversRunOnTheMonitorThread)
{
    control_.SendEvent(kSomeEvent, {});
    EXPECT_TRUE(pthread_equal(TheOneEvent().thread, client_.m_MonitorThread));
}

TEST_F(SubscribedEndpointTest, AReceiverGetsTheId)
{
    for (const int id : {0x7fffffff, -2}) {
        control_.SendEvent(id, {});
    }
    const auto events = Received::WaitFor(2);
    EXPECT_EQ(events[0].id, 0x7fffffff);
    EXPECT_EQ(events[1].id, -2);
}

// --- Lengths ---

// A payload whose header announces a length, and what the receiver gets of it. The receiver's buffer ends with zeroes.
struct LengthCase {
    const char* name;
    int announced;
    Data data;
    int length;
    Data received;

    friend void PrintTo(const LengthCase& one, std::ostream* out) { *out << one.name; }
};

class LengthTest : public SubscribedEndpointTest, public ::testing::WithParamInterface<LengthCase> {};

TEST_P(LengthTest, AReceiverGetsLengthAndData)
{
    control_.SendPayload(Payload(kSomeEvent, GetParam().announced, GetParam().data));

    const Event event = TheOneEvent();
    EXPECT_EQ(event.id, kSomeEvent);
    EXPECT_EQ(event.length, GetParam().length);
    EXPECT_EQ(event.data, Padded(GetParam().received));
}

INSTANTIATE_TEST_SUITE_P(
    Of, LengthTest,
    ::testing::Values(
        LengthCase{"AShortEvent", 5, Numbers(5), 5, Numbers(5)},
        LengthCase{"TheLongestEvent", 2200, Numbers(2200), 2200, Numbers(2200)},
        LengthCase{"ALongerEventThatLosesAByte", 2201, Numbers(2201), 2200, Numbers(2200)},
        LengthCase{"ZeroWhateverFollows", 0, Numbers(20), 0, {}},
        LengthCase{"ANegativeLength", -5, Numbers(20), -5, {}},
        LengthCase{"MoreThanThereIs", 100, Numbers(3), 100, Numbers(3)},
        LengthCase{"AnAbsurdLength", 0x7fffffff, Numbers(3), 2200, Numbers(3)},
        LengthCase{"LessThanThereIs", 2, Numbers(9), 2, Numbers(2)}),
    NameOf());

TEST_F(SubscribedEndpointTest, OfAnEventOf5000BytesEachReceiverGets2200)
{
    SubscribeNamServiceCallback("test2", Received::Add);

    control_.SendEvent(kSomeEvent, Numbers(5000));

    for (const Event& event : Received::WaitFor(2)) {
        EXPECT_EQ(event.length, 2200);
        EXPECT_EQ(event.data, Numbers(2200));
    }
}

TEST_F(SubscribedEndpointTest, AnEventOf30MegabytesIsNoTrouble)
{
    control_.SendPayload(Payload(kSomeEvent, 30'000'000, Data(30'000'000, 0x55)));

    const Event event = TheOneEvent();
    EXPECT_EQ(event.length, 2200);
    EXPECT_THAT(event.data, Each(0x55));
}

TEST_F(SubscribedEndpointTest, IdZeroIsAnsweredAndIgnored)
{
    control_.SendEvent(0, Numbers(5));
    EXPECT_EQ(platform_log::Count(kEventEntered), 1U);

    ExpectOnlyTheNextEvent();
}

TEST_F(SubscribedEndpointTest, NothingOfOneEventShowsInTheNext)
{
    control_.SendEvent(kSomeEvent, Data(2200, 0xee));
    control_.SendEvent(kSomeEvent, Numbers(3));

    EXPECT_EQ(Received::WaitFor(2).back().data, Padded(Numbers(3)));
}

TEST_F(SubscribedEndpointTest, APayloadShorterThanItsHeaderReadsAsIfZeroFollowed)
{
    control_.SendPayload({0x21, 0x43});             // id 0x4321
    control_.SendPayload({0x21, 0x43, 0, 0});       // the id alone
    control_.SendPayload({0x21, 0x43, 0, 0, 7, 0}); // length 7, cut off

    const auto events = Received::WaitFor(3);
    for (const Event& event : events) {
        EXPECT_EQ(event.id, 0x4321);
        EXPECT_THAT(event.data, Each(0));
    }
    EXPECT_EQ(events[0].length, 0);
    EXPECT_EQ(events[1].length, 0);
    EXPECT_EQ(events[2].length, 7);
}

TEST_F(SubscribedEndpointTest, AnEmptyPayloadIsAnsweredAndLogged)
{
    control_.SendPayload({});

    platform_log::WaitFor("E NamNotifySubscriber: NULL payload");
    ExpectOnlyTheNextEvent();
}

TEST_F(SubscribedEndpointTest, TheServersExitIsLoggedAndPassedOn)
{
    static std::promise<std::size_t> linesBefore;
    SubscribeNamServiceCallback("first", [](int id, void*, int) {
        if (id == NAMSERVICE_EXIT_STATE) {
            linesBefore.set_value(platform_log::Count("I NamNotifySubscriber: receive NAMSERVICE_EXIT_STATE"));
        }
    });
    control_.SendEvent(NAMSERVICE_EXIT_STATE, {});

    EXPECT_EQ(Await("the callback to be called", linesBefore.get_future()), 1U);
    EXPECT_EQ(TheOneEvent().id, NAMSERVICE_EXIT_STATE);
    EXPECT_EQ(NAMSERVICE_EXIT_STATE, 0x02020031);
    EXPECT_THAT(
        platform_log::OfFunction("NamNotifySubscriber"),
        ElementsAre(kEventEntered, "I NamNotifySubscriber: receive NAMSERVICE_EXIT_STATE", kEventEntered));
}

TEST_F(SubscribedEndpointTest, OtherMethodsGetNoAnswer)
{
    const std::string arguments = "(1, 2, 'path', 3, 4)";
    const auto answer = control_.CallClient(ClientId(), "test_nam_notify_subscriber_1", arguments, 300);

    EXPECT_FALSE(answer.answered);
    EXPECT_THAT(
        platform_log::OfFunction("NamClientReceiveHandleEvent"),
        ElementsAre(::testing::HasSubstr("method_name[test_nam_notify_subscriber_1]")));
    EXPECT_THAT(platform_log::OfFunction("NamNotifySubscriber"), IsEmpty());
    ExpectOnlyTheNextEvent();
}

TEST_F(EndpointTest, CallsOfAnotherSignatureAreRefusedBeforeTheyArrive)
{
    for (const char* arguments : {"('text',)", "(1,)", "(@ai [1],)", "(@ay [1], 2)", "(<1>,)"}) {
        const auto answer = control_.CallClient(ClientId(), "nam_notify_subscriber", arguments, 20000);
        EXPECT_EQ(answer.error, "org.freedesktop.DBus.Error.InvalidArgs") << arguments;
    }
    EXPECT_THAT(platform_log::OfFunction("NamNotifySubscriber"), IsEmpty());
}

TEST_F(OfflineEndpointTest, AMonitorWithoutAClientEndsAtOnce)
{
    EXPECT_EQ(CNSGdbus::m_Monitor(nullptr), nullptr);
    ExpectLog({"E m_Monitor: pInstance is NULL"});
}

TEST_F(OfflineEndpointTest, NameCallbacksDoNothing)
{
    CNSGdbus::m_OnnameAcquired(nullptr, "name", &client_);
    CNSGdbus::m_OnnameLost(nullptr, "name", &client_);
    EXPECT_THAT(platform_log::Lines(), IsEmpty());
}

TEST_F(EndpointTest, DestroyingTheMonitorEndsItForGood)
{
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);

    EXPECT_EQ(client_.m_pMainLoop, nullptr);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
    EXPECT_EQ(client_.m_pDbusNodeInfo, nullptr);
    EXPECT_EQ(client_.m_nRegistrationId, 0U);
    control_.WaitForNoOwner(ClientBusName());

    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
}

TEST_F(OfflineEndpointTest, DestroyingAMonitorThatNeverWasIsNothing)
{
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);

    StartAndConnect(); // the thread can still start
}

TEST_F(OfflineEndpointTest, DestroyingTheMonitorWhileItRegistersItsObject)
{
    StartServer();
    StopAtLine stop("D m_OnbusAcquired: [NAM_API] Enter");
    StopNetworkSpeaker(0);
    stop.WaitUntilReached();
    auto destroyed = std::async(std::launch::async, [&] { return client_.m_DestroyMessageMonitor(); });
    stop.Release();
    EXPECT_EQ(Await("the monitor to end", destroyed), 0);
    EXPECT_EQ(client_.m_pMainLoop, nullptr);
}

TEST_F(OfflineEndpointTest, DestroyingTheMonitorRightAfterTheFirstCall)
{
    StartServer();
    StopNetworkSpeaker(0);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(client_.m_pMainLoop, nullptr);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
}

TEST_F(EndpointTest, DestroyingTheMonitorFromACallbackIsAnErrorAndEndsItAfterwards)
{
    static std::promise<int> result;
    SubscribeNamServiceCallback(
        "ending", [](int, void*, int) { result.set_value(CNSGdbus::m_pInstance->m_DestroyMessageMonitor()); });

    control_.SendEvent(kSomeEvent, {});

    EXPECT_EQ(Await("the callback's end of the monitor", result.get_future()), EDEADLK);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(client_.m_MonitorThread, 0U);
}

TEST_F(EndpointTest, DestroyingTheMonitorWaitsForARunningCallback)
{
    static Gate gate;
    static std::atomic<bool> hasLeft;
    SubscribeNamServiceCallback("slow", [](int, void*, int) {
        gate.Pass();
        hasLeft = true;
    });
    control_.SendEvent(kSomeEvent, {});
    gate.WaitUntilReached();

    auto destroyed = std::async(std::launch::async, [&] { return client_.m_DestroyMessageMonitor(); });
    gate.Open();

    EXPECT_EQ(Await("the monitor to end", destroyed), 0);
    EXPECT_TRUE(hasLeft);
}

// --- Client ids that the server may give ---

struct Id {
    const char* name;
    std::string value;

    friend void PrintTo(const Id& id, std::ostream* out) { *out << id.name; }
};

class UnfitIdTest : public OfflineEndpointTest, public ::testing::WithParamInterface<Id> {};

TEST_P(UnfitIdTest, IsOneErrorLineAndNoEndpointWhileCallsGoOn)
{
    StartServer();
    control_.SetClientId(GetParam().value);

    EXPECT_EQ(StopNetworkSpeaker(4), 4);

    platform_log::WaitFor(
        "E m_Monitor: [NAM_API] client id [" + GetParam().value + "] fits no D-Bus name, path or interface");
    EXPECT_EQ(client_.m_strClientName, GetParam().value);
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(client_.m_pMainLoop, nullptr);
    EXPECT_EQ(client_.m_pDbusNodeInfo, nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Ids, UnfitIdTest,
    ::testing::Values(
        Id{"Empty", ""}, Id{"Blank", "a b"}, Id{"LeadingDigit", "1234"}, Id{"Dot", "a.b"}, Id{"TrailingDot", "a."},
        Id{"Hyphen", "a-b"}, Id{"Slash", "a/b"}, Id{"NotAscii", "t\xc3\xa9l\xc3\xa9"}, Id{"Format", "%s%n%1000d"},
        Id{"Xml", "a\"/></node><node name=\"b"}, Id{"TooLongForAnInterface", std::string(211, 'a')},
        Id{"VeryLong", std::string(100'000, 'a')}),
    NameOf());

TEST_F(OfflineEndpointTest, TheLongestIdThatFits)
{
    StartServer();
    const std::string id(210, 'a');
    control_.SetClientId(id);

    StopNetworkSpeaker(0);

    control_.WaitForOwner("org.lumra.tv.networkspeaker.client." + id);
    EXPECT_TRUE(control_.Reaches(id));
}

TEST_F(EndpointTest, AnIdThatChangesLaterLeavesTheEndpointWhereItIs)
{
    control_.SetClientId("another");
    StopNetworkSpeaker(0);
    EXPECT_EQ(client_.m_strClientName, "another");

    EXPECT_TRUE(control_.Reaches(ClientId()));
}

} // namespace
