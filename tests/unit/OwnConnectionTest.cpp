#include "src/link/MonitorThread.h"
#include "src/link/SystemBus.h"
#include "support/BusTest.h"
#include "support/Life.h"
#include "unit/Failures.h"

#include <optional>

using namespace kiv::link;
using namespace kiv::test;
using ::testing::IsEmpty;

// Tests of the library's own connection, at moments that cannot be reached from outside.
namespace own_connection_test {
namespace {

class OwnConnectionTest : public Connected<BusTest> {
protected:
    // Loses the connection that the process shares for good.
    OwnConnectionTest() { LoseAndFindBus(); }

    const ConnectionOwner lost_ = NewReference(client_.m_pConnection);
};

TEST_F(OwnConnectionTest, ACallThatEndsLateDoesNotMoveTheEndpointBack)
{
    ASSERT_EQ(StopNetworkSpeaker(1), 1);
    ServerControl control(bus_.Address());
    control.WaitForOwner(ClientBusName());
    platform_log::Clear();

    ServeEvents(client_, lost_.get(), ClientId().c_str());

    control.SendEvent(7, {});
    EXPECT_THAT(platform_log::OfFunction("NamNotifySubscriber").size(), 1U);
    EXPECT_THAT(platform_log::OfFunction("m_OnbusAcquired"), IsEmpty());
}

TEST_F(OwnConnectionTest, TheSecondOfTwoThatAreOpenedAtOnceLeavesNothingAlsoIfItIsLost)
{
    ConnectionOwner first;
    std::optional<Life> second;
    g_afterOpening = [&](GDBusConnection* opened) {
        second.emplace(opened);
        first = GetSystemBus(nullptr);
        Close(opened);
    };

    EXPECT_EQ(GetSystemBus(nullptr), first);

    EXPECT_FALSE(IsClosed(first.get()));
    second->WaitForEnd();
}

TEST_F(OwnConnectionTest, TheSecondOfTwoThatAreOpenedAtOnceReplacesTheFirstIfThatIsLost)
{
    std::optional<Life> first;
    GDBusConnection* second = nullptr;
    g_afterOpening = [&](GDBusConnection* opened) {
        second = opened;
        const ConnectionOwner other = GetSystemBus(nullptr);
        first.emplace(other.get());
        Close(other.get());
    };

    const ConnectionOwner used = GetSystemBus(nullptr);

    EXPECT_EQ(used.get(), second);
    EXPECT_FALSE(IsClosed(used.get()));
    first->WaitForEnd();
}

TEST_F(OwnConnectionTest, IsOpenedWithTheFlagsOfTheSharedOne)
{
    const ConnectionOwner own = GetSystemBus(nullptr);
    ASSERT_NE(own, lost_);
    EXPECT_EQ(g_dbus_connection_get_flags(own.get()), g_dbus_connection_get_flags(lost_.get()));
}

TEST_F(OwnConnectionTest, FollowsAnyErrorThatGioHandsOut)
{
    g_busError.Arm();
    const ConnectionOwner own = GetSystemBus(nullptr);
    EXPECT_FALSE(g_busError.IsArmed());
    ASSERT_NE(own, nullptr);
    EXPECT_FALSE(IsClosed(own.get()));
}

} // namespace
} // namespace own_connection_test
