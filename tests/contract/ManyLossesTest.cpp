#include "contract/EventTest.h"
#include "support/Process.h"
#include "support/Wait.h"

#include <algorithm>
#include <latch>
#include <thread>

using namespace kiv::test;

// Tests of a bus that is lost again and again, in a host that runs no main loop.
namespace many_losses_test {
namespace {

constexpr int kLosses = 200;
constexpr int kCallers = 8;

class ManyLossesTest : public Connected<EventTest> {};

TEST_F(ManyLossesTest, LeaveNothingBehindAndCostNoCall)
{
    SubscribeNamServiceCallback("name", Subscriber<'n'>);
    std::size_t threads = 0;
    std::size_t files = 0;
    for (int loss = 0; loss < kLosses; ++loss) {
        LoseAndFindBus();
        ASSERT_EQ(StopNetworkSpeaker(loss), loss);
        {
            ServerControl control(bus_.Address());
            control.WaitForOwner(ClientBusName());
            control.SendEvent(kEvent, {});
            control.SendEvent(0, {});
        }
        ASSERT_EQ(Callbacks::TakeCalls(), Lines{"n(7, 0)"}) << "loss " << loss;
        if (loss == 0) { // the lost shared connection stays until the host runs its loop
            threads = Threads();
            files = OpenFiles();
        }
    }
    // GIO closes connections on a thread of its own.
    WaitUntil("GIO to close what the lost buses left", [&] { return Threads() <= threads && OpenFiles() <= files; });
}

TEST_F(ManyLossesTest, AreEachFollowedOnceHoweverManyFindThem)
{
    for (int loss = 0; loss < 20; ++loss) {
        LoseAndFindBus();
        trace_.emplace(bus_.Address());
        std::latch start(kCallers);
        std::vector<std::thread> callers;
        for (int caller = 0; caller < kCallers; ++caller) {
            callers.emplace_back([&, caller] {
                start.arrive_and_wait();
                EXPECT_EQ(StopNetworkSpeaker(caller), caller);
            });
        }
        for (std::thread& caller : callers) {
            caller.join();
        }
        ServerControl control(bus_.Address());
        control.WaitForOwner(ClientBusName());
        EXPECT_TRUE(control.Reaches(ClientId()));
        const auto messages = trace_->Messages();
        const auto isRequest = [](const auto& message) {
            return message.member == "RequestName" && message.BodyText().find(ClientBusName()) != std::string::npos;
        };
        EXPECT_EQ(std::ranges::count_if(messages, isRequest), 1);
        EXPECT_EQ(platform_log::OfFunction("m_OnbusAcquired").size(), 2U) // entry and path
            << "an endpoint is opened once";
        // No further connection is opened afterwards.
        EXPECT_EQ(StopNetworkSpeaker(1), 1);
        const auto isHello = [](const auto& message) { return message.member == "Hello"; };
        const auto hellos = std::ranges::count_if(messages, isHello);
        EXPECT_EQ(StopNetworkSpeaker(1), 1);
        EXPECT_EQ(std::ranges::count_if(trace_->Messages(), isHello), hellos);
    }
}

} // namespace
} // namespace many_losses_test
