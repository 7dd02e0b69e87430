#include "KivServiceInterface.h"
#include "support/Platform.h"
#include "support/Server.h"
#include "support/Wait.h"
#include "tools/sandbox/PrivateBus.h"

#include <dlfcn.h>
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <thread>

using namespace kiv::test;

// Checks that the library does almost nothing while the process exits. This is a program of its own, because it
// replaces functions of GLib and of the C library, to see the library's calls of them.

namespace {

constexpr int kOrderly = 42;
constexpr int kReleased = 43;
constexpr int kWrong = 44;

// Whether this thread is the one that exits.
thread_local bool g_isExiting;

std::atomic<int> g_dlopens;

bool IsInLibrary(void* address)
{
    Dl_info info{};
    return dladdr(address, &info) != 0 && std::strstr(info.dli_fname, "libkiv-interface-api") != nullptr;
}

void Watch(const char* function, void* caller)
{
    if (g_isExiting && IsInLibrary(caller)) {
        std::fprintf(stderr, "the library calls %s while the process exits\n", function);
        _exit(kReleased);
    }
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

#pragma GCC visibility push(default)

extern "C" {

void g_object_unref(gpointer object)
{
    Watch(__func__, __builtin_return_address(0));
    static auto* const real = Real<void(gpointer)>("g_object_unref");
    real(object);
}

void g_variant_unref(GVariant* value)
{
    Watch(__func__, __builtin_return_address(0));
    static auto* const real = Real<void(GVariant*)>("g_variant_unref");
    real(value);
}

void g_main_context_unref(GMainContext* context)
{
    Watch(__func__, __builtin_return_address(0));
    static auto* const real = Real<void(GMainContext*)>("g_main_context_unref");
    real(context);
}

int pthread_key_delete(pthread_key_t key) noexcept
{
    Watch(__func__, __builtin_return_address(0));
    static auto* const real = Real<int(pthread_key_t)>("pthread_key_delete");
    return real(key);
}

void* dlopen(const char* file, int mode) noexcept
{
    g_dlopens += IsInLibrary(__builtin_return_address(0)) ? 1 : 0;
    static auto* const real = Real<void*(const char*, int)>("dlopen");
    return real(file, mode);
}
}

[[gnu::noinline]] void* operator new(std::size_t size)
{
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept
{
    Watch("operator delete", __builtin_return_address(0));
    std::free(memory);
}

[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    Watch("operator delete", __builtin_return_address(0));
    std::free(memory);
}

#pragma GCC visibility pop

namespace {

constexpr const char* kWhileMonitorRuns = "--exit-while-the-monitor-runs";
constexpr const char* kAfterMonitor = "--exit-after-the-monitor";
constexpr const char* kOwnConnection = "--exit-with-a-connection-of-the-librarys-own";
constexpr const char* kRelease = "--release-while-exiting";
constexpr const char* kStartBeforeExit = "--start-the-monitor-before-exit";
constexpr const char* kStartInExit = "--start-the-monitor-in-exit";

class ExitTest : public ::testing::Test {
protected:
    ExitTest() { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1); }

    // Returns the exit status of this program, started again.
    static int Run(const char* how)
    {
        const pid_t child = fork();
        if (child == 0) {
            execl("/proc/self/exe", "exit_test", how, nullptr);
            _exit(127);
        }
        const int status = WaitForExit("the program to end", child);
        EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
        return WEXITSTATUS(status);
    }

    kiv::sandbox::PrivateBus bus_;
};

TEST_F(ExitTest, ReleasesNothing)
{
    const Server server;
    EXPECT_EQ(Run(kWhileMonitorRuns), kOrderly);
    EXPECT_EQ(Run(kAfterMonitor), kOrderly);
    EXPECT_EQ(Run(kOwnConnection), kOrderly);
}

// Shows that the test would notice a release.
TEST_F(ExitTest, AReleaseWouldBeSeen)
{
    const Server server;
    EXPECT_EQ(Run(kRelease), kReleased);
}

TEST_F(ExitTest, AMonitorThatStartsThenPinsNothing)
{
    const Server server;
    ServerControl control(bus_.Address());
    control.SetFault("check_dbus_connection", "{'error': <'org.example.Refused'>, 'message': <'no'>}");
    EXPECT_EQ(Run(kStartInExit), kOrderly);
}

TEST_F(ExitTest, AMonitorThatStartsBeforePinsTheLibrary)
{
    const Server server;
    EXPECT_EQ(Run(kStartBeforeExit), kOrderly);
}

// The functions below run in the program that a test starts.

const char* BusAddress()
{
    return std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
}

void Require(bool condition)
{
    if (!condition) {
        _exit(kWrong);
    }
}

[[noreturn]] void Exit()
{
    g_isExiting = true;
    std::exit(kOrderly);
}

void UseEverything()
{
    Require(StopNetworkSpeaker(1) == 1);
    Require(SubscribeNamServiceCallback("a name that takes memory of its own", [](int, void*, int) {}) == 1);
    Require(register_atmos_support_cb([](int, void*) {}, nullptr) == 0);
    ServerControl(BusAddress()).WaitForOwner("org.lumra.tv.networkspeaker.client.tv_" + std::to_string(getpid()));
}

[[noreturn]] void ExitWhileMonitorRuns()
{
    UseEverything();
    Exit();
}

[[noreturn]] void ExitAfterMonitor()
{
    UseEverything();
    Require(CNSGdbus::m_pInstance->m_DestroyMessageMonitor() == 0);
    Exit();
}

// The shared connection is closed. It is not released, because the loop does not run.
[[noreturn]] void ExitWithOwnConnection()
{
    UseEverything();
    auto* shared = static_cast<GDBusConnection*>(g_object_ref(CNSGdbus::m_pInstance->m_pConnection));
    g_dbus_connection_close_sync(shared, nullptr, nullptr);
    Require(StopNetworkSpeaker(2) == 2);
    Require(CNSGdbus::m_pInstance->m_pConnection != shared);
    Exit();
}

// Makes a function of the library release something on the thread that exits.
[[noreturn]] void ReleaseWhileExiting()
{
    UseEverything();
    g_isExiting = true;
    CNSGdbus::m_pInstance->GiveProxy();
    _exit(kWrong);
}

[[noreturn]] void StartBeforeExit()
{
    UseEverything();
    _exit(g_dlopens == 1 ? kOrderly : kWrong);
}

[[noreturn]] void StartInExit()
{
    // This handler runs after the library's own work at exit, because the library is first used later.
    std::atexit([] {
        ServerControl(BusAddress()).ClearFaults();
        int answer = -1;
        std::thread([&] { answer = StopNetworkSpeaker(5); }).join();
        Require(answer == 5);
        Require(CNSGdbus::m_pInstance->m_MonitorThread != 0);
        _exit(g_dlopens == 0 ? kOrderly : kReleased);
    });
    Require(StopNetworkSpeaker(1) == -1);
    std::exit(kWrong);
}

} // namespace

// Runs before the main function of the tests.
__attribute__((constructor)) static void OtherSide(int argc, char** argv)
{
    const std::string_view how(argc == 2 ? argv[1] : "");
    if (how == kWhileMonitorRuns) {
        ExitWhileMonitorRuns();
    } else if (how == kAfterMonitor) {
        ExitAfterMonitor();
    } else if (how == kOwnConnection) {
        ExitWithOwnConnection();
    } else if (how == kRelease) {
        ReleaseWhileExiting();
    } else if (how == kStartBeforeExit) {
        StartBeforeExit();
    } else if (how == kStartInExit) {
        StartInExit();
    }
}
