#include "EventTest.h"
#include "support/Wait.h"

#include <unistd.h>

#include <atomic>
#include <cstring>
#include <future>
#include <stdexcept>

using namespace kiv::test;
using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace subscriptions_test {
namespace {

constexpr const char* kSubscribe = "SubscribeNamServiceCallback";
constexpr const char* kUnsubscribe = "UnsubscribeNamServiceCallback";
constexpr const char* kRemove = "NodeRemoveFromWatcher";

std::string MethodErrorLine(const char* function)
{
    return std::string("E ") + function + ": [NAM_API] MethodCall Error";
}

// Returns the function's own call, which is the last one.
std::string WithPid(const char* method)
{
    return std::string(method) + "(" + std::to_string(getpid()) + ")";
}

std::string SubscribedLine(const std::string& name)
{
    return "D SubscribeNamServiceCallback: " + name + " subscribe callback successful";
}

const Lines kSubscribeEnter = {"D SubscribeNamServiceCallback: Enter"};

class SubscribeTest : public EventTest {};
class UnsubscribeTest : public EventTest {};
class NodeRemoveTest : public EventTest {};
class SubscribersTest : public EventTest {};

// --- SubscribeNamServiceCallback ---

TEST_F(SubscribeTest, AsksTheServerForEventsOfThisProcess)
{
    StartAndConnect();

    EXPECT_EQ(SubscribeNamServiceCallback("lamp", Subscriber<'f'>), 1);

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kSubscribe))));
    EXPECT_EQ(SentMessages().back().signature, "i");
    EXPECT_EQ(SentMessages().back().flags, G_DBUS_MESSAGE_FLAGS_NONE);
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(kSubscribeEnter + PrologueLines(kSubscribe) + Lines{SubscribedLine("lamp"), kEnter}));
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, StartsAnAbsentServer)
{
    MakeServerActivatable();
    EXPECT_EQ(SubscribeNamServiceCallback("lamp", Subscriber<'f'>), 1);
    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "check_dbus_connection", kSubscribe));
}

TEST_F(SubscribeTest, TheSecondOfANameBringsEventsAgainAfterTheConnectionWasLost)
{
    StartAndConnect();
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
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'g'>), 1);

    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAreArray(kSubscribeEnter + PrologueLines(kSubscribe) + Lines{kEnter}));
    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kSubscribe))));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(SubscribeTest, TheSuccessLineComesAgainAfterAnUnsubscription)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    UnsubscribeNamServiceCallback("a");
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(SubscribedLine("a")), 1U);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, OneCallbackMayHaveSeveralNames)
{
    StartAndConnect();
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(SubscribeNamServiceCallback("b", Subscriber<'f'>), 1);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "f(7, 0)"));
}

TEST_F(SubscribeTest, KeepsACopyOfTheName)
{
    StartAndConnect();
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
    StartAndConnect();
    EXPECT_EQ(SubscribeNamServiceCallback("%s%n", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(SubscribedLine("%s%n")), 1U);
}

TEST_F(SubscribeTest, TheCallbackIsInPlaceBeforeTheServerIsAsked)
{
    StartAndConnect();
    Lines meanwhile;
    AtLine(SubscribedLine("a"), [&] { AtLine(kEnter, [&] { meanwhile = CallsAfter(kEvent); }); });
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    EXPECT_THAT(meanwhile, ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, ARefusedCallReturnsZeroAndLeavesTheCallbackInPlace)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, kRefusal);

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            kSubscribeEnter + PrologueLines(kSubscribe) +
            Lines{SubscribedLine("a"), kEnter, RefusedLine(kSubscribe), MethodErrorLine(kSubscribe)}));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, ARefusedReplacementStays)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    control_.SetFault(kSubscribe, kRefusal);
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'g'>), 0);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(SubscribeTest, AServerThatGoesBeforeTheCallIsNotCalled)
{
    StartAndConnect();
    AtLine(SubscribedLine("a"), [&] { KillServer(); });

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAreArray(
                                          kSubscribeEnter + PrologueLines(kSubscribe) +
                                          Lines{SubscribedLine("a"), kAbsentLine, MethodErrorLine(kSubscribe)}));
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery(), kOwnerQuery));
}

TEST_F(SubscribeTest, AdoptsAnotherClientName)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'reply': <('tv_other',)>}");

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            kSubscribeEnter + PrologueLines(kSubscribe) +
            Lines{SubscribedLine("a"), kEnter, AdoptionLine(kSubscribe, ClientId(), "tv_other")}));
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(SubscribeTest, AdoptsAnEmptyClientName)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'reply': <('',)>}");
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(AdoptionLine(kSubscribe, ClientId(), "")), 1U);
    EXPECT_EQ(client_.m_strClientName, "");
}

TEST_F(SubscribeTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'reply': <(5,)>}");

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            kSubscribeEnter + PrologueLines(kSubscribe) +
            Lines{SubscribedLine("a"), kEnter, WrongTypeLine(kSubscribe, kSubscribe, "(s)", "(i)")}));
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(SubscribeTest, AReplyWithoutABodyIsLoggedAndAdoptsNothing)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'reply': <'()'>}");
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 1);
    EXPECT_EQ(platform_log::Count(WrongTypeLine(kSubscribe, kSubscribe, "(s)", "()")), 1U);
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(SubscribeTest, NullArgumentsChangeNothingAndAreNotLogged)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback(nullptr, Subscriber<'g'>), 0);
    EXPECT_EQ(SubscribeNamServiceCallback("a", nullptr), 0);
    EXPECT_EQ(SubscribeNamServiceCallback("b", nullptr), 0);
    EXPECT_EQ(SubscribeNamServiceCallback(nullptr, nullptr), 0);

    const Lines once = kSubscribeEnter + PrologueLines(kSubscribe);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(once + once + once + once));
    EXPECT_THAT(control_.Methods(), AllOf(::testing::SizeIs(4), Each("check_dbus_connection")));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(SubscribeTest, OnADisabledDevice)
{
    feature::Set(false);
    StartServer();
    ForgetTraffic();

    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);

    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kSubscribeEnter + DisabledLines(kSubscribe)));
    EXPECT_THAT(Sent(), IsEmpty());

    g_KivDisabled = false;
    Connect();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(SubscribeTest, TheGateComesBeforeTheArguments)
{
    feature::Set(false);
    EXPECT_EQ(SubscribeNamServiceCallback(nullptr, nullptr), 0);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kSubscribeEnter + DisabledLines(kSubscribe)));
}

TEST_F(SubscribeTest, WithoutAServerNothingIsRegistered)
{
    ReadFeature();
    EXPECT_EQ(SubscribeNamServiceCallback("a", Subscriber<'f'>), 0);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kSubscribeEnter + UnreachableLines(kSubscribe)));

    StartAndConnect();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(SubscribeTest, TheServerComesBeforeTheArguments)
{
    ReadFeature();
    EXPECT_EQ(SubscribeNamServiceCallback(nullptr, nullptr), 0);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kSubscribeEnter + UnreachableLines(kSubscribe)));
}

// --- UnsubscribeNamServiceCallback ---

TEST_F(UnsubscribeTest, TellsTheServerAndEndsTheCalls)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    ForgetTraffic();

    UnsubscribeNamServiceCallback("a");

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kUnsubscribe))));
    EXPECT_EQ(SentMessages().back().signature, "i");
    EXPECT_EQ(SentMessages().back().flags, G_DBUS_MESSAGE_FLAGS_NONE);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(AnsweredLines(kUnsubscribe)));
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("g(7, 0)"));
}

TEST_F(UnsubscribeTest, AnUnknownNameIsNoErrorAndTheServerIsTold)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();

    UnsubscribeNamServiceCallback("A");

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kUnsubscribe))));
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(AnsweredLines(kUnsubscribe)));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(UnsubscribeTest, TheCallbackIsGoneBeforeTheServerIsAsked)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    Lines meanwhile = {"the call was never made"};
    AtLine(kEnter, [&] { // of the query for the id
        AtLine(kEnter, [&] { meanwhile = CallsAfter(kEvent); });
    });
    UnsubscribeNamServiceCallback("a");
    EXPECT_THAT(meanwhile, IsEmpty());
}

TEST_F(UnsubscribeTest, ARefusedCallSilencesTheCallbackAllTheSame)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    control_.SetFault(kUnsubscribe, kRefusal);
    ForgetTraffic();

    UnsubscribeNamServiceCallback("a");

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            AnsweredLines(kUnsubscribe) + Lines{RefusedLine(kUnsubscribe), MethodErrorLine(kUnsubscribe)}));
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
}

TEST_F(UnsubscribeTest, AdoptsAnotherClientName)
{
    StartAndConnect();
    control_.SetFault(kUnsubscribe, "{'reply': <('tv_other',)>}");

    UnsubscribeNamServiceCallback("a");

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(AnsweredLines(kUnsubscribe) + Lines{AdoptionLine(kUnsubscribe, ClientId(), "tv_other")}));
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(UnsubscribeTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    StartAndConnect();
    control_.SetFault(kUnsubscribe, "{'reply': <('tv_other', 1)>}");

    UnsubscribeNamServiceCallback("a");

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            AnsweredLines(kUnsubscribe) + Lines{WrongTypeLine(kUnsubscribe, kUnsubscribe, "(s)", "(si)")}));
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(UnsubscribeTest, ANullNameThrowsOnceTheServerIsReached)
{
    StartAndConnect();
    EXPECT_THROW(UnsubscribeNamServiceCallback(nullptr), std::logic_error);
    EXPECT_THAT(Sent(), ElementsAre(kOwnerQuery, IdQuery()));
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(PrologueLines(kUnsubscribe)));
}

TEST_F(UnsubscribeTest, OnADisabledDeviceTheSubscriptionStays)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();
    g_KivDisabled = true;

    UnsubscribeNamServiceCallback("a");
    UnsubscribeNamServiceCallback(nullptr);

    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAreArray(DisabledLines(kUnsubscribe) + DisabledLines(kUnsubscribe)));
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(UnsubscribeTest, WithoutAServerTheSubscriptionStays)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    ForgetTraffic();
    KillServer();

    UnsubscribeNamServiceCallback("a");
    UnsubscribeNamServiceCallback(nullptr);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(UnreachableLines(kUnsubscribe) + UnreachableLines(kUnsubscribe)));
    StartServer();
    StopNetworkSpeaker(0);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

// --- NodeRemoveFromWatcher ---

TEST_F(NodeRemoveTest, ReturnsAndLogsTheServersAnswer)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    control_.SetFault(kRemove, "{'reply': <(42,)>}");
    ForgetTraffic();

    EXPECT_EQ(NodeRemoveFromWatcher(-5), 42);

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall("NodeRemoveFromWatcher(-5)")));
    EXPECT_EQ(SentMessages().back().signature, "i");
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(AnsweredLines(kRemove) + Lines{"I NodeRemoveFromWatcher: [NAM_API] result[42]"}));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
}

TEST_F(NodeRemoveTest, ARefusedCallReturnsZero)
{
    StartAndConnect();
    control_.SetFault(kRemove, kRefusal);

    EXPECT_EQ(NodeRemoveFromWatcher(1), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            AnsweredLines(kRemove) +
            Lines{RefusedLine(kRemove), "E NodeRemoveFromWatcher: [NAM_API] MethodCall(NodeRemoveFromWatcher) Error"}));
}

TEST_F(NodeRemoveTest, AReplyOfAnotherTypeLeavesThePreset)
{
    StartAndConnect();
    control_.SetFault(kRemove, "{'reply': <('x',)>}");
    EXPECT_EQ(NodeRemoveFromWatcher(1), -1);
    EXPECT_EQ(platform_log::Count(WrongTypeLine(kRemove, kRemove, "(i)", "(s)")), 1U);
}

TEST_F(NodeRemoveTest, OnADisabledDevice)
{
    feature::Set(false);
    EXPECT_EQ(NodeRemoveFromWatcher(1), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(DisabledLines(kRemove)));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(NodeRemoveTest, WithoutAServer)
{
    ReadFeature();
    EXPECT_EQ(NodeRemoveFromWatcher(1), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(UnreachableLines(kRemove)));
}

// --- The calls of the subscribers ---

TEST_F(SubscribersTest, AreCalledInTheByteOrderOfTheirNames)
{
    StartAndConnect();
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
    StartAndConnect();
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
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    EXPECT_THAT(CallsAfter(NAMSERVICE_EXIT_STATE), ElementsAre("f(33685553, 0)"));
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("f(33685544, 0)"));
}

TEST_F(SubscribersTest, AnEventWithoutAnyReachesNobody)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    UnsubscribeNamServiceCallback("a");
    ForgetTraffic();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
    EXPECT_THAT(DispatchLines(), IsEmpty());
}

TEST_F(SubscribersTest, OneRemovedBeforeItsTurnIsNotCalled)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    SubscribeNamServiceCallback("c", Subscriber<'h'>);
    Callbacks::Do('f', [] { UnsubscribeNamServiceCallback("b"); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "h(7, 0)"));
}

TEST_F(SubscribersTest, TheLastOnesMayAllBeRemovedFromWithin)
{
    StartAndConnect();
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
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    SubscribeNamServiceCallback("b", Subscriber<'g'>);
    Callbacks::Do('f', [] { SubscribeNamServiceCallback("b", Subscriber<'h'>); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "h(7, 0)"));
}

TEST_F(SubscribersTest, OneAddedFromWithinIsCalledFromTheNextEventOn)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    Callbacks::Do('f', [] { SubscribeNamServiceCallback("b", Subscriber<'g'>); });
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("f(7, 0)", "g(7, 0)"));
}

TEST_F(SubscribersTest, MayCallTheServer)
{
    StartAndConnect();
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
    StartAndConnect();
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
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'f'>);
    std::promise<void> started;
    std::promise<void> finish;
    Callbacks::Do('f', [&] {
        started.set_value();
        Await("the test to let the callback go on", finish.get_future());
    });
    control_.SendEvent(kEvent, {});
    Await("the callback to be called", started.get_future());

    EXPECT_EQ(SubscribeNamServiceCallback("b", Subscriber<'g'>), 1);
    UnsubscribeNamServiceCallback("a");
    EXPECT_EQ(StopNetworkSpeaker(3), 3);

    finish.set_value();
    EXPECT_THAT(CallsAfter(kEvent), ::testing::Contains("g(7, 0)"));
}

} // namespace
} // namespace subscriptions_test
