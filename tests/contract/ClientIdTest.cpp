#include "contract/EventTest.h"
#include "support/Wait.h"

#include <future>
#include <latch>
#include <thread>

using namespace kiv::test;

// Tests of client ids that arrive late, only for some callers, or not at all.
namespace client_id_test {
namespace {

constexpr const char* kIdMethod = "check_dbus_connection";
constexpr int kCallers = 8;

std::string UnfitLine(const std::string& id)
{
    return "E m_Monitor: [NAM_API] client id [" + id + "] fits no D-Bus name, path or interface";
}

std::string IdFault(const std::string& id)
{
    return "{'reply': <('" + id + "',)>}";
}

class OfflineClientIdTest : public EventTest {
protected:
    // Makes a call fail on another thread, because the server refuses the id.
    void RefuseAnotherThread()
    {
        control_.SetFault(kIdMethod, kRefusal);
        std::thread([] { EXPECT_EQ(StopNetworkSpeaker(1), -1); }).join();
        control_.ClearFaults();
    }
};

class ClientIdTest : public Connected<OfflineClientIdTest> {};

// --- Another thread's failure ---

TEST_F(ClientIdTest, ACallKeepsItsConnectionWhenAnotherFailsMeanwhile)
{
    AtLine("M StopNetworkSpeaker: [NAM_API] STOP, nStopType[5]", [this] { RefuseAnotherThread(); });
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
}

TEST_F(ClientIdTest, ACallWhoseIdComesLateKeepsItsConnectionWhenAnotherFailsMeanwhile)
{
    control_.SetFault(kIdMethod, "{'delay': <uint32 1000>, 'count': <uint32 1>}");
    auto late = std::async(std::launch::async, [] { return StopNetworkSpeaker(5); });
    WaitUntil("the server to be asked for the id", [this] { return !control_.Methods().empty(); });
    RefuseAnotherThread();
    EXPECT_EQ(Await("the call whose id comes late", late), 5);
}

// A first call opens the endpoint while another call gets no id.
TEST_F(OfflineClientIdTest, AFailureDuringTheFirstCallCostsNoEvents)
{
    StartServer();
    AtLine("M StopNetworkSpeaker: [NAM_API] STOP, nStopType[5]", [this] { RefuseAnotherThread(); });
    EXPECT_EQ(StopNetworkSpeaker(5), 5);
    control_.WaitForOwner(ClientBusName());
}

TEST_F(OfflineClientIdTest, CallersWithoutAnIdDoNotTakeTheNameFromTheOthers)
{
    StartServer();
    for (int round = 0; round < 20; ++round) {
        // Every second reply with an id is of another type.
        ServerControl control(bus_.Address());
        control.SetFault(kIdMethod, "{'reply': <(5,)>, 'every': <uint32 2>}");
        std::latch start(kCallers);
        std::vector<std::thread> callers;
        for (int caller = 0; caller < kCallers; ++caller) {
            callers.emplace_back([&] {
                start.arrive_and_wait();
                StopNetworkSpeaker(1);
            });
        }
        for (std::thread& caller : callers) {
            caller.join();
        }
        control.ClearFaults();
        // The endpoint opens without another call.
        control.WaitForOwner(ClientBusName());
        EXPECT_TRUE(control.Reaches(ClientId()));
        EXPECT_EQ(platform_log::Count(UnfitLine("")), 0U);
        LoseAndFindBus();
    }
}

// --- Ids that are not valid in a name ---

class PassingUnfitIdTest : public OfflineClientIdTest, public ::testing::WithParamInterface<std::string> {
protected:
    // Makes calls under an id that does not allow an endpoint, and then under one that does.
    void ExpectEventsOnceTheIdIsFit(ServerControl& control)
    {
        const std::string id = GetParam();
        control.SetFault(kIdMethod, IdFault(id));
        for (int call = 1; call <= 5; ++call) {
            EXPECT_EQ(StopNetworkSpeaker(call), call);
        }
        platform_log::WaitFor(UnfitLine(id));
        control.ClearFaults();
        EXPECT_EQ(StopNetworkSpeaker(6), 6);
        control.WaitForOwner(ClientBusName());
        EXPECT_TRUE(control.Reaches(ClientId()));
        EXPECT_EQ(platform_log::Count(UnfitLine(id)), 1U); // although five calls got the id
    }
};

TEST_P(PassingUnfitIdTest, OfTheFirstCallDelaysEventsUntilAFitOneComes)
{
    StartServer();
    ExpectEventsOnceTheIdIsFit(control_);
}

TEST_P(PassingUnfitIdTest, AfterALossDelaysEventsUntilAFitOneComes)
{
    StartAndConnect();
    for (int loss = 0; loss < 3; ++loss) {
        LoseAndFindBus();
        ServerControl control(bus_.Address());
        ExpectEventsOnceTheIdIsFit(control);
    }
}

INSTANTIATE_TEST_SUITE_P(Ids, PassingUnfitIdTest, ::testing::Values("", "a b", "tv/1", "1", "a..b"));

TEST_F(OfflineClientIdTest, EachUnfitIdIsLogged)
{
    StartServer();
    for (const char* id : {"", "a b", ""}) {
        const std::size_t before = platform_log::Count(UnfitLine(id));
        control_.SetFault(kIdMethod, IdFault(id));
        EXPECT_EQ(StopNetworkSpeaker(1), 1);
        EXPECT_EQ(StopNetworkSpeaker(2), 2);
        platform_log::WaitFor(UnfitLine(id), before + 1);
    }
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(platform_log::Count(UnfitLine("")), 2U);
    EXPECT_EQ(platform_log::Count(UnfitLine("a b")), 1U);
}

TEST_F(OfflineClientIdTest, AMonitorWithoutAnEndpointCanBeEnded)
{
    StartServer();
    control_.SetFault(kIdMethod, IdFault(""));
    EXPECT_EQ(StopNetworkSpeaker(1), 1);
    platform_log::WaitFor(UnfitLine(""));
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    EXPECT_EQ(client_.m_pMainLoop, nullptr);
}

} // namespace
} // namespace client_id_test
