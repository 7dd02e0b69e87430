#include "KivServiceInterface.h"
#include "lifecycle/Library.h"
#include "support/Gate.h"
#include "support/Platform.h"
#include "support/Process.h"
#include "support/Server.h"
#include "support/Wait.h"
#include "tools/sandbox/BusTrace.h"
#include "tools/sandbox/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <string_view>
#include <thread>
#include <vector>

using namespace kiv::test;

namespace {

// Returns the number of threads that are not GLib's. GLib gives its threads names.
long ThreadsOfOurs()
{
    namespace fs = std::filesystem;
    const auto name = [](const fs::path& thread) {
        std::string text;
        std::getline(std::ifstream(thread / "comm"), text);
        return text;
    };
    return std::ranges::count_if(fs::directory_iterator("/proc/self/task"), [&](const fs::directory_entry& thread) {
        return name(thread.path()) == name("/proc/self");
    });
}

// Waits for this number of threads. The kernel lists a joined thread for another moment.
void WaitForThreadsOfOurs(long count)
{
    WaitUntil(std::to_string(count) + " threads of ours", [&] { return ThreadsOfOurs() == count; });
}

std::string ClientBusName()
{
    return "org.lumra.tv.networkspeaker.client.tv_" + std::to_string(getpid());
}

// Returns how often a test repeats its action. ./dev soak asks for more.
int Rounds(int few, int many)
{
    return std::getenv("KIV_TEST_SOAK") != nullptr ? many : few;
}

class LifecycleTest : public ::testing::Test {
protected:
    LifecycleTest()
    {
        setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1);
        // With the first thread of a process, the thread sanitizer creates one of its own.
        g_thread_join(g_thread_new(
            "first", [](gpointer) -> gpointer { return nullptr; }, nullptr));
        threads_ = ThreadsOfOurs();
    }

    kiv::sandbox::PrivateBus bus_;
    long threads_;
};

TEST_F(LifecycleTest, LoadingAndUnloadingTouchesNothing)
{
    kiv::sandbox::BusTrace trace(bus_.Address());
    {
        const Library library;
        EXPECT_TRUE(IsMapped(KIV_LIBRARY));
    }
    EXPECT_FALSE(IsMapped(KIV_LIBRARY));
    EXPECT_THAT(trace.Messages(), ::testing::IsEmpty());
    EXPECT_THAT(platform_log::Lines(), ::testing::IsEmpty());
}

TEST_F(LifecycleTest, WithoutItsMonitorTheLibraryReallyGoes)
{
    const Server server;
    for (int round = 0; round < Rounds(20, 100); ++round) {
        {
            const Library library;
            EXPECT_EQ(library.Stop(round), round);
            EXPECT_EQ(library.DestroyMonitor(), 0);
        }
        ASSERT_FALSE(IsMapped(KIV_LIBRARY)) << "round " << round;
        WaitForThreadsOfOurs(threads_);
    }
}

TEST_F(LifecycleTest, ARunningMonitorKeepsTheCodeInPlace)
{
    const Server server;
    {
        const Library library;
        EXPECT_EQ(library.Stop(1), 1);
        platform_log::WaitForEndpoint();
    }
    EXPECT_TRUE(IsMapped(KIV_LIBRARY));

    ServerControl control(bus_.Address());
    control.WaitForOwner(ClientBusName());
    for (int round = 0; round < Rounds(20, 100); ++round) {
        EXPECT_EQ(Library().Stop(round), round);
        ASSERT_TRUE(IsMapped(KIV_LIBRARY)) << "round " << round;
        WaitForThreadsOfOurs(threads_ + 1);
        platform_log::Clear();
        control.SendEvent(0x1234, {1, 2, 3});
        platform_log::WaitFor("I NamNotifySubscriber: [NAM_API] ** Enter **");
    }

    // Loading the library again finds the same one, whose monitor can then be ended.
    {
        const Library library;
        EXPECT_EQ(library.Stop(2), 2);
        EXPECT_EQ(library.DestroyMonitor(), 0);
    }
    EXPECT_FALSE(IsMapped(KIV_LIBRARY));
    WaitForThreadsOfOurs(threads_);
}

// Tests with a loaded library, and a call that starts its monitor.
class EndingTest : public LifecycleTest {
protected:
    static void EndTwiceAtOnce(const Library& library)
    {
        auto other = std::async(std::launch::async, [&] { return library.DestroyMonitor(); });
        EXPECT_EQ(library.DestroyMonitor(), 0);
        EXPECT_EQ(Await("the other thread's end of the monitor", other), 0);
    }

    void ExpectGone(int round)
    {
        ASSERT_FALSE(IsMapped(KIV_LIBRARY)) << "round " << round;
        WaitForThreadsOfOurs(threads_);
        platform_log::Clear();
    }

    const Server server_;
};

TEST_F(EndingTest, AtAnyMomentOfItsStart)
{
    for (int round = 0; round < Rounds(40, 1000); ++round) {
        {
            const Library library;
            auto call = std::async(std::launch::async, [&] { return library.Stop(round); });
            // Each round waits a little longer, over the time that the first call and the start of the monitor take.
            usleep(static_cast<useconds_t>(round % 40 * 100));
            EndTwiceAtOnce(library);
            EXPECT_EQ(Await("the call", call), round);
            EXPECT_EQ(library.DestroyMonitor(), 0); // joins a monitor that started after that
        }
        ASSERT_NO_FATAL_FAILURE(ExpectGone(round));
    }
}

// Asks for the end without a pause, so that one request comes at the moment at which the monitor starts.
TEST_F(EndingTest, AskedForWithoutAPauseWhileItStarts)
{
    for (int round = 0; round < Rounds(200, 10'000); ++round) {
        {
            const Library library;
            std::atomic<bool> isOver = false;
            auto call = std::async(std::launch::async, [&] {
                const int answer = library.Stop(round);
                isOver = true;
                return answer;
            });
            while (!isOver) {
                EXPECT_EQ(library.DestroyMonitor(), 0);
            }
            EXPECT_EQ(Await("the call", call), round);
            EXPECT_EQ(library.DestroyMonitor(), 0);
        }
        ASSERT_NO_FATAL_FAILURE(ExpectGone(round));
    }
}

TEST_F(EndingTest, WhileCallbacksRun)
{
    static std::atomic<int> called;
    for (int round = 0; round < Rounds(20, 500); ++round) {
        called = 0;
        {
            const Library library;
            EXPECT_EQ(library.Subscribe([](int, void*, int) { ++called; }), 1);
            auto events = std::async(std::launch::async, [&] {
                ServerControl control(bus_.Address());
                control.WaitForOwner(ClientBusName());
                return control.SendPayloads(Payload(0x1234, 3, {1, 2, 3}), 100);
            });
            WaitUntil("the callback to be called often enough", [&] { return called > round % 40; });
            EndTwiceAtOnce(library);
            const int calls = called;
            Await("the server to have sent its events", events);
            EXPECT_EQ(called, calls); // no call after that
        }
        ASSERT_NO_FATAL_FAILURE(ExpectGone(round));
    }
}

TEST_F(LifecycleTest, APlugInMayEndTheMonitorWhileItIsUnloaded)
{
    const Server server;
    for (int round = 0; round < 10; ++round) {
        {
            const Library plugin(KIV_PLUGIN);
            EXPECT_EQ(plugin.Symbol<int(int)>("Stop")(round), round);
        }
        ASSERT_FALSE(IsMapped(KIV_LIBRARY)) << "round " << round;
    }
}

TEST_F(LifecycleTest, ALaunchThreadKeepsTheCodeInPlaceUntilItIsOver)
{
    StopAtLine stop("I m_MainLaunchPro: enter t_ImplementSimulateDbus g_dbusretrycnt=[0]");
    {
        const Library probe(KIV_LAUNCH_PROBE);
        EXPECT_FALSE(probe.Symbol<bool()>("PreCheck")());
    }
    stop.WaitUntilReached();
    EXPECT_TRUE(IsMapped(KIV_LAUNCH_PROBE));

    stop.Release();
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
    WaitUntil("the probe to be unmapped", [] { return !IsMapped(KIV_LAUNCH_PROBE); });
}

// Starts this program again, so that the new process has all of its threads.
void ExpectOrderlyExit(const char* how)
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/proc/self/exe", "lifecycle_test", how, nullptr);
        _exit(127);
    }
    const int status = WaitForExit("the program to end", child);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    ASSERT_EQ(WEXITSTATUS(status), 42);
}

constexpr const char* kInStorm = "--exit-in-a-storm-of-events";
constexpr const char* kInCallback = "--exit-in-a-callback";
constexpr const char* kInFirstCall = "--exit-in-the-first-call";
constexpr const char* kInCalls = "--exit-while-calls-go-on";
constexpr const char* kAtOnce = "--exit-at-once";

TEST_F(LifecycleTest, ExitUnderAStormOfEventsIsOrderly)
{
    const Server server;
    for (int round = 0; round < Rounds(20, 1000); ++round) {
        ASSERT_NO_FATAL_FAILURE(ExpectOrderlyExit(kInStorm));
    }
}

TEST_F(LifecycleTest, ExitFromACallbackIsOrderly)
{
    const Server server;
    for (int round = 0; round < Rounds(20, 1000); ++round) {
        ASSERT_NO_FATAL_FAILURE(ExpectOrderlyExit(kInCallback));
    }
}

TEST_F(LifecycleTest, ExitWhileTheFirstCallRunsIsOrderly)
{
    const Server server;
    for (int round = 0; round < Rounds(25, 1000); ++round) {
        ASSERT_NO_FATAL_FAILURE(ExpectOrderlyExit(kInFirstCall));
    }
}

TEST_F(LifecycleTest, ExitDoesNotHarmCallsThatGoOn)
{
    const Server server;
    for (int round = 0; round < Rounds(10, 200); ++round) {
        ASSERT_NO_FATAL_FAILURE(ExpectOrderlyExit(kInCalls));
    }
}

TEST_F(LifecycleTest, OtherProgramsCanBeStartedWhileCallsRun)
{
    const Server server;
    const Library library;
    std::atomic<bool> enough = false;
    std::vector<std::future<int>> callers;
    for (int type = 1; type <= 4; ++type) {
        callers.push_back(std::async(std::launch::async, [&, type] {
            int answer = type;
            while (!enough && answer == type) {
                answer = library.Stop(type);
            }
            return answer;
        }));
    }
    for (int round = 0; round < Rounds(100, 1000) && !HasFatalFailure(); ++round) {
        ExpectOrderlyExit(kAtOnce);
    }
    enough = true;
    for (int type = 1; type <= 4; ++type) {
        EXPECT_EQ(Await("a thread's calls", callers[static_cast<std::size_t>(type - 1)]), type);
    }
    EXPECT_EQ(library.DestroyMonitor(), 0);
}

// The functions below run in the program that a test starts.

[[noreturn]] void ExitInFirstCall()
{
    static const Library& library = *new Library; // its threads go on
    std::thread([] { library.Stop(1); }).detach();
    // Each run waits a little longer, over the time that the first call and the start of the monitor take.
    usleep(static_cast<useconds_t>(getpid() % 40 * 100));
    std::exit(42);
}

[[noreturn]] void ExitWhileCallsGoOn()
{
    static std::atomic<int> calls;
    // This handler runs after the library's own work at exit, because the library is loaded later.
    std::atexit([] { WaitUntil("ten more calls", [before = calls.load()] { return calls >= before + 10; }); });
    static const Library& library = *new Library; // its threads go on
    std::thread([] {
        for (;;) {
            library.Stop(1);
            ++calls;
        }
    }).detach();
    WaitUntil("the first call", [] { return calls > 0; });
    std::exit(42);
}

// Makes events arrive without a pause, and makes calls.
void RaiseStorm(NamEventCallback callback)
{
    static const Library& library = *new Library; // its threads go on
    library.Stop(1);
    platform_log::WaitForEndpoint();
    library.Subscribe(callback);
    std::thread([] {
        ServerControl control(getenv("DBUS_SYSTEM_BUS_ADDRESS"));
        control.WaitForOwner(ClientBusName());
        control.SendPayloads(Payload(0x1234, 3, {1, 2, 3}), 2'000);
    }).detach();
    std::thread([] {
        for (;;) {
            library.Stop(2);
        }
    }).detach();
}

[[noreturn]] void ExitInStorm()
{
    RaiseStorm([](int, void*, int) {});
    platform_log::WaitFor("I NamNotifySubscriber: [NAM_API] ** Enter **", 50);
    std::exit(42);
}

[[noreturn]] void ExitInCallback()
{
    RaiseStorm([](int, void*, int) { std::exit(42); });
    for (;;) {
        pause();
    }
}

// Exits at once. Other programs inherit nothing of the bus.
[[noreturn]] void ExitAtOnce()
{
    namespace fs = std::filesystem;
    for (const auto& file : fs::directory_iterator("/proc/self/fd")) {
        const bool isStandard = std::stoi(file.path().filename()) <= STDERR_FILENO;
        if (!isStandard && fs::read_symlink(file).string().starts_with("socket:")) {
            _exit(1);
        }
    }
    _exit(42);
}

} // namespace

// Runs before the main function of the tests.
__attribute__((constructor)) static void OtherSide(int argc, char** argv)
{
    const std::string_view how(argc == 2 ? argv[1] : "");
    if (how == kInStorm) {
        ExitInStorm();
    } else if (how == kInCallback) {
        ExitInCallback();
    } else if (how == kInFirstCall) {
        ExitInFirstCall();
    } else if (how == kInCalls) {
        ExitWhileCallsGoOn();
    } else if (how == kAtOnce) {
        ExitAtOnce();
    }
}
