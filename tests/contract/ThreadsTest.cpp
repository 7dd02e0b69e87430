#include "contract/EventTest.h"
#include "support/Gate.h"

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <utility>

using namespace kiv::test;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace threads_test {
namespace {

constexpr std::size_t kSubscribingThreads = 8;
constexpr int kCallingThreads = 2;
constexpr int kRounds = 10;
constexpr unsigned kEventsAtOnce = 20;
constexpr int kFlappingCallers = 8;
constexpr int kFlaps = 30;

const std::string kEventEnter = "I NamNotifySubscriber: [NAM_API] ** Enter **";

std::atomic<unsigned> g_received;

void CountEvent(int /*eventId*/, void* /*data*/, int /*length*/)
{
    ++g_received;
}

// Each thread has a callback of its own, because a callback can be registered only once.
template <std::size_t Thread>
void CountAtmos(int supported, void* userData)
{
    EXPECT_EQ(supported, 1);
    EXPECT_EQ(userData, &g_received);
    ++g_received;
}

template <std::size_t Thread>
void SubscribeAndRegister()
{
    const std::string own = "thread " + std::to_string(Thread);
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(SubscribeNamServiceCallback(own.c_str(), CountEvent), 1);
        EXPECT_EQ(SubscribeNamServiceCallback("shared", CountEvent), 1);
        EXPECT_EQ(register_atmos_support_cb(CountAtmos<Thread>, &g_received), 0);
        UnsubscribeNamServiceCallback(own.c_str());
        UnsubscribeNamServiceCallback("shared");
        EXPECT_EQ(unregister_atmos_support_cb(CountAtmos<Thread>), 0);
    }
}

template <std::size_t... Thread>
std::vector<std::thread> StartSubscribers(std::index_sequence<Thread...> /*threads*/)
{
    std::vector<std::thread> threads;
    (threads.emplace_back(SubscribeAndRegister<Thread>), ...);
    return threads;
}

void Call()
{
    for (int round = 0; round < kRounds; ++round) {
        EXPECT_EQ(StopNetworkSpeaker(round), round);
        EXPECT_FALSE(kiv_is_receiver_atmos());
        EXPECT_EQ(DisableSurround(), 0);
    }
}

class OfflineThreadsTest : public EventTest {
protected:
    // Returns whether a call reaches a server that has just started. The bus may still be starting it for others.
    static bool EventuallyAnswers()
    {
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (StopNetworkSpeaker(5) == 5) {
                return true;
            }
        }
        return false;
    }

    // Returns the number of batches of both kinds.
    unsigned PourEventsUntil(const std::atomic<bool>& enough)
    {
        ServerControl control(bus_.Address());
        const auto atmos = Payload(NAMSERVICE_ATMOS_STATE, 5000, {1, 2, 3});
        const auto other = Payload(kEvent, 4, {1, 2, 3, 4});
        unsigned batches = 0;
        do {
            EXPECT_EQ(control.SendPayloads(atmos, kEventsAtOnce), kEventsAtOnce);
            EXPECT_EQ(control.SendPayloads(other, kEventsAtOnce), kEventsAtOnce);
            ++batches;
        } while (!enough);
        return batches;
    }
};

class ThreadsTest : public Connected<OfflineThreadsTest> {};

TEST_F(ThreadsTest, SubscribersAndCallersWhileEventsPourIn)
{
    SubscribeNamServiceCallback("all the time", Subscriber<'s'>);

    std::atomic<bool> enough = false;
    unsigned batches = 0;
    std::thread events([&] { batches = PourEventsUntil(enough); });
    std::vector<std::thread> threads = StartSubscribers(std::make_index_sequence<kSubscribingThreads>());
    for (int count = 0; count < kCallingThreads; ++count) {
        threads.emplace_back(Call);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    enough = true;
    events.join();

    Notify(0);
    EXPECT_EQ(Callbacks::TakeCalls().size(), std::size_t{2} * kEventsAtOnce * batches);
    g_received = 0;
    ForgetTraffic();
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), ElementsAre("s(33685544, 0)"));
    EXPECT_THAT(DispatchLines(), ElementsAre("I NamNotifySubscriber: nothing to call"));
    EXPECT_EQ(g_received, 0U);

    EXPECT_EQ(register_atmos_support_cb(CountAtmos<0>, &g_received), 0);
    UnsubscribeNamServiceCallback("all the time");
    EXPECT_THAT(CallsAfter(NAMSERVICE_ATMOS_STATE), IsEmpty());
    EXPECT_EQ(g_received, 1U);
    EXPECT_EQ(StopNetworkSpeaker(3), 3);
}

// The server comes and goes with another id each time, while calls, subscriptions and events go on.
TEST_F(OfflineThreadsTest, AFlappingServer)
{
    std::atomic<bool> enough = false;
    std::vector<std::thread> threads;
    for (int count = 0; count < kFlappingCallers; ++count) {
        threads.emplace_back([&] {
            while (!enough) {
                StopNetworkSpeaker(1);
                std::vector<STNetSpkListInfo> lists;
                GetNetSpkListInfo(lists);
                SubscribeNamServiceCallback("flapping", CountEvent);
                UnsubscribeNamServiceCallback("flapping");
                FlagEnableNetworkSpeaker();
            }
        });
    }
    for (int flap = 0; flap < kFlaps; ++flap) {
        StartServer();
        control_.SetClientId("flap" + std::to_string(flap));
        EXPECT_TRUE(EventuallyAnswers());
        // Every client that has an object by now answers.
        control_.SendPayloads(Payload(kEvent, 4, {1, 2, 3, 4}), kEventsAtOnce);
        KillServer();
    }
    enough = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    StartServer();
    EXPECT_TRUE(EventuallyAnswers());
}

// --- The platform's log call ---

TEST_F(ThreadsTest, ASlowLogCallHoldsUpItsOwnThreadOnly)
{
    Gate gate;
    std::atomic_flag caught;
    platform_log::OnLine([&](const LogLine& line) {
        if (!line.ofTestThread && !caught.test_and_set()) {
            gate.Pass();
        }
    });
    std::thread slow([] { EXPECT_EQ(StopNetworkSpeaker(1), 1); });
    gate.WaitUntilReached();

    for (int call = 0; call < 20; ++call) {
        EXPECT_EQ(StopNetworkSpeaker(call), call);
    }
    EXPECT_THAT(CallsAfter(kEvent), IsEmpty());

    gate.Open();
    slow.join();
    platform_log::OnLine(nullptr);
    client_.m_DestroyMessageMonitor(); // the monitor thread may still be in the hook
}

TEST_F(ThreadsTest, ALogCallMayCallTheLibrary)
{
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    std::set<std::string> seen;
    std::mutex seenLock;
    // Handles each line once, because otherwise the lines of the inner calls would have no end.
    platform_log::OnLine([&](const LogLine& line) {
        bool isNew = false;
        {
            const std::lock_guard lock(seenLock);
            isNew = seen.insert(line.Short()).second;
        }
        if (isNew) {
            EXPECT_EQ(GetSurroundChannelNumber(), 0);
        }
    });
    EXPECT_EQ(StopNetworkSpeaker(1), 1);
    EXPECT_THAT(CallsAfter(kEvent), ElementsAre("n(7, 0)"));
    platform_log::OnLine(nullptr);
    client_.m_DestroyMessageMonitor(); // the monitor thread may still be in the hook
    EXPECT_THAT(seen, ::testing::IsSupersetOf({kEnter, kEventEnter}));
}

} // namespace
} // namespace threads_test
