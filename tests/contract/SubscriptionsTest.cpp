#include "contract/EventTest.h"
#include "contract/RequestTest.h"
#include "support/Gate.h"

#include <atomic>
#include <cstring>
#include <stdexcept>

using namespace kiv::test;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace subscriptions_test {
namespace {

constexpr const char* kSubscribe = "SubscribeNamServiceCallback";
constexpr const char* kUnsubscribe = "UnsubscribeNamServiceCallback";

std::string SubscribedLine(const std::string& name)
{
    return "D SubscribeNamServiceCallback: " + name + " subscribe callback successful";
}

const Lines kSubscribeEnter = {"D SubscribeNamServiceCallback: Enter"};

class OfflineSubscribeTest : public EventTest {};

class SubscribeTest : public Connected<EventTest> {};
class SubscribersTest : public Connected<EventTest> {};

// The tests begin with a subscriber.
class UnsubscribeTest : public Connected<EventTest> {
protected:
    UnsubscribeTest()
    {
        EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
        ForgetTraffic();
    }
};

// --- SubscribeNamServiceCallback ---

TEST_F(SubscribeTest, AsksTheServerForEventsOfThisProcess)
{
    EXPECT_EQ(SubscribeNamServiceCallback("lamp", Subscriber<'f'>), 1);

    ExpectSent(WithPid(kSubscribe), "i");
    EXPECT_EQ(SentMessages().back().flags, G_DBUS_MESSAGE_FLAGS_NONE);
    ExpectLog(kSubscribeEnter + PrologueLines(kSubscribe) + SubscribedLine("lamp") + kEnter);
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(OfflineSubscribeTest, StartsAnAbsentServer)
{
    MakeServerActivatable();
    EXPECT_EQ(SubscribeNamServiceCallback("lamp", Subscriber<'f'>), 1);
    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "check_dbus_connection", kSubscribe));
}

TEST_F(SubscribeTest, TheSecondOfANameBringsEventsAgainAfterTheConnectionWasLost)
{
    SubscribeNamServiceCallback("tv", Subscriber<'f'>);
    Close(client_.m_pConnection);
    Connect();
    control_.SetAtmos(true);
    Notify(0);
    EXPECT_THAT(Callbacks::TakeCalls(), IsEmpty());

    EXPECT_EQ(SubscribeNamServiceCallback("tv", Subscriber<'f'>), 1);

    control_.SetAtmos(false);
    control_.SetAtmos(true);
    Notify(0);
    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("f(33685544, 4)"));
}

TEST_F(SubscribeTest, TheSecondOfANameReplacesTheFirstAndLogsNoSuccess)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'g'>), 1);

    ExpectLog(kSubscribeEnter + PrologueLines(kSubscribe) + kEnter);
    ExpectSent(WithPid(kSubscribe), "i");
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(SubscribeTest, TheSuccessLineComesAgainAfterAnUnsubscription)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    UnsubscribeNamServiceCallback("a");
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(SubscribedLine("a")), 1U);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, OneCallbackMayHaveSeveralNames)
{
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(SubscribeNamServiceCallback("b", Subscriber<'f'>), 1);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "f(7, 0)"));
}

TEST_F(SubscribeTest, KeepsACopyOfTheName)
{
    char name[] = "a";
    SubscribeNamServiceCallback(name, Subscriber<'f'>);
    name[0] = 'b';
    SubscribeNamServiceCallback(name, Subscriber<'g'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "g(7, 0)"));

    UnsubscribeNamServiceCallback("a");
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(SubscribeTest, ANameIsNoFormat)
{
    EXPECT_EQ(SubscribeNamServiceCallback("%s%n", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(SubscribedLine("%s%n")), 1U);
}

TEST_F(SubscribeTest, TheCallbackIsInPlaceBeforeTheServerIsAsked)
{
    Lines meanwhile;
    AtLine(SubscribedLine("a"), [&] { AtLine(kEnter, [&] { meanwhile = CallsAfter(kEvent); }); });
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    EXPECT_THAT(meanwhile, ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, ARefusedCallReturnsZeroAndLeavesTheCallbackInPlace)
{
    control_.SetFault(kSubscribe, kRefusal);

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);

    ExpectLog(
        kSubscribeEnter + PrologueLines(kSubscribe) + SubscribedLine("a") + kEnter + RefusedLine(kSubscribe) +
        MethodErrorLine(kSubscribe));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, ARefusedReplacementStays)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    control_.SetFault(kSubscribe, kRefusal);
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'g'>), 0);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(SubscribeTest, AServerThatGoesBeforeTheCallIsNotCalled)
{
    AtLine(SubscribedLine("a"), [&] { KillServer(); });

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);

    ExpectLog(
        kSubscribeEnter + PrologueLines(kSubscribe) + SubscribedLine("a") + kAbsentLine + MethodErrorLine(kSubscribe));
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
}

TEST_F(SubscribeTest, AdoptsAnotherClientName)
{
    control_.SetFault(kSubscribe, "{'reply': <('tv_other',)>}");

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);

    ExpectLog(
        kSubscribeEnter + PrologueLines(kSubscribe) + SubscribedLine("a") + kEnter +
        AdoptionLine(kSubscribe, ClientId(), "tv_other"));
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(SubscribeTest, AdoptsAnEmptyClientName)
{
    control_.SetFault(kSubscribe, "{'reply': <('',)>}");
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(AdoptionLine(kSubscribe, ClientId(), "")), 1U);
    EXPECT_EQ(client_.m_strClientName, "");
}

TEST_F(SubscribeTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    control_.SetFault(kSubscribe, "{'reply': <(5,)>}");

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);

    ExpectLog(
        kSubscribeEnter + PrologueLines(kSubscribe) + SubscribedLine("a") + kEnter +
        WrongTypeLine(kSubscribe, kSubscribe, "(s)", "(i)"));
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(SubscribeTest, AReplyWithoutABodyIsLoggedAndAdoptsNothing)
{
    control_.SetFault(kSubscribe, "{'reply': <'()'>}");
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(WrongTypeLine(kSubscribe, kSubscribe, "(s)", "()")), 1U);
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(SubscribeTest, NullArgumentsChangeNothingAndAreNotLogged)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback(nullptr, Subscriber<'g'>), 0);
    EXPECT_EQ(SubscribeNamServiceCallback("a", nullptr), 0);
    EXPECT_EQ(SubscribeNamServiceCallback("b", nullptr), 0);
    EXPECT_EQ(SubscribeNamServiceCallback(nullptr, nullptr), 0);

    const Lines once = kSubscribeEnter + PrologueLines(kSubscribe);
    ExpectLog(once + once + once + once);
    EXPECT_THAT(control_.Methods(), AllOf(::testing::SizeIs(4), Each("check_dbus_connection")));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(OfflineSubscribeTest, OnADisabledDevice)
{
    feature::Set(false);
    StartServer();
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);

    ExpectLog(kSubscribeEnter + DisabledLines(kSubscribe));
    EXPECT_THAT(Sent(), IsEmpty());

    g_KivDisabled = false;
    Connect();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(OfflineSubscribeTest, WithoutAServerNothingIsRegistered)
{
    ReadFeature();
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);
    ExpectLog(kSubscribeEnter + UnreachableLines(kSubscribe));

    StartAndConnect();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(SubscribeTest, TheServerComesBeforeTheArguments)
{
    ExpectUnreached(kSubscribe, kSubscribeEnter, [] { EXPECT_EQ(SubscribeNamServiceCallback(nullptr, nullptr), 0); });
}

// --- UnsubscribeNamServiceCallback ---

TEST_F(UnsubscribeTest, TellsTheServerAndEndsTheCalls)
{
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    ForgetTraffic();

    UnsubscribeNamServiceCallback("a");

    ExpectSent(WithPid(kUnsubscribe), "i");
    EXPECT_EQ(SentMessages().back().flags, G_DBUS_MESSAGE_FLAGS_NONE);
    ExpectLog(AnsweredLines(kUnsubscribe));
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(UnsubscribeTest, AnUnknownNameIsNoErrorAndTheServerIsTold)
{
    UnsubscribeNamServiceCallback("A");

    ExpectSent(WithPid(kUnsubscribe), "i");
    ExpectLog(AnsweredLines(kUnsubscribe));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(UnsubscribeTest, TheCallbackIsGoneBeforeTheServerIsAsked)
{
    Lines meanwhile = {"the call was never made"};
    AtLine(kEnter, [&] { // of the query for the id
        AtLine(kEnter, [&] { meanwhile = CallsAfter(kEvent); });
    });
    UnsubscribeNamServiceCallback("a");
    EXPECT_THAT(meanwhile, IsEmpty());
}

TEST_F(UnsubscribeTest, ARefusedCallSilencesTheCallbackAllTheSame)
{
    control_.SetFault(kUnsubscribe, kRefusal);

    UnsubscribeNamServiceCallback("a");

    ExpectLog(AnsweredLines(kUnsubscribe) + RefusedLine(kUnsubscribe) + MethodErrorLine(kUnsubscribe));
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(UnsubscribeTest, AdoptsAnotherClientName)
{
    control_.SetFault(kUnsubscribe, "{'reply': <('tv_other',)>}");

    UnsubscribeNamServiceCallback("a");

    ExpectLog(AnsweredLines(kUnsubscribe) + AdoptionLine(kUnsubscribe, ClientId(), "tv_other"));
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(UnsubscribeTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    control_.SetFault(kUnsubscribe, "{'reply': <('tv_other', 1)>}");

    UnsubscribeNamServiceCallback("a");

    ExpectLog(AnsweredLines(kUnsubscribe) + WrongTypeLine(kUnsubscribe, kUnsubscribe, "(s)", "(si)"));
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(UnsubscribeTest, ANullNameThrowsOnceTheServerIsReached)
{
    EXPECT_THROW(UnsubscribeNamServiceCallback(nullptr), std::logic_error);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    ExpectLog(PrologueLines(kUnsubscribe));
}

TEST_F(UnsubscribeTest, OnADisabledDeviceTheSubscriptionStays)
{
    g_KivDisabled = true;

    UnsubscribeNamServiceCallback("a");
    UnsubscribeNamServiceCallback(nullptr);

    ExpectLog(DisabledLines(kUnsubscribe) + DisabledLines(kUnsubscribe));
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(UnsubscribeTest, WithoutAServerTheSubscriptionStays)
{
    KillServer();

    UnsubscribeNamServiceCallback("a");
    UnsubscribeNamServiceCallback(nullptr);

    ExpectLog(UnreachableLines(kUnsubscribe) + UnreachableLines(kUnsubscribe));
    StartServer();
    StopNetworkSpeaker(0);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

// --- NodeRemoveFromWatcher ---

const Request kRemove = {
    .name = "NodeRemoveFromWatcher",
    .call = [] { return NodeRemoveFromWatcher(-5); },
    .sent = "NodeRemoveFromWatcher(-5)",
    .signature = "i",
    .replyType = "(i)",
    .answered =
        [](int answer) { return Lines{"I NodeRemoveFromWatcher: [NAM_API] result[" + std::to_string(answer) + "]"}; },
    .failed = {"E NodeRemoveFromWatcher: [NAM_API] MethodCall(NodeRemoveFromWatcher) Error"},
    .failure = 0,
};

INSTANTIATE_TEST_SUITE_P(Subscriptions, RequestTest, ::testing::Values(kRemove), NameOf());

TEST_F(UnsubscribeTest, ANodeThatIsRemovedIsNoSubscriber)
{
    NodeRemoveFromWatcher(-5);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

// --- The calls of the subscribers ---

TEST_F(SubscribersTest, AreCalledInTheByteOrderOfTheirNames)
{
    SubscribeNamServiceCallback("\xff", Subscriber<'6'>);
    SubscribeNamServiceCallback("b", Subscriber<'5'>);
    SubscribeNamServiceCallback("ab", Subscriber<'4'>);
    SubscribeNamServiceCallback("a", Subscriber<'3'>);
    SubscribeNamServiceCallback("B", Subscriber<'2'>);
    SubscribeNamServiceCallback("", Subscriber<'1'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("1(7, 0)", "2(7, 0)", "3(7, 0)", "4(7, 0)", "5(7, 0)", "6(7, 0)"));
}

int g_eventId;
int g_length;
unsigned char g_data[NAMSERVICE_EVENT_DATA_MAX];
pthread_t g_thread;

TEST_F(SubscribersTest, GetEventIdDataAndLengthOnTheMonitorThread)
{
    SubscribeNamServiceCallback("a", [](int eventId, void* data, int length) {
        g_eventId = eventId;
        g_length = length;
        std::memcpy(g_data, data, sizeof g_data);
        g_thread = pthread_self();
        Callbacks::Run('a', "");
    });

    Notify(-3, {1, 2, 3});

    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("a()"));
    EXPECT_EQ(g_eventId, -3);
    EXPECT_EQ(g_length, 3);
    EXPECT_THAT(std::vector<int>(g_data, g_data + 4), ElementsAre(1, 2, 3, 0));
    EXPECT_NE(pthread_equal(g_thread, client_.m_MonitorThread), 0);
}

TEST_F(SubscribersTest, GetTheEventsThatTheLibraryKnowsToo)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    EXPECT_THAT(CallsAfter(NAMSERVICE_EXIT_STATE), ElementsAre("f(33685553, 0)"));
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("f(33685544, 0)"));
}

TEST_F(SubscribersTest, AnEventWithoutAnyReachesNobody)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    UnsubscribeNamServiceCallback("a");
    ForgetTraffic();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
    EXPECT_THAT(DispatchLines(), IsEmpty());
}

TEST_F(SubscribersTest, OneRemovedBeforeItsTurnIsNotCalled)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    SubscribeNamServiceCallback("c", Subscriber<'h'>);
    Callbacks::Do('f', [] { UnsubscribeNamServiceCallback("b"); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "h(7, 0)"));
}

TEST_F(SubscribersTest, TheLastOnesMayAllBeRemovedFromWithin)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    Callbacks::Do('f', [] {
        UnsubscribeNamServiceCallback("a");
        UnsubscribeNamServiceCallback("b");
    });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(SubscribersTest, OneReplacedBeforeItsTurnIsCalledInItsNewForm)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    Callbacks::Do('f', [] { SubscribeNamServiceCallback("b", Subscriber<'h'>); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "h(7, 0)"));
}

TEST_F(SubscribersTest, OneAddedFromWithinIsCalledFromTheNextEventOn)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    Callbacks::Do('f', [] { SubscribeNamServiceCallback("b", Subscriber<'g'>); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "g(7, 0)"));
}

TEST_F(SubscribersTest, MayCallTheServer)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    control_.SetFault("StopNetworkSpeaker", "{'reply': <(77,)>}");
    std::atomic<int> answer = 0;
    Callbacks::Do('f', [&] { answer = StopNetworkSpeaker(3); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "g(7, 0)"));
    EXPECT_EQ(answer, 77);
}

TEST_F(SubscribersTest, OneThatThrowsCostsALineAndNothingElse)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    SubscribeNamServiceCallback("c", Subscriber<'h'>);
    Callbacks::Do('f', [] { throw std::runtime_error("host"); });
    Callbacks::Do('g', [] { throw 1; });
    ForgetTraffic();

    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "g(7, 0)", "h(7, 0)"));
    EXPECT_THAT(DispatchLines(), ElementsAre(kCallbackThrewLine, kCallbackThrewLine));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "g(7, 0)", "h(7, 0)"));
}

TEST_F(SubscribersTest, OneThatRunsHoldsUpNoCaller)
{
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    Gate gate;
    Callbacks::Do('f', [&] { gate.Pass(); });
    control_.SendEvent(kEvent, {});
    gate.WaitUntilReached();

    EXPECT_EQ(SubscribeNamServiceCallback("b", Subscriber<'g'>), 1);
    UnsubscribeNamServiceCallback("a");
    EXPECT_EQ(StopNetworkSpeaker(3), 3);

    gate.Open();
    EXPECT_THAT(CallsAfter(kEvent), ::testing::Contains("g(7, 0)"));
}

} // namespace
} // namespace subscriptions_test
