#include "contract/EventTest.h"
#include "endurance/EveryFunction.h"

#include <atomic>
#include <mutex>
#include <set>

using namespace kiv::test;
using kiv::endurance::AddCallbacks;
using kiv::endurance::CallFunction;
using kiv::endurance::FunctionCount;

// The platform's log call may call any function of the library from any line of any other function, because nothing is
// locked while the log runs.
namespace log_call_test {
namespace {

// Each test makes a share of the calls, so that it ends well within its limit under the sanitizers, too.
constexpr int kShares = 4;

class LogCallTest : public Connected<EventTest>, public ::testing::WithParamInterface<int> {
protected:
    ~LogCallTest() override
    {
        platform_log::OnLine(nullptr);
        client_.m_DestroyMessageMonitor(); // the monitor thread may still be in the hook
    }

    // Makes each new line of the log call every step_-th function, and the line after it the ones behind these. A line
    // that has come before calls one, each time the next. All of them then add callbacks: these functions change a list
    // that others walk through, and the call that logs finds something to remove. The lines of these calls call none.
    void CallFunctionsInLines()
    {
        platform_log::OnLine([this](const LogLine& line) {
            if (isInLog_) {
                return;
            }
            bool isNew = false;
            {
                const std::lock_guard lock(mutex_);
                isNew = seen_.insert(line.function + std::to_string(line.line) + line.text).second;
            }
            isInLog_ = true;
            if (isNew) {
                const int first = first_++;
                for (int inner = 0; inner < FunctionCount(); inner += step_) {
                    CallFunction((first + inner) % FunctionCount());
                    ++innerCalls_;
                }
            } else {
                CallFunction(next_++ % FunctionCount());
            }
            AddCallbacks();
            isInLog_ = false;
        });
    }

    void ForgetLines()
    {
        const std::lock_guard lock(mutex_);
        seen_.clear();
    }

    std::atomic<int> first_ = 0;
    int step_ = 1;
    std::atomic<int> next_ = 0;
    std::atomic<int> innerCalls_ = 0;

private:
    static inline thread_local bool isInLog_;
    std::mutex mutex_;
    std::set<std::string> seen_;
};

TEST_P(LogCallTest, MayCallEveryFunctionFromEveryOther)
{
    step_ = kShares;
    CallFunctionsInLines();
    for (int outer = GetParam(); outer < FunctionCount(); outer += kShares) {
        const int before = innerCalls_;
        // A call with few lines is made again, until they have called every function.
        for (int calls = 0; calls < kShares && innerCalls_ < before + FunctionCount(); ++calls) {
            ForgetLines();
            CallFunction(outer);
        }
        EXPECT_GE(innerCalls_, before + FunctionCount()) << "Outer call " << outer << " logs too few lines";
    }
    platform_log::OnLine(nullptr);
    EXPECT_EQ(StopNetworkSpeaker(3), 3);
}

// Covers the lines of the first call, of the monitor's start, and of the dispatch on the monitor thread. The server
// waits 20 s for the answer to an event, so each test makes a share of the inner calls.
TEST_P(LogCallTest, MayCallEveryFunctionWhileAnEventIsDispatched)
{
    first_ = GetParam();
    step_ = kShares;
    char hall[] = "hall";
    EXPECT_EQ(register_atmos_support_cb(AtmosReceiver<'a'>, hall), 0);
    SubscribeNamServiceCallback("s", Subscriber<'s'>);
    Callbacks::Do('a', [] { EXPECT_EQ(StopNetworkSpeaker(1), 1); });
    Callbacks::Do('s', [] { throw 1; });
    CallFunctionsInLines();
    Notify(NAMSERVICE_ATMOS_STATE, {1, 2, 3, 4});
    Notify(NAMSERVICE_EXIT_STATE, {});
    Notify(kEvent, {});
    platform_log::OnLine(nullptr);
    // The server has also reported changes that the inner calls made.
    EXPECT_THAT(
        Callbacks::TakeCalls(), ::testing::IsSupersetOf(
                                    {std::string("a(1, hall)"), "s(" + std::to_string(NAMSERVICE_ATMOS_STATE) + ", 4)",
                                     "s(" + std::to_string(NAMSERVICE_EXIT_STATE) + ", 0)", std::string("s(7, 0)")}));
    EXPECT_GE(innerCalls_, 8 * FunctionCount() / kShares);
}

INSTANTIATE_TEST_SUITE_P(Shares, LogCallTest, ::testing::Range(0, kShares));

TEST_F(LogCallTest, MayCallEveryFunctionWhileALostBusIsReplaced)
{
    LoseAndFindBus();
    ForgetLines();
    CallFunctionsInLines();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    ServerControl(bus_.Address()).WaitForOwner(ClientBusName());
    platform_log::OnLine(nullptr);
    EXPECT_GE(innerCalls_, 2 * FunctionCount());
}

TEST_F(LogCallTest, MayEndTheMonitor)
{
    int results = 0;
    platform_log::OnLine([&](const LogLine& line) {
        if (line.ofTestThread) {
            results += client_.m_DestroyMessageMonitor();
        }
    });
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    platform_log::OnLine(nullptr);
    EXPECT_EQ(results, 0);
    control_.WaitForNoOwner(ClientBusName());
}

} // namespace
} // namespace log_call_test
