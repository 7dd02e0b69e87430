#include "KivServiceInterface.h"
#include "support/Platform.h"
#include "support/Server.h"
#include "tools/sandbox/BusTrace.h"
#include "tools/sandbox/PrivateBus.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <stdexcept>
#include <string_view>
#include <thread>

using namespace kiv::test;

namespace {

class Library {
public:
    explicit Library(const char* file = KIV_LIBRARY) : handle_(dlopen(file, RTLD_NOW | RTLD_LOCAL))
    {
        if (handle_ == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~Library()
    {
        if (handle_ != nullptr) {
            dlclose(handle_);
        }
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    template <typename T>
    T* Symbol(const char* name) const
    {
        return reinterpret_cast<T*>(dlsym(handle_, name));
    }

    int Stop(int type) const { return Symbol<int(int)>("StopNetworkSpeaker")(type); }

    int DestroyMonitor() const
    {
        CNSGdbus* client = *Symbol<CNSGdbus*>("_ZN8CNSGdbus11m_pInstanceE");
        return Symbol<int(CNSGdbus*)>("_ZN8CNSGdbus23m_DestroyMessageMonitorEv")(client);
    }

private:
    void* handle_;
};

bool IsMapped(const char* file = KIV_LIBRARY)
{
    std::ifstream maps("/proc/self/maps");
    const std::string name = std::filesystem::path(file).stem();
    for (std::string line; std::getline(maps, line);) {
        if (line.find(name) != std::string::npos) {
            return true;
        }
    }
    return false;
}

class LifecycleTest : public ::testing::Test {
protected:
    LifecycleTest() { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1); }

    kiv::sandbox::PrivateBus bus_;
};

TEST_F(LifecycleTest, LoadingAndUnloadingTouchesNothing)
{
    kiv::sandbox::BusTrace trace(bus_.Address());
    {
        const Library library;
        EXPECT_TRUE(IsMapped());
    }
    EXPECT_FALSE(IsMapped());
    EXPECT_THAT(trace.Messages(), ::testing::IsEmpty());
    EXPECT_THAT(platform_log::Lines(), ::testing::IsEmpty());
}

TEST_F(LifecycleTest, WithoutItsMonitorTheLibraryReallyGoes)
{
    const Server server;
    for (int round = 0; round < 20; ++round) {
        {
            const Library library;
            EXPECT_EQ(library.Stop(round), round);
            EXPECT_EQ(library.DestroyMonitor(), 0);
        }
        ASSERT_FALSE(IsMapped()) << "round " << round;
    }
}

TEST_F(LifecycleTest, ARunningMonitorKeepsTheCodeInPlace)
{
    const Server server;
    {
        const Library library;
        EXPECT_EQ(library.Stop(1), 1);
        platform_log::WaitForLine(
            [](const LogLine& line) { return line.text.find("strProxyObjPath") != std::string::npos; });
    }
    EXPECT_TRUE(IsMapped());

    ServerControl control(bus_.Address());
    control.WaitForOwner("org.lumra.tv.networkspeaker.client.tv_" + std::to_string(getpid()));
    control.SendEvent(0x1234, {1, 2, 3});
    platform_log::WaitFor("I NamNotifySubscriber: [NAM_API] ** Enter **");

    // Loading it again finds the same one, which can then be ended in order.
    {
        const Library library;
        EXPECT_EQ(library.Stop(2), 2);
        EXPECT_EQ(library.DestroyMonitor(), 0);
    }
    EXPECT_FALSE(IsMapped());
}

TEST_F(LifecycleTest, APlugInMayEndTheMonitorWhileItIsUnloaded)
{
    const Server server;
    for (int round = 0; round < 10; ++round) {
        {
            const Library plugin(KIV_PLUGIN);
            EXPECT_EQ(plugin.Symbol<int(int)>("Stop")(round), round);
        }
        ASSERT_FALSE(IsMapped()) << "round " << round;
    }
}

TEST_F(LifecycleTest, ALaunchThreadKeepsTheCodeInPlaceUntilItIsOver)
{
    std::promise<void> release;
    platform_log::OnLine([released = release.get_future().share()](const LogLine& line) {
        if (line.text.starts_with("enter t_ImplementSimulateDbus")) {
            released.wait();
        }
    });
    {
        const Library probe(KIV_LAUNCH_PROBE);
        EXPECT_FALSE(probe.Symbol<bool()>("PreCheck")());
    }
    platform_log::WaitFor("I m_MainLaunchPro: enter t_ImplementSimulateDbus g_dbusretrycnt=[0]");
    EXPECT_TRUE(IsMapped(KIV_LAUNCH_PROBE));

    release.set_value();
    platform_log::WaitFor("I m_MainLaunchPro: g_dbusretrycnt=[6]");
    while (IsMapped(KIV_LAUNCH_PROBE)) {
        usleep(1000);
    }
}

// Runs this program anew, so that nothing of this process's threads is missing in it.
void ExpectOrderlyExit(const char* how)
{
    const pid_t child = fork();
    if (child == 0) {
        execl("/proc/self/exe", "lifecycle_test", how, nullptr);
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    ASSERT_EQ(WEXITSTATUS(status), 42);
}

constexpr const char* kInStorm = "--exit-in-a-storm-of-events";
constexpr const char* kInFirstCall = "--exit-in-the-first-call";

TEST_F(LifecycleTest, ExitUnderAStormOfEventsIsOrderly)
{
    const Server server;
    for (int round = 0; round < 20; ++round) {
        ASSERT_NO_FATAL_FAILURE(ExpectOrderlyExit(kInStorm));
    }
}

TEST_F(LifecycleTest, ExitWhileTheFirstCallRunsIsOrderly)
{
    const Server server;
    for (int round = 0; round < 25; ++round) {
        ASSERT_NO_FATAL_FAILURE(ExpectOrderlyExit(kInFirstCall));
    }
}

// The other side of these two.

[[noreturn]] void ExitInFirstCall()
{
    static const Library& library = *new Library; // whose threads go on
    std::thread([] { library.Stop(1); }).detach();
    // Some time later in each run, for as long as the first call and the start of the monitor take.
    usleep(static_cast<useconds_t>(getpid() % 40 * 100));
    std::exit(42);
}

[[noreturn]] void ExitInStorm()
{
    static const Library& library = *new Library; // whose threads go on
    library.Stop(1);
    platform_log::WaitForLine(
        [](const LogLine& line) { return line.text.find("strProxyObjPath") != std::string::npos; });
    library.Symbol<int(const char*, NamEventCallback)>("SubscribeNamServiceCallback")("name", [](int, void*, int) {});
    const std::string client = "tv_" + std::to_string(getpid());
    std::thread([client] {
        ServerControl control(getenv("DBUS_SYSTEM_BUS_ADDRESS"));
        control.WaitForOwner("org.lumra.tv.networkspeaker.client." + client);
        control.SendPayloads(Payload(0x1234, 3, {1, 2, 3}), 2'000);
    }).detach();
    std::thread([] {
        for (;;) {
            library.Stop(2);
        }
    }).detach();
    platform_log::WaitFor("I NamNotifySubscriber: [NAM_API] ** Enter **", 50);
    std::exit(42);
}

} // namespace

// Runs before the tests' own main.
__attribute__((constructor)) static void OtherSide(int argc, char** argv)
{
    const std::string_view how(argc == 2 ? argv[1] : "");
    if (how == kInStorm) {
        ExitInStorm();
    } else if (how == kInFirstCall) {
        ExitInFirstCall();
    }
}
