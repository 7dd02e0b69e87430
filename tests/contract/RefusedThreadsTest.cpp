#include "contract/EventTest.h"
#include "support/Wait.h"

#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

using namespace kiv::test;

// This is a program of its own, because it replaces the C library's pthread_create().

namespace {

std::atomic<bool> g_isRefusing;
std::atomic<int> g_refused;

} // namespace

// Refuses the threads that GLib asks for. GIO's worker runs already, because other parts of the program use it.
extern "C" __attribute__((visibility("default"))) int
pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) noexcept
{
    static const auto real = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    Dl_info info{};
    if (g_isRefusing && dladdr(reinterpret_cast<void*>(body), &info) != 0 &&
        std::strstr(info.dli_fname, "libglib") != nullptr) {
        ++g_refused;
        return EAGAIN;
    }
    return real(thread, attributes, body, argument);
}

namespace {

// Returns whether GLib has a pool thread, besides the one that creates the others.
bool HasPoolThread()
{
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::ranges::any_of(threads, [](const std::filesystem::directory_entry& thread) {
        std::string name;
        std::getline(std::ifstream(thread.path() / "comm"), name);
        return name.starts_with("pool-") && name != "pool-spawner";
    });
}

class RefusedThreadsTest : public EventTest {
protected:
    // From here on, GLib can neither create a thread nor use an idle one.
    static void Refuse()
    {
        g_thread_pool_set_max_unused_threads(0);
        WaitUntil("GLib's thread pool to be empty", [] {
            g_thread_pool_stop_unused_threads();
            return !HasPoolThread();
        });
        g_isRefusing = true;
    }
    static void RefuseNoMore() { g_isRefusing = false; }

    void ExpectEvents()
    {
        ServerControl control(bus_.Address());
        control.WaitForOwner(ClientBusName());
        EXPECT_TRUE(control.Reaches(ClientId()));
    }
};

TEST_F(RefusedThreadsTest, GlibIsRefusedThem)
{
    Refuse();
    EXPECT_EQ(
        g_thread_try_new(
            "refused", [](gpointer) -> gpointer { return nullptr; }, nullptr, nullptr),
        nullptr);
    EXPECT_EQ(g_refused, 1);
}

TEST_F(RefusedThreadsTest, DuringTheFirstCallCostNoEvents)
{
    StartServer();
    Refuse();
    EXPECT_EQ(StopNetworkSpeaker(2), 2);
    ExpectEvents();
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
    control_.WaitForNoOwner(ClientBusName());
    RefuseNoMore();
}

TEST_F(RefusedThreadsTest, WhenTheBusIsFoundAgainCostNoEvents)
{
    StartAndConnect();
    for (int loss = 0; loss < 3; ++loss) {
        LoseAndFindBus();
        Refuse();
        EXPECT_EQ(StopNetworkSpeaker(2), 2);
        ExpectEvents();
        RefuseNoMore();
    }
    EXPECT_EQ(client_.m_DestroyMessageMonitor(), 0);
}

} // namespace
