#include "tools/sandbox/PrivateBus.h"

#include "sandbox/Calls.h"
#include "sandbox/Processes.h"
#include "tools/sandbox/Connection.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kiv::sandbox::private_bus_test {

namespace {

namespace fs = std::filesystem;

constexpr auto kName = "org.lumra.tv.sandboxtest.service";
constexpr auto kServiceUnknown = "org.freedesktop.DBus.Error.ServiceUnknown";
constexpr auto kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";

Service OwnerOfName()
{
    return {kName, {KIV_TEST_SERVICE, kName}};
}

Service StubbornOwnerOfName()
{
    return {kName, {KIV_TEST_SERVICE, kName, "stubborn"}};
}

std::string Process(pid_t pid, const char* file)
{
    return ReadFile(fs::path("/proc") / std::to_string(pid) / file);
}

TEST(PrivateBusTest, ListensInItsOwnDirectory)
{
    const PrivateBus bus;

    EXPECT_EQ(bus.Address(), "unix:path=" + (bus.Directory() / "bus").string());
    EXPECT_EQ(OwnerPid(Connection(bus.Address()), "org.freedesktop.DBus"), bus.DaemonPid());
}

TEST(PrivateBusTest, ItsAddressLeadsToItsDirectory)
{
    const PrivateBus bus;
    EXPECT_EQ(PrivateBusDirectory(bus.Address()), bus.Directory());

    EXPECT_EQ(PrivateBusDirectory("unix:path=/tmp/with%20blank/kiv-sandbox-1/bus"), "/tmp/with blank/kiv-sandbox-1");
    for (const char* other :
         {"", "unix:path=/run/dbus/system_bus_socket", "tcp:host=localhost,port=1", "unix:path=%"}) {
        EXPECT_THROW(PrivateBusDirectory(other), std::runtime_error) << other;
    }
}

TEST(PrivateBusTest, DirectoryIsPrivate)
{
    const PrivateBus bus;

    EXPECT_EQ(fs::status(bus.Directory()).permissions(), fs::perms::owner_all);
}

TEST(PrivateBusTest, EverybodyMayOwnNamesAndCallOthers)
{
    const PrivateBus bus;
    const Connection owner(bus.Address());
    const Connection caller(bus.Address());

    EXPECT_EQ(RequestName(owner, kName), "");
    EXPECT_EQ(Ping(caller, kName), "");
}

TEST(PrivateBusTest, ExtraConfigurationOverridesTheDefault)
{
    const PrivateBus bus({.extraConfig = "<policy context=\"mandatory\"><deny own=\"*\"/></policy>"});

    EXPECT_EQ(RequestName(Connection(bus.Address()), kName), kAccessDenied);
}

TEST(PrivateBusTest, FirstCallStartsTheService)
{
    const PrivateBus bus({.services = {OwnerOfName()}});
    const Connection connection(bus.Address());

    EXPECT_FALSE(HasOwner(connection, kName));
    EXPECT_EQ(Ping(connection, kName), "");
    EXPECT_TRUE(HasOwner(connection, kName));
}

TEST(PrivateBusTest, ActivateReturnsWhenTheNameIsOwned)
{
    PrivateBus bus({.services = {OwnerOfName()}});

    bus.Activate(kName);

    EXPECT_TRUE(HasOwner(Connection(bus.Address()), kName));
}

TEST(PrivateBusTest, ActivateTellsWhyAServiceDidNotStart)
{
    PrivateBus bus({.services = {{kName, {"/bin/false"}}}});

    EXPECT_THROW(bus.Activate(kName), std::runtime_error);
    EXPECT_THROW(bus.Activate("org.lumra.tv.sandboxtest.unknown"), std::runtime_error);
}

TEST(PrivateBusTest, ServiceFindsItsBusInTheEnvironment)
{
    PrivateBus bus({.services = {OwnerOfName()}});
    bus.Activate(kName);

    const std::string environment = Process(OwnerPid(Connection(bus.Address()), kName), "environ");

    EXPECT_NE(environment.find("DBUS_SYSTEM_BUS_ADDRESS=" + bus.Address()), std::string::npos);
    EXPECT_NE(environment.find("DBUS_STARTER_BUS_TYPE=system"), std::string::npos);
}

TEST(PrivateBusTest, ServiceGetsItsArgumentsAsTheyAre)
{
    const std::vector<std::string> command = {KIV_TEST_SERVICE, kName, "", "two words", R"(\s'"$HOME)", "ü;#"};
    PrivateBus bus({.services = {{kName, command}}});
    bus.Activate(kName);

    std::string expected;
    for (const std::string& word : command) {
        expected += word + '\0';
    }
    EXPECT_EQ(Process(OwnerPid(Connection(bus.Address()), kName), "cmdline"), expected);
}

TEST(PrivateBusTest, ServicesComeAndGoWhileTheBusRuns)
{
    PrivateBus bus;
    const Connection connection(bus.Address());
    EXPECT_EQ(Ping(connection, kName), kServiceUnknown);

    bus.WriteService(StubbornOwnerOfName());
    bus.WriteService(OwnerOfName());
    EXPECT_EQ(Ping(connection, kName), "");

    const pid_t service = OwnerPid(connection, kName);
    EXPECT_EQ(Process(service, "cmdline").find("stubborn"), std::string::npos);
    bus.RemoveService(kName);
    bus.Kill();
    bus.Start();
    EXPECT_EQ(Ping(Connection(bus.Address()), kName), kServiceUnknown);
}

TEST(PrivateBusTest, KillEndsTheDaemon)
{
    PrivateBus bus;
    const Watched daemon(bus.DaemonPid());

    bus.Kill();

    EXPECT_TRUE(daemon.HasEnded());
    EXPECT_EQ(bus.DaemonPid(), 0);
    EXPECT_THROW(Connection{bus.Address()}, std::runtime_error);
    bus.Kill();
}

TEST(PrivateBusTest, StartsAgainOnTheSameAddress)
{
    PrivateBus bus({.services = {OwnerOfName()}});
    const std::string address = bus.Address();
    bus.Activate(kName);

    for (int round = 0; round < 3; ++round) {
        bus.Kill();
        bus.Start();
        const Connection connection(address);
        EXPECT_FALSE(HasOwner(connection, kName));
        EXPECT_EQ(Ping(connection, kName), "");
    }
}

TEST(PrivateBusTest, StartReplacesADaemonThatRuns)
{
    PrivateBus bus;
    const Watched daemon(bus.DaemonPid());

    bus.Start();

    EXPECT_TRUE(daemon.HasEnded());
    EXPECT_EQ(OwnerPid(Connection(bus.Address()), "org.freedesktop.DBus"), bus.DaemonPid());
}

TEST(PrivateBusTest, StartRecoversADaemonThatHasEndedByItself)
{
    PrivateBus bus;
    const Watched daemon(bus.DaemonPid());
    kill(bus.DaemonPid(), SIGKILL);
    daemon.WaitForEnd();

    bus.Start();

    EXPECT_EQ(OwnerPid(Connection(bus.Address()), "org.freedesktop.DBus"), bus.DaemonPid());
}

TEST(PrivateBusTest, TwoBusesDoNotMeet)
{
    PrivateBus first({.services = {OwnerOfName()}});
    PrivateBus second;
    first.Activate(kName);

    EXPECT_NE(first.Address(), second.Address());
    EXPECT_FALSE(HasOwner(Connection(second.Address()), kName));
    second.Kill();
    EXPECT_TRUE(HasOwner(Connection(first.Address()), kName));
}

TEST(PrivateBusTest, NothingIsLeftBehind)
{
    for (const Service& service : {OwnerOfName(), StubbornOwnerOfName()}) {
        std::optional<PrivateBus> bus(std::in_place, BusOptions{.services = {service}});
        bus->Activate(kName);
        const fs::path directory = bus->Directory();
        const Watched daemon(bus->DaemonPid());
        const Watched owner(OwnerPid(Connection(bus->Address()), kName));

        bus.reset();

        EXPECT_TRUE(daemon.HasEnded());
        EXPECT_TRUE(owner.HasEnded());
        EXPECT_FALSE(fs::exists(directory));
    }
}

TEST(PrivateBusTest, NothingIsLeftBehindByAKilledBus)
{
    std::optional<PrivateBus> bus(std::in_place, BusOptions{.services = {StubbornOwnerOfName()}});
    bus->Activate(kName);
    const fs::path directory = bus->Directory();
    const Watched owner(OwnerPid(Connection(bus->Address()), kName));
    bus->Kill();

    bus.reset();

    EXPECT_TRUE(owner.HasEnded());
    EXPECT_FALSE(fs::exists(directory));
}

// Makes temporary directories in an empty one, so that the test can see what is left.
class PrivateBusFailureTest : public testing::Test {
protected:
    PrivateBusFailureTest() { setenv("TMPDIR", scratch_.Path().c_str(), 1); }
    ~PrivateBusFailureTest() override { unsetenv("TMPDIR"); }

    std::string Reason(const BusOptions& options) const
    {
        try {
            const PrivateBus bus(options);
        } catch (const std::runtime_error& error) {
            EXPECT_TRUE(fs::is_empty(scratch_.Path()));
            return error.what();
        }
        return "";
    }

private:
    ScratchDirectory scratch_;
};

TEST_F(PrivateBusFailureTest, BadConfiguration)
{
    EXPECT_NE(Reason({.extraConfig = "<nonsense>"}).find("dbus-daemon did not start"), std::string::npos);
}

TEST_F(PrivateBusFailureTest, BadServiceName)
{
    EXPECT_NE(Reason({.services = {{"no/such/folder", {"true"}}}}).find("cannot write"), std::string::npos);
}

TEST_F(PrivateBusFailureTest, NoDaemonInstalled)
{
    const std::string path = getenv("PATH");
    setenv("PATH", "/nonexistent", 1);

    const std::string reason = Reason({});

    setenv("PATH", path.c_str(), 1);
    EXPECT_EQ(reason, "cannot run dbus-daemon, of the package dbus-daemon: No such file or directory");
}

} // namespace

} // namespace kiv::sandbox::private_bus_test
