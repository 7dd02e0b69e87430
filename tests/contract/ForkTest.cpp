#include "contract/EventTest.h"
#include "support/Wait.h"

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace kiv::test;

// Tests of a host that forks while its other threads make calls.
namespace fork_test {
namespace {

constexpr int kChildren = 300;
constexpr int kCallers = 4;

class ForkTest : public Connected<EventTest> {
protected:
    ~ForkTest() override
    {
        isEnough_ = true;
        for (std::thread& caller : callers_) {
            caller.join();
        }
    }

    template <typename Function>
    void KeepCalling(Function function)
    {
        for (int caller = 0; caller < kCallers; ++caller) {
            callers_.emplace_back([this, function] {
                while (!isEnough_) {
                    function();
                }
            });
        }
    }

    // Makes children that end at once, and expects that they end normally.
    static void ExpectOrderlyChildren()
    {
        for (int count = 0; count < kChildren; ++count) {
            std::fflush(nullptr); // otherwise the child would print the buffered output, too
            const pid_t child = fork();
            if (child == 0) {
                std::exit(0);
            }
            const int status = WaitForExit("child " + std::to_string(count) + " to end", child);
            ASSERT_TRUE(WIFEXITED(status)) << "child " << count << " ended by signal " << WTERMSIG(status);
            ASSERT_EQ(WEXITSTATUS(status), 0);
        }
    }

private:
    std::atomic<bool> isEnough_ = false;
    std::vector<std::thread> callers_;
};

TEST_F(ForkTest, ChildrenEndWhileCallsRun)
{
    KeepCalling([] { EXPECT_EQ(StopNetworkSpeaker(1), 1); });
    ExpectOrderlyChildren();
}

TEST_F(ForkTest, ChildrenEndWhileSubscriptionsChange)
{
    KeepCalling([] {
        SubscribeNamServiceCallback("name", Subscriber<'n'>);
        UnsubscribeNamServiceCallback("name");
        char hall[] = "hall";
        register_atmos_support_cb(AtmosReceiver<'a'>, hall);
        unregister_atmos_support_cb(AtmosReceiver<'a'>);
    });
    ExpectOrderlyChildren();
}

// Children inherit the connection, but the parent keeps it: its events and calls go on.
TEST_F(ForkTest, ChildrenTakeNothingFromTheirParent)
{
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    for (int count = 0; count < 20; ++count) {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            std::exit(0);
        }
        EXPECT_EQ(WaitForExit("the child to end", child), 0);
        EXPECT_EQ(StopNetworkSpeaker(count), count);
        EXPECT_EQ(CallsAfter(kEvent), Lines{"n(7, 0)"});
    }
}

} // namespace
} // namespace fork_test
