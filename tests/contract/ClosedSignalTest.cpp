#include "contract/EventTest.h"
#include "src/link/Owners.h"
#include "support/Wait.h"

#include <atomic>
#include <future>
#include <mutex>

using namespace kiv::test;

// Tests of a host that handles the "closed" signal of the shared connection, which GIO delivers where the host runs its
// loop.
namespace closed_signal_test {
namespace {

class ClosedSignalTest : public Connected<EventTest> {
protected:
    ClosedSignalTest()
    {
        const kiv::link::ConnectionOwner shared(SharedConnection());
        EXPECT_EQ(shared.get(), client_.m_pConnection);
        g_signal_connect(shared.get(), "closed", G_CALLBACK(OnClosed), this);
    }

    // Sets what the host does in its handler.
    void Handle(std::function<void()> action) { action_ = std::move(action); }

    // Makes a call of the library on this thread.
    static int Call(int stopType)
    {
        isInCall_ = true;
        const int answer = StopNetworkSpeaker(stopType);
        isInCall_ = false;
        return answer;
    }

    static GDBusConnection* SharedConnection() { return g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr); }

    static void RunLoop()
    {
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
    }

    static inline std::atomic<int> handled_;

private:
    static void OnClosed(GDBusConnection* /*connection*/, gboolean /*byPeer*/, GError* /*error*/, gpointer self)
    {
        EXPECT_FALSE(isInCall_) << "the host's handler runs inside a call of the library";
        ++handled_;
        if (static_cast<ClosedSignalTest*>(self)->action_) {
            static_cast<ClosedSignalTest*>(self)->action_();
        }
    }

    static inline thread_local bool isInCall_;
    std::function<void()> action_;
};

TEST_F(ClosedSignalTest, AHandlerMayTakeALockThatIsHeldDuringCalls)
{
    std::mutex lockOfTheHost;
    Handle([&] { const std::lock_guard lock(lockOfTheHost); });
    LoseAndFindBus();

    std::unique_lock lock(lockOfTheHost);
    auto other = std::async(std::launch::async, [] { return Call(2); });
    platform_log::WaitFor(StartLine("StopNetworkSpeaker"));
    auto locked = std::async(std::launch::async, [] { return Call(3); });
    EXPECT_EQ(Await("the call that is made under the host's lock", locked), 3);
    lock.unlock();
    EXPECT_EQ(Await("the call that is made without it", other), 2);
    EXPECT_EQ(handled_, 0);

    RunLoop();
    EXPECT_EQ(handled_, 1);
}

TEST_F(ClosedSignalTest, AHandlerMayEndTheMonitorWhileACallbackRuns)
{
    static std::promise<void> entered;
    static std::promise<void> handling;
    static std::atomic<int> answer = -1;
    SubscribeNamServiceCallback("name", [](int, void*, int) {
        entered.set_value();
        Await("the handler to end the monitor", handling.get_future());
        answer = Call(2);
    });
    int result = -1;
    Handle([&] {
        handling.set_value();
        result = client_.m_DestroyMessageMonitor();
    });
    control_.SendEvent(kEvent, {});
    Await("the callback to be called", entered.get_future());
    LoseAndFindBus();
    EXPECT_EQ(Call(1), 1);
    EXPECT_EQ(handled_, 0);

    RunLoop();
    EXPECT_EQ(handled_, 1);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(answer, 2);
}

TEST_F(ClosedSignalTest, AHandlerMayCallTheLibrary)
{
    int answer = -1;
    Handle([&] { answer = StopNetworkSpeaker(5); });
    LoseAndFindBus();
    EXPECT_EQ(Call(1), 1);
    RunLoop();
    EXPECT_EQ(answer, 5);
    EXPECT_EQ(handled_, 1);
}

// GIO returns the lost connection until its signal has been delivered.
TEST_F(ClosedSignalTest, TheSharedConnectionIsLeftToTheHost)
{
    for (int loss = 1; loss <= 3; ++loss) {
        LoseAndFindBus();
        for (int call = 0; call < 3; ++call) {
            EXPECT_EQ(Call(call), call);
        }
        // The monitor thread has released the lost connection.
        ServerControl(bus_.Address()).WaitForOwner(ClientBusName());
        const kiv::link::ConnectionOwner shared(SharedConnection());
        ASSERT_NE(shared.get(), nullptr);
        EXPECT_TRUE(g_dbus_connection_is_closed(shared.get()));
        EXPECT_EQ(handled_, 0);
    }

    RunLoop();
    EXPECT_EQ(handled_, 1);
    const kiv::link::ConnectionOwner shared(SharedConnection());
    ASSERT_NE(shared.get(), nullptr);
    EXPECT_FALSE(g_dbus_connection_is_closed(shared.get()));
}

// A connection that the library opens belongs to it alone, so the caller's context gets no signal of it.
TEST_F(ClosedSignalTest, TheCallersContextGetsNothingOfTheLibrarysOwnConnection)
{
    LoseAndFindBus();
    const kiv::link::ContextOwner context(g_main_context_new());
    g_main_context_push_thread_default(context.get());
    for (int loss = 0; loss < 3; ++loss) {
        EXPECT_EQ(Call(2), 2);
        EXPECT_FALSE(g_dbus_connection_is_closed(client_.m_pConnection));
        LoseAndFindBus();
        EXPECT_EQ(Call(3), 3);
        EXPECT_FALSE(g_main_context_pending(context.get())) << "after loss " << loss;
    }
    g_main_context_pop_thread_default(context.get());
}

} // namespace
} // namespace closed_signal_test
