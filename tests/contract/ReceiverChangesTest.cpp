#include "contract/EventTest.h"

#include <thread>

using namespace kiv::test;
using ::testing::ElementsAre;

// Tests of subscribers and Atmos callbacks that change during the dispatch of an event, by themselves and by other
// threads.
namespace receiver_changes_test {
namespace {

constexpr const char* kAtmosEvent = "33685544, 0";

class ReceiverChangesTest : public Connected<EventTest> {
protected:
    // Makes a receiver's call last until another thread has run the action.
    static void DoMeanwhile(char letter, std::function<void()> action)
    {
        Callbacks::Do(letter, [action] { std::thread(action).join(); });
    }

    // Subscribes under names that are one letter each.
    template <char... Letters>
    static void SubscribeEach()
    {
        (SubscribeNamServiceCallback(std::string(1, Letters).c_str(), Subscriber<Letters>), ...);
    }

    char hall_[5] = "hall";
};

TEST_F(ReceiverChangesTest, ASubscriberMayReplaceItself)
{
    Callbacks::Do('a', [] { SubscribeNamServiceCallback("name", Subscriber<'b'>); });
    SubscribeNamServiceCallback("name", Subscriber<'a'>);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("b(7, 0)"));
}

TEST_F(ReceiverChangesTest, ASubscriberThatIsRemovedAndAddedAfterItsTurnIsNotCalledTwice)
{
    Callbacks::Do('b', [] {
        UnsubscribeNamServiceCallback("a");
        SubscribeNamServiceCallback("a", Subscriber<'a'>);
    });
    SubscribeEach<'a', 'b'>();
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)", "b(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)", "b(7, 0)"));
}

TEST_F(ReceiverChangesTest, ASubscriberThatIsRemovedAndAddedBeforeItsTurnIsCalledFromTheNextEventOn)
{
    Callbacks::Do('a', [] {
        UnsubscribeNamServiceCallback("b");
        SubscribeNamServiceCallback("b", Subscriber<'b'>);
        Callbacks::Do('a', nullptr);
    });
    SubscribeEach<'a', 'b'>();
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)", "b(7, 0)"));
}

TEST_F(ReceiverChangesTest, ASubscriberMayRemoveAllAndAddOthers)
{
    Callbacks::Do('b', [] {
        for (const char* name : {"a", "b", "c", "d"}) {
            UnsubscribeNamServiceCallback(name);
        }
        SubscribeNamServiceCallback("aa", Subscriber<'e'>);
        SubscribeNamServiceCallback("bb", Subscriber<'f'>);
    });
    SubscribeEach<'a', 'b', 'c', 'd'>();
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)", "b(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("e(7, 0)", "f(7, 0)"));
}

TEST_F(ReceiverChangesTest, AnotherThreadMayChangeSubscribersMeanwhile)
{
    DoMeanwhile('a', [] {
        UnsubscribeNamServiceCallback("a");
        UnsubscribeNamServiceCallback("b");
        SubscribeNamServiceCallback("c", Subscriber<'r'>);
        SubscribeNamServiceCallback("d", Subscriber<'n'>);
    });
    SubscribeEach<'a', 'b', 'c'>();
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("a(7, 0)", "r(7, 0)"));
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("r(7, 0)", "n(7, 0)"));
}

TEST_F(ReceiverChangesTest, AnotherThreadMayChangeAtmosCallbacksMeanwhile)
{
    DoMeanwhile('a', [this] {
        EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'a'>), 0);
        EXPECT_EQ(unregister_atmos_support_cb(AtmosReceiver<'b'>), 0);
        EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'c'>, hall_), -1);
        EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'n'>, hall_), 0);
    });
    for (const auto callback : {AtmosReceiver<'a'>, AtmosReceiver<'b'>, AtmosReceiver<'c'>}) {
        EXPECT_EQ(register_atmos_support_cb(callback, hall_), 0);
    }
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("a(1, hall)", "c(1, hall)"));
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("c(1, hall)", "n(1, hall)"));
}

TEST_F(ReceiverChangesTest, AnAtmosCallbackMayRemoveAllAndAddItselfAgain)
{
    Callbacks::Do('b', [this] {
        for (const auto callback : {AtmosReceiver<'a'>, AtmosReceiver<'b'>, AtmosReceiver<'c'>}) {
            EXPECT_EQ(unregister_atmos_support_cb(callback), 0);
        }
        EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'b'>, hall_), 0);
        Callbacks::Do('b', nullptr);
    });
    for (const auto callback : {AtmosReceiver<'a'>, AtmosReceiver<'b'>, AtmosReceiver<'c'>}) {
        EXPECT_EQ(register_atmos_support_cb(callback, hall_), 0);
    }
    SubscribeNamServiceCallback("s", Subscriber<'s'>);
    const std::string subscriber = std::string("s(") + kAtmosEvent + ")";
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("a(1, hall)", "b(1, hall)", subscriber));
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("b(1, hall)", subscriber));
    EXPECT_EQ(platform_log::Count("I NamNotifySubscriber: nothing to call"), 0U);
}

} // namespace
} // namespace receiver_changes_test
