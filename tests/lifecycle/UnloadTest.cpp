#include "KivServiceInterface.h"
#include "lifecycle/Library.h"
#include "support/Life.h"
#include "support/Platform.h"
#include "support/Process.h"
#include "support/Server.h"
#include "support/Wait.h"
#include "tools/sandbox/PrivateBus.h"

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <functional>
#include <optional>
#include <vector>

using namespace kiv::test;

// Checks that a real unload releases everything.
namespace unload_test {
namespace {

constexpr int kRounds = 100;

void IgnoreEvent(int /*eventId*/, void* /*data*/, int /*length*/) {}

// Returns how many keys of thread-specific data are free.
std::size_t FreeKeys()
{
    std::vector<pthread_key_t> keys;
    for (pthread_key_t key = 0; pthread_key_create(&key, nullptr) == 0;) {
        keys.push_back(key);
    }
    for (const pthread_key_t key : keys) {
        pthread_key_delete(key);
    }
    return keys.size();
}

// Makes the threads of this process and of its children share one processor, so that a thread that is woken can delay
// the one that has woken it between any two steps.
void ShareOneProcessor()
{
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    int first = 0;
    while (!CPU_ISSET(first, &allowed)) {
        ++first;
    }
    CPU_ZERO(&allowed);
    CPU_SET(first, &allowed);
    ASSERT_EQ(sched_setaffinity(0, sizeof allowed, &allowed), 0);
}

class UnloadTest : public ::testing::Test {
protected:
    UnloadTest()
    {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1);
        server_.emplace();
    }

    void LoseBusOf(const Library& library)
    {
        server_.reset();
        bus_.Kill();
        GDBusConnection* const connection = library.Client()->m_pConnection;
        WaitUntil("the connection to be closed", [&] { return g_dbus_connection_is_closed(connection) != FALSE; });
    }

    // Runs an action while the library has a connection of its own, and expects that the unload releases that
    // connection.
    void UnloadWithOwnConnection(const std::function<void(const Library&)>& action)
    {
        std::optional<Life> own;
        {
            const Library library;
            EXPECT_EQ(library.Stop(1), 1);
            GDBusConnection* const shared = library.Client()->m_pConnection;
            LoseBusOf(library);
            bus_.Start();
            server_.emplace();
            EXPECT_EQ(library.Stop(2), 2);
            EXPECT_NE(library.Client()->m_pConnection, shared);
            own.emplace(library.Client()->m_pConnection);
            action(library);
            EXPECT_EQ(library.DestroyMonitor(), 0);
        }
        EXPECT_FALSE(IsMapped(KIV_LIBRARY));
        own->WaitForEnd();
    }

    kiv::sandbox::PrivateBus bus_;
    std::optional<Server> server_;
};

TEST_F(UnloadTest, GivesBackTheSharedConnection)
{
    for (int round = 0; round < 3; ++round) {
        std::optional<Life> connection;
        {
            const Library library;
            const auto registerAtmos = library.Symbol<int(AtmosSupportCallback, void*)>("register_atmos_support_cb");
            EXPECT_EQ(library.Stop(1), 1);
            EXPECT_EQ(library.Subscribe(IgnoreEvent), 1);
            EXPECT_EQ(registerAtmos([](int, void*) {}, nullptr), 0);
            connection.emplace(library.Client()->m_pConnection);
            EXPECT_EQ(library.DestroyMonitor(), 0);
        }
        EXPECT_FALSE(IsMapped(KIV_LIBRARY));
        connection->WaitForEnd();
    }
}

TEST_F(UnloadTest, GivesBackTheLibrarysOwnConnection)
{
    UnloadWithOwnConnection([](const Library&) {});
}

// No call has noticed that the connection is lost.
TEST_F(UnloadTest, GivesBackTheLibrarysOwnConnectionThatIsLost)
{
    UnloadWithOwnConnection([this](const Library& library) { LoseBusOf(library); });
}

TEST_F(UnloadTest, GivesBackDescriptorsAndThreadKeys)
{
    ASSERT_NO_FATAL_FAILURE(ShareOneProcessor());
    std::size_t files = 0;
    std::size_t keys = 0;
    for (int round = 0; round <= kRounds; ++round) {
        {
            const Library library;
            ASSERT_EQ(library.Stop(round), round);
            ASSERT_EQ(library.Subscribe(IgnoreEvent), 1);
            ASSERT_EQ(library.DestroyMonitor(), 0);
        }
        ASSERT_FALSE(IsMapped(KIV_LIBRARY)) << "round " << round;
        if (round == 0) { // GIO's own descriptors stay
            files = OpenFiles();
            keys = FreeKeys();
        }
    }
    EXPECT_EQ(FreeKeys(), keys);
    // GIO closes connections on a thread of its own.
    WaitUntil("GIO to close what was lost", [&] { return OpenFiles() <= files; });
}

// The launch thread creates a key for its end.
TEST_F(UnloadTest, GivesBackTheKeyOfLaunchThreads)
{
    server_.reset();
    std::size_t keys = 0;
    for (int round = 0; round <= kRounds; ++round) {
        {
            const Library probe(KIV_LAUNCH_PROBE);
            EXPECT_FALSE(probe.Symbol<bool()>("PreCheck")());
        }
        platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
        WaitUntil("the probe to be unmapped", [] { return !IsMapped(KIV_LAUNCH_PROBE); });
        platform_log::Clear();
        if (round == 0) {
            keys = FreeKeys();
        }
    }
    EXPECT_EQ(FreeKeys(), keys);
}

} // namespace
} // namespace unload_test
