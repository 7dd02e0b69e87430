#include "contract/EventTest.h"
#include "contract/RequestTest.h"

#include <atomic>
#include <stdexcept>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace atmos_test {
namespace {

constexpr const char* kRegister = "register_atmos_support_cb";
constexpr const char* kUnregister = "unregister_atmos_support_cb";
constexpr const char* kSubscribe = "SubscribeNamServiceCallback";
constexpr const char* kUnsubscribe = "UnsubscribeNamServiceCallback";

char g_hall[] = "hall";
char g_loft[] = "loft";

const Lines kFirst = {"I register_atmos_support_cb: register vconf cb register_atmos_support_cb"};
const Lines kRegistered = {"I register_atmos_support_cb: cregister_atmos_support_cb)"};
const Lines kLast = {"I unregister_atmos_support_cb: unregister vconf cb for panel_display_time"};
const Lines kUnregistered = {"I unregister_atmos_support_cb: cb for panel_display_time unregistered"};
const std::string kNothingToCall = "I NamNotifySubscriber: nothing to call";
const std::string kCall = "I NamNotifySubscriber: call cb";

class AtmosTest : public EventTest {
protected:
    Lines CallsAfterAtmosEvent() { return CallsAfter(NAMSERVICE_ATMOS_STATE); }
};

class OfflineAtmosRegisterTest : public AtmosTest {};
class AtmosRegisterTest : public Connected<AtmosTest> {};
class OfflineAtmosUnregisterTest : public AtmosTest {};
class AtmosEventTest : public Connected<AtmosTest> {};

// The tests begin with a registered callback.
class AtmosUnregisterTest : public Connected<AtmosTest> {
protected:
    AtmosUnregisterTest()
    {
        EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);
        ForgetTraffic();
    }
};

// --- kiv_is_receiver_atmos ---

const Request kQuery = {
    .name = "kiv_is_receiver_atmos",
    .call = [] { return static_cast<int>(kiv_is_receiver_atmos()); },
    .sent = "kiv_is_receiver_atmos()",
    .replyType = "(b)",
    .answered =
        [](int answer) { return Lines{"I kiv_is_receiver_atmos: return value[" + std::to_string(answer) + "]"}; },
    .preset = 0,
    .failed = {MethodErrorLine("kiv_is_receiver_atmos")},
    .failure = 0,
    .first = {"I kiv_is_receiver_atmos: [NAM_API] Enter"},
};

INSTANTIATE_TEST_SUITE_P(Atmos, RequestTest, ::testing::Values(kQuery), NameOf());

TEST_F(AtmosEventTest, TheQueryFollowsTheReceiver)
{
    control_.SetAtmos(true);
    EXPECT_TRUE(kiv_is_receiver_atmos());
    control_.SetAtmos(false);
    EXPECT_FALSE(kiv_is_receiver_atmos());
}

// --- register_atmos_support_cb ---

TEST_F(AtmosRegisterTest, SubscribesWithTheServer)
{
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    ExpectSent(WithPid(kSubscribe), "i");
    ExpectLog(kFirst + AnsweredLines(kRegister) + kRegistered);
    EXPECT_EQ(client_.m_strClientName, ClientId());
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosRegisterTest, OnlyTheFirstLogsThatTheListWasEmpty)
{
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'g'>, g_hall), 0);

    ExpectLog(AnsweredLines(kRegister) + kRegistered);
}

TEST_F(OfflineAtmosRegisterTest, ANullCallbackIsRefused)
{
    EXPECT_EQ(register_atmos_support_cb(nullptr, g_hall), -1);
    ExpectLog({"I register_atmos_support_cb: invalid input\n"});
    EXPECT_EQ(feature::Reads(), 0);
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(AtmosRegisterTest, TheSecondOfACallbackIsRefusedAfterItsSubscription)
{
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_loft), -1);

    ExpectSent(WithPid(kSubscribe), "i");
    ExpectLog(AnsweredLines(kRegister) + "I register_atmos_support_cb: already registered cb ");
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

// This is the way to renew several registrations that docs/events.md gives. The server counts them, and sends the event
// to processes whose count is above 0.
TEST_F(AtmosRegisterTest, RegisteringAgainRenewsTheRequestAtANewServer)
{
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
    control_.SetFault(kSubscribe, kRefusal);

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    ExpectLog(kFirst + AnsweredLines(kRegister) + RefusedLine(kSubscribe) + MethodErrorLine(kRegister));
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
    EXPECT_EQ(platform_log::Count(kNothingToCall), 1U);
}

TEST_F(AtmosRegisterTest, AServerThatDiesOfTheCallIsNoFailureEither)
{
    control_.SetFault(kSubscribe, kDeath);
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);
    EXPECT_EQ(platform_log::OfTestThread().back(), MethodErrorLine(kRegister));
}

TEST_F(AtmosRegisterTest, AdoptsAnotherClientName)
{
    control_.SetFault(kSubscribe, "{'reply': <('tv_other',)>}");

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    ExpectLog(kFirst + AnsweredLines(kRegister) + AdoptionLine(kRegister, ClientId(), "tv_other") + kRegistered);
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(AtmosRegisterTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    control_.SetFault(kSubscribe, "{'reply': <(5,)>}");

    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), 0);

    ExpectLog(kFirst + AnsweredLines(kRegister) + WrongTypeLine(kRegister, kSubscribe, "(s)", "(i)") + kRegistered);
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(OfflineAtmosRegisterTest, OnADisabledDevice)
{
    feature::Set(false);
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), -1);
    ExpectLog(kFirst + DisabledLines(kRegister));
    EXPECT_THAT(Sent(), IsEmpty());

    g_KivDisabled = false;
    StartAndConnect();
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
}

TEST_F(OfflineAtmosRegisterTest, WithoutAServer)
{
    ReadFeature();
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'f'>, g_hall), -1);
    ExpectLog(kFirst + UnreachableLines(kRegister));

    StartAndConnect();
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
}

// --- unregister_atmos_support_cb ---

TEST_F(AtmosUnregisterTest, TellsTheServerAndEndsTheCalls)
{
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);

    ExpectSent(WithPid(kUnsubscribe), "i");
    ExpectLog(AnsweredLines(kUnregister) + kLast + kUnregistered);
    EXPECT_THAT(CallsAfterAtmosEvent(), IsEmpty());
    EXPECT_THAT(DispatchLines(), ElementsAre(kNothingToCall));
}

TEST_F(AtmosUnregisterTest, OnlyTheLastLogsThatTheListIsEmpty)
{
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'h'>, g_loft);
    ForgetTraffic();

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'g'>), 0);

    ExpectLog(AnsweredLines(kUnregister) + kUnregistered);
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "h(1, loft)"));
}

TEST_F(OfflineAtmosUnregisterTest, ANullCallbackIsRefusedWhateverTheList)
{
    EXPECT_EQ(unregister_atmos_support_cb(nullptr), -1);
    ExpectLog({"I unregister_atmos_support_cb: invalid input"});
    EXPECT_EQ(feature::Reads(), 0);

    StartAndConnect();
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();
    EXPECT_EQ(unregister_atmos_support_cb(nullptr), -1);
    ExpectLog({"I unregister_atmos_support_cb: invalid input"});
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(OfflineAtmosUnregisterTest, AnEmptyListIsRefusedBeforeAnythingElse)
{
    feature::Set(false);
    StartServer();
    trace_->Clear();
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    ExpectLog({"I unregister_atmos_support_cb: callback list is not initialized yet"});
    EXPECT_EQ(feature::Reads(), 0);
    EXPECT_THAT(trace_->Messages(), IsEmpty());
}

TEST_F(AtmosUnregisterTest, AListThatHasBecomeEmptyIsRefusedToo)
{
    unregister_atmos_support_cb(AtmosReceiver<'f'>);
    ForgetTraffic();
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    ExpectLog({"I unregister_atmos_support_cb: callback list is not initialized yet"});
    EXPECT_THAT(Sent(), IsEmpty());
}

TEST_F(AtmosUnregisterTest, AnUnknownCallbackIsRefusedAfterTheServerWasTold)
{
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'g'>), -1);

    ExpectSent(WithPid(kUnsubscribe), "i");
    ExpectLog(AnsweredLines(kUnregister) + "I unregister_atmos_support_cb: not registered cb");
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosUnregisterTest, ARefusedCallLeavesTheRegistration)
{
    control_.SetFault(kUnsubscribe, kRefusal);

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);

    ExpectLog(AnsweredLines(kUnregister) + RefusedLine(kUnsubscribe) + MethodErrorLine(kUnregister));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosUnregisterTest, AdoptsAnotherClientName)
{
    control_.SetFault(kUnsubscribe, "{'reply': <('tv_other',)>}");

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);

    ExpectLog(AnsweredLines(kUnregister) + AdoptionLine(kUnregister, ClientId(), "tv_other") + kLast + kUnregistered);
    EXPECT_EQ(client_.m_strClientName, "tv_other");
}

TEST_F(AtmosUnregisterTest, AReplyOfAnotherTypeIsLoggedAndAdoptsNothing)
{
    control_.SetFault(kUnsubscribe, "{'reply': <'()'>}");

    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), 0);

    ExpectLog(
        AnsweredLines(kUnregister) + WrongTypeLine(kUnregister, kUnsubscribe, "(s)", "()") + kLast + kUnregistered);
    EXPECT_EQ(client_.m_strClientName, ClientId());
}

TEST_F(AtmosUnregisterTest, OnADisabledDeviceTheRegistrationStays)
{
    g_KivDisabled = true;
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    ExpectLog(DisabledLines(kUnregister));
    EXPECT_THAT(Sent(), IsEmpty());
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosUnregisterTest, WithoutAServerTheRegistrationStays)
{
    KillServer();
    EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'f'>), -1);
    ExpectLog(UnreachableLines(kUnregister));
    StartServer();
    StopNetworkSpeaker(0);
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
}

// --- The event ---

TEST_F(AtmosEventTest, CallsInTheOrderOfRegistrationAndBeforeTheSubscribers)
{
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
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    Notify(NAMSERVICE_ATMOS_STATE, {0, 0, 0, 0});
    EXPECT_THAT(Callbacks::TakeCalls(), ElementsAre("f(1, hall)"));
}

TEST_F(AtmosEventTest, OtherEventsCallNone)
{
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    ForgetTraffic();
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());
    EXPECT_THAT(CallsAfter(NAMSERVICE_EXIT_STATE), IsEmpty());
    EXPECT_THAT(DispatchLines(), ElementsAre("I NamNotifySubscriber: receive NAMSERVICE_EXIT_STATE"));
}

TEST_F(AtmosEventTest, WithoutRegistrationsThereIsNothingToCallButTheSubscribers)
{
    SubscribeNamServiceCallback("a", Subscriber<'s'>);
    ForgetTraffic();
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("s(33685544, 0)"));
    EXPECT_THAT(DispatchLines(), ElementsAre(kNothingToCall));
}

TEST_F(AtmosEventTest, UserDataMayBeNull)
{
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
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    std::atomic<bool> isMonitorThread = false;
    Callbacks::Do('f', [&] { isMonitorThread = pthread_equal(pthread_self(), client_.m_MonitorThread) != 0; });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
    EXPECT_TRUE(isMonitorThread);
}

TEST_F(AtmosEventTest, ARegistrationRemovedBeforeItsTurnIsNotCalled)
{
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
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    register_atmos_support_cb(AtmosReceiver<'g'>, g_hall);
    Callbacks::Do('f', [] { unregister_atmos_support_cb(AtmosReceiver<'f'>); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "g(1, hall)"));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("g(1, hall)"));
}

TEST_F(AtmosEventTest, ARegistrationMadeFromWithinIsCalledFromTheNextEventOn)
{
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    Callbacks::Do('f', [] { register_atmos_support_cb(AtmosReceiver<'g'>, g_loft); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "g(1, loft)"));
}

TEST_F(AtmosEventTest, SubscribersMayBeRemovedFromWithin)
{
    SubscribeNamServiceCallback("a", Subscriber<'s'>);
    SubscribeNamServiceCallback("b", Subscriber<'t'>);
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    Callbacks::Do('f', [] { UnsubscribeNamServiceCallback("a"); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)", "t(33685544, 0)"));
}

TEST_F(AtmosEventTest, ACallbackMayCallTheServer)
{
    control_.SetAtmos(true); // before a subscriber can receive the event
    register_atmos_support_cb(AtmosReceiver<'f'>, g_hall);
    std::atomic<bool> supported = false;
    Callbacks::Do('f', [&] { supported = kiv_is_receiver_atmos(); });
    EXPECT_THAT(CallsAfterAtmosEvent(), ElementsAre("f(1, hall)"));
    EXPECT_TRUE(supported);
}

TEST_F(AtmosEventTest, ACallbackThatThrowsCostsALineAndNothingElse)
{
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
