#include "KivServiceInterface.h"
#include "contract/FailingMemory.h"
#include "src/platform/Platform.h"
#include "support/Server.h"
#include "tools/sandbox/PrivateBus.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

using namespace kiv::test;

// Lets memory run out at every point of a subscription's end. This is a program of its own, because its log call must
// not allocate memory.

int __dlog_print(int /*logId*/, int /*priority*/, const char* /*tag*/, const char* /*format*/, ...)
{
    return 0;
}

int system_info_get_custom_bool(const char* /*key*/, bool* value)
{
    *value = true;
    return 0;
}

namespace {

constexpr int kEvent = 7;
// This is more than the allocations of a call.
constexpr int kPoints = 40;
constexpr const char* kLongName = "a name that does not fit into a string itself, but takes memory of its own";

std::atomic<int> g_events;
std::atomic<int> g_states;

void CountEvent(int /*eventId*/, void* /*data*/, int /*length*/)
{
    ++g_events;
}

void CountState(int /*supported*/, void* /*userData*/)
{
    ++g_states;
}

class EndingMemoryTest : public ::testing::Test {
protected:
    EndingMemoryTest()
    {
        StopNetworkSpeaker(0);
        control_.WaitForOwner("org.lumra.tv.networkspeaker.client.tv_" + std::to_string(getpid()));
    }
    ~EndingMemoryTest() override { CNSGdbus::m_pInstance->m_DestroyMessageMonitor(); }

    // Makes the server push an event, and returns when all its receivers have been called.
    void Notify(int eventId)
    {
        control_.SendEvent(eventId, {});
        control_.SendEvent(0, {});
    }

    // Calls a function that runs out of memory at a point. Returns whether it threw no exception.
    template <typename Function>
    static bool Survives(int point, Function&& function)
    {
        try {
            g_failsOn = true;
            g_untilFailure = point;
            function();
            g_untilFailure = 0;
            return true;
        } catch (...) {
            g_untilFailure = 0;
            return false;
        }
    }

    kiv::sandbox::PrivateBus bus_;
    const int address_ = setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1);
    const Server server_;
    ServerControl control_{bus_.Address()};
};

TEST_F(EndingMemoryTest, OfSubscribers)
{
    ASSERT_EQ(SubscribeNamServiceCallback("counts, too, and stays, whatever becomes of the other", CountEvent), 1);
    for (int point = 1; point <= kPoints; ++point) {
        ASSERT_EQ(SubscribeNamServiceCallback(kLongName, CountEvent), 1);
        g_events = 0;
        Notify(kEvent);
        ASSERT_EQ(g_events, 2);

        EXPECT_TRUE(Survives(point, [] { UnsubscribeNamServiceCallback(kLongName); })) << "allocation " << point;
        g_events = 0;
        Notify(kEvent);
        ASSERT_EQ(g_events, 1) << "allocation " << point;
    }
}

TEST_F(EndingMemoryTest, OfAtmosRegistrations)
{
    for (int point = 1; point <= kPoints; ++point) {
        ASSERT_EQ(register_atmos_support_cb(CountState, nullptr), 0);
        g_states = 0;
        Notify(NAMSERVICE_ATMOS_STATE);
        ASSERT_EQ(g_states, 1);

        int result = -2;
        EXPECT_TRUE(Survives(point, [&] { result = unregister_atmos_support_cb(CountState); })) << "point " << point;
        EXPECT_EQ(result, 0);
        Notify(NAMSERVICE_ATMOS_STATE);
        ASSERT_EQ(g_states, 1) << "allocation " << point;
    }
}

// A subscription allocates memory. This test shows that allocations fail where they are to fail.
TEST_F(EndingMemoryTest, OfASubscriptionThatIsNotMadeForWantOfIt)
{
    int result = -1;
    EXPECT_TRUE(Survives(1, [&] { result = SubscribeNamServiceCallback(kLongName, CountEvent); }));
    EXPECT_EQ(result, 0);
    Notify(kEvent);
    EXPECT_EQ(g_events, 0);
}

} // namespace
