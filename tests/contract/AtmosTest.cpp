#include "EventTest.h"

#include <unistd.h>

#include <atomic>
#include <stdexcept>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace atmos_test {
namespace {

constexpr const char* kQuery = "kiv_is_receiver_atmos";
constexpr const char* kRegister = "register_atmos_support_cb";
constexpr const char* kUnregister = "unregister_atmos_support_cb";
constexpr const char* kSubscribe = "SubscribeNamServiceCallback";
constexpr const char* kUnsubscribe = "UnsubscribeNamServiceCallback";

char g_hall[] = "hall";
char g_loft[] = "loft";

std::string WithPid(const char* method)
{
    return std::string(method) + "(" + std::to_string(getpid()) + ")";
}

std::string MethodErrorLine(const char* function)
{
    return std::string("E ") + function + ": [NAM_API] MethodCall Error";
}

const Lines kQueryEnter = {"I kiv_is_receiver_atmos: [NAM_API] Enter"};
const Lines kFirst = {"I register_atmos_support_cb: register vconf cb register_atmos_support_cb"};
const Lines kRegistered = {"I register_atmos_support_cb: cregister_atmos_support_cb)"};
const Lines kLast = {"I unregister_atmos_support_cb: unregister vconf cb for panel_display_time"};
const Lines kUnregistered = {"I unregister_atmos_support_cb: cb for panel_display_time unregistered"};
const std::string kNothingToCall = "I NamNotifySubscriber: nothing to call";
const std::string kCall = "I NamNotifySubscriber: call cb";

class AtmosQueryTest : public EventTest {};

class AtmosTest : public EventTest {
protected:
    Lines CallsAfterAtmosEvent() { return CallsAfter(NAMSERVICE_ATMOS_STATE); }
};

class AtmosRegisterTest : public AtmosTest {};
class AtmosUnregisterTest : public AtmosTest {};
class AtmosEventTest : public AtmosTest {};

// --- kiv_is_receiver_atmos ---

TEST_F(AtmosQueryTest, ReturnsAndLogsTheServersAnswer)
{
    StartAndConnect();
    control_.SetFault(kQuery, "{'reply': <(true,)>}");

    EXPECT_TRUE(kiv_is_receiver_atmos());

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall("kiv_is_receiver_atmos()")));
    EXPECT_EQ(SentMessages().back().signature, "");
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(kQueryEnter + AnsweredLines(kQuery) + Lines{"I kiv_is_receiver_atmos: return value[1]"}));
}

TEST_F(AtmosQueryTest, ANoIsAnAnswer)
{
    StartAndConnect();
    control_.SetFault(kQuery, "{'reply': <(false,)>}");
    EXPECT_FALSE(kiv_is_receiver_atmos());
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(kQueryEnter + AnsweredLines(kQuery) + Lines{"I kiv_is_receiver_atmos: return value[0]"}));
}

TEST_F(AtmosQueryTest, FollowsTheReceiver)
{
    StartAndConnect();
    control_.SetAtmos(true);
    EXPECT_TRUE(kiv_is_receiver_atmos());
    control_.SetAtmos(false);
    EXPECT_FALSE(kiv_is_receiver_atmos());
}

TEST_F(AtmosQueryTest, ARefusedCallIsANo)
{
    StartAndConnect();
    control_.SetAtmos(true);
    control_.SetFault(kQuery, kRefusal);
    EXPECT_FALSE(kiv_is_receiver_atmos());
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(kQueryEnter + AnsweredLines(kQuery) + Lines{RefusedLine(kQuery), MethodErrorLine(kQuery)}));
}

TEST_F(AtmosQueryTest, AReplyOfAnotherTypeIsANo)
{
    StartAndConnect();
    control_.SetFault(kQuery, "{'reply': <(1,)>}");
    EXPECT_FALSE(kiv_is_receiver_atmos());
    EXPECT_EQ(platform_log::Count(WrongTypeLine(kQuery, kQuery, "(b)", "(i)")), 1U);
}

TEST_F(AtmosQueryTest, OnADisabledDevice)
{
    feature::Set(false);
    EXPECT_FALSE(kiv_is_receiver_atmos());
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kQueryEnter + DisabledLines(kQuery)));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(AtmosQueryTest, WithoutAServer)
{
    ReadFeature();
    EXPECT_FALSE(kiv_is_receiver_atmos());
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kQueryEnter + UnreachableLines(kQuery)));
}

TEST_F(AtmosQueryTest, StartsAnAbsentServer)
{
    MakeServerActivatable();
    kiv_is_receiver_atmos();
    EXPECT_THAT(control_.Methods(), ElementsAre("check_dbus_connection", "check_dbus_connection", kQuery));
}

// --- register_atmos_support_cb ---

TEST_F(AtmosRegisterTest, SubscribesWithTheServer)
{
    StartAndConnect();

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kSubscribe))));
    EXPECT_EQ(SentMessages().back().signature, "i");
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kFirst + AnsweredLines(kRegister) + kRegistered));
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosRegisterTest, OnlyTheFirstLogsThatTheListWasEmpty)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'g'>, g_hall), 0);

    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(AnsweredLines(kRegister) + kRegistered));
}

TEST_F(AtmosRegisterTest, ANullCallbackIsRefused)
{
    EXPECT_EQ(register_atmos_support_cb(nullptr, g_hall), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAre("I register_atmos_support_cb: invalid input\n"));
    EXPECT_EQ(feature::Reads(), 0);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(AtmosRegisterTest, TheSecondOfACallbackIsRefusedAfterItsSubscription)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_loft), -1);

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kSubscribe))));
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(AnsweredLines(kRegister) + Lines{"I register_atmos_support_cb: already registered cb "}));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

// This is the way to renew several registrations that docs/events.md gives. The server counts them, and sends the event
// to processes whose count is above 0.
TEST_F(AtmosRegisterTest, RegisteringAgainRenewsTheRequestAtANewServer)
{
    StartAndConnect();
    SubscribeNamServiceCallback("tv", Subscriber<'s'>);
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    KillServer();
    StartServer();

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), -1);
    EXPECT_EQ(SubscribeNamServiceCallback("tv", Subscriber<'s'>), 1);
    Callbacks::TakeCalls();
    control_.SetAtmos(true);
    Notify(0);
    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("f(1, hall)", "s(33685544, 4)"));

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);
    control_.SetAtmos(false);
    control_.SetAtmos(true);
    Notify(0);
    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("s(33685544, 4)"));
}

TEST_F(AtmosRegisterTest, ARefusedSubscriptionReturnsZeroAndRegistersNothing)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, kRefusal);

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            kFirst + AnsweredLines(kRegister) + Lines{RefusedLine(kSubscribe), MethodErrorLine(kRegister)}));
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
    EXPECT_EQ(platform_log::Count(kNothingToCall), 1U);
}

TEST_F(AtmosRegisterTest, AServerThatDiesOfTheCallIsNoFailureEither)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'exit': <true>}");
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);
    EXPECT_EQ(platform_log::OfTestThread().back(), MethodErrorLine(kRegister));
}

TEST_F(AtmosRegisterTest, AdoptsAnotherClientName)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'reply': <('tv_other',)>}");

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            kFirst + AnsweredLines(kRegister) + Lines{AdoptionLine(kRegister, ClientId(), "tv_other")} + kRegistered));
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(AtmosRegisterTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    StartAndConnect();
    control_.SetFault(kSubscribe, "{'reply': <(5,)>}");

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(), ElementsAreArray(
                                          kFirst + AnsweredLines(kRegister) +
                                          Lines{WrongTypeLine(kRegister, kSubscribe, "(s)", "(i)")} + kRegistered));
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(AtmosRegisterTest, OnADisabledDevice)
{
    feature::Set(false);
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kFirst + DisabledLines(kRegister)));
    EXPECT_THAT(Sent(), IsEmpty());

    g_KivDisabled = false;
    StartAndConnect();
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
}

TEST_F(AtmosRegisterTest, WithoutAServer)
{
    ReadFeature();
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(kFirst + UnreachableLines(kRegister)));

    StartAndConnect();
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
}

// --- unregister_atmos_support_cb ---

TEST_F(AtmosUnregisterTest, TellsTheServerAndEndsTheCalls)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kUnsubscribe))));
    EXPECT_EQ(SentMessages().back().signature, "i");
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(AnsweredLines(kUnregister) + kLast + kUnregistered));
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
    EXPECT_THAT(DispatchLines(), ElementsAre(kNothingToCall));
}

TEST_F(AtmosUnregisterTest, OnlyTheLastLogsThatTheListIsEmpty)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'h'>, g_loft);
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'g'>), 0);

    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(AnsweredLines(kUnregister) + kUnregistered));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "h(1, loft)"));
}

TEST_F(AtmosUnregisterTest, ANullCallbackIsRefusedWhateverTheList)
{
    EXPECT_EQ(unregister_atmos_support_cb(nullptr), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAre("I unregister_atmos_support_cb: invalid input"));
    EXPECT_EQ(feature::Reads(), 0);

    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(nullptr), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAre("I unregister_atmos_support_cb: invalid input"));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(AtmosUnregisterTest, AnEmptyListIsRefusedBeforeAnythingElse)
{
    feature::Set(false);
    StartServer();
    trace_->Clear();
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre("I unregister_atmos_support_cb: callback list is not initialized yet"));
    EXPECT_EQ(feature::Reads(), 0);
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(AtmosUnregisterTest, AListThatHasBecomeEmptyIsRefusedToo)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    unregister_atmos_support_cb(AtmosReceiver<'f'>);
    ForgetTraffic();
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAre("I unregister_atmos_support_cb: callback list is not initialized yet"));
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(AtmosUnregisterTest, AnUnknownCallbackIsRefusedAfterTheServerWasTold)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'g'>), -1);

    EXPECT_THAT(Sent(), ElementsAreArray(SentByCall(WithPid(kUnsubscribe))));
    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(AnsweredLines(kUnregister) + Lines{"I unregister_atmos_support_cb: not registered cb"}));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosUnregisterTest, ARefusedCallLeavesTheRegistration)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    control_.SetFault(kUnsubscribe, kRefusal);
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(AnsweredLines(kUnregister) + Lines{RefusedLine(kUnsubscribe), MethodErrorLine(kUnregister)}));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosUnregisterTest, AdoptsAnotherClientName)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    control_.SetFault(kUnsubscribe, "{'reply': <('tv_other',)>}");
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            AnsweredLines(kUnregister) + Lines{AdoptionLine(kUnregister, ClientId(), "tv_other")} + kLast +
            kUnregistered));
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(AtmosUnregisterTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    control_.SetFault(kUnsubscribe, "{'reply': <'()'>}");
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);

    EXPECT_THAT(
        platform_log::OfTestThread(),
        ElementsAreArray(
            AnsweredLines(kUnregister) + Lines{WrongTypeLine(kUnregister, kUnsubscribe, "(s)", "()")} + kLast +
            kUnregistered));
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(AtmosUnregisterTest, OnADisabledDeviceTheRegistrationStays)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();
    g_KivDisabled = true;
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(DisabledLines(kUnregister)));
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosUnregisterTest, WithoutAServerTheRegistrationStays)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();
    KillServer();
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    EXPECT_THAT(platform_log::OfTestThread(), ElementsAreArray(UnreachableLines(kUnregister)));
    StartServer();
    StopNetworkSpeaker(0);
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

// --- The event ---

TEST_F(AtmosEventTest, CallsInTheOrderOfRegistrationAndBeforeTheSubscribers)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'s'>);
    register_atmos_support_cb(AtmosReceiver<'h'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'f'>, g_loft);
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    ForgetTraffic();

    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("h(1, hall)", "f(1, loft)", "g(1, hall)", "s(33685544, 0)"));
    EXPECT_THAT(DispatchLines(), ElementsAre(kCall, kCall, kCall));
}

TEST_F(AtmosEventTest, SaysOneWhateverTheEventsData)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    Notify(NAMSERVICE_ATMOS_STATE, {0, 0, 0, 0});
    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosEventTest, OtherEventsCallNone)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
    EXPECT_THAT(CallsAfter(NAMSERVICE_EXIT_STATE), IsEmpty());
    EXPECT_THAT(DispatchLines(), ElementsAre("I NamNotifySubscriber: receive NAMSERVICE_EXIT_STATE"));
}

TEST_F(AtmosEventTest, WithoutRegistrationsThereIsNothingToCallButTheSubscribers)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'s'>);
    ForgetTraffic();
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("s(33685544, 0)"));
    EXPECT_THAT(DispatchLines(), ElementsAre(kNothingToCall));
}

TEST_F(AtmosEventTest, UserDataMayBeNull)
{
    StartAndConnect();
    static void* received = g_hall;
    register_atmos_support_cb(
        [](int, void* userData) {
            received = userData;
            Callbacks::Run('f', "");
        },
        nullptr);
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f()"));
    EXPECT_EQ(received, nullptr);
}

TEST_F(AtmosEventTest, ComesOnTheMonitorThread)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    std::atomic<bool> isMonitorThread = false;
    Callbacks::Do('f', [&] { isMonitorThread = pthread_equal(pthread_self(), client_.m_MonitorThread) != 0; });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
    EXPECT_TRUE(isMonitorThread);
}

TEST_F(AtmosEventTest, ARegistrationRemovedBeforeItsTurnIsNotCalled)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'h'>, g_hall);
    Callbacks::Do('f', [] { unregister_atmos_support_cb(AtmosReceiver<'g'>); });
    ForgetTraffic();
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "h(1, hall)"));
    EXPECT_THAT(DispatchLines(), ElementsAre(kCall, kCall));
}

TEST_F(AtmosEventTest, ARegistrationMayEndItself)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    Callbacks::Do('f', [] { unregister_atmos_support_cb(AtmosReceiver<'f'>); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "g(1, hall)"));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("g(1, hall)"));
}

TEST_F(AtmosEventTest, ARegistrationMadeFromWithinIsCalledFromTheNextEventOn)
{
    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    Callbacks::Do('f', [] { register_atmos_support_cb(AtmosReceiver<'g'>, g_loft); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "g(1, loft)"));
}

TEST_F(AtmosEventTest, SubscribersMayBeRemovedFromWithin)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'s'>);
    SubscribeNamServiceCallback("b", Subscriber<'t'>);
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    Callbacks::Do('f', [] { UnsubscribeNamServiceCallback("a"); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "t(33685544, 0)"));
}

TEST_F(AtmosEventTest, ACallbackMayCallTheServer)
{
    StartAndConnect();
    control_.SetAtmos(true); // before a subscriber can receive the event
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    std::atomic<bool> supported = false;
    Callbacks::Do('f', [&] { supported = kiv_is_receiver_atmos(); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
    EXPECT_TRUE(supported);
}

TEST_F(AtmosEventTest, ACallbackThatThrowsCostsALineAndNothingElse)
{
    StartAndConnect();
    SubscribeNamServiceCallback("a", Subscriber<'s'>);
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    Callbacks::Do('f', [] { throw std::runtime_error("host"); });
    ForgetTraffic();

    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "g(1, hall)", "s(33685544, 0)"));
    EXPECT_THAT(DispatchLines(), ElementsAre(kCall, kCallbackThrewLine, kCall));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "g(1, hall)", "s(33685544, 0)"));
}

} // namespace
} // namespace atmos_test
