#include "sandbox/Calls.h"
#include "sandbox/Sandbox.h"
#include "tools/sandbox/Connection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

namespace kiv::sandbox::bus_fault_test {

namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr auto kClient = "org.lumra.tv.networkspeaker.client.tv_7";
constexpr auto kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
// A connection that serves no object answers with this error when the call has arrived.
constexpr auto kArrived = "org.freedesktop.DBus.Error.UnknownMethod";

// Sends an event as the server does. Returns the name of the error in the answer.
std::string SendEvent(const Connection& sender, const std::string& destination)
{
    return ErrorOf(sender, {destination, "/client", "org.example.Client", "nam_notify_subscriber"});
}

// Returns the answers to a client that requests its name, and to a sender of an event to it.
std::pair<std::string, std::string> NameAndEventOn(const std::string& address)
{
    const Connection client(address);
    const std::string name = RequestName(client, kClient);
    return {name, SendEvent(Connection(address), client.UniqueName())};
}

TEST(BusFaultTest, DeniesWhatItIsTold)
{
    const Sandbox name("read line", {"--bus-fault", "deny-name"});
    EXPECT_EQ(NameAndEventOn(name.Address()), std::pair(std::string(kAccessDenied), std::string(kArrived)));
    const Sandbox events("read line", {"--bus-fault", "deny-events"});
    EXPECT_EQ(NameAndEventOn(events.Address()), std::pair(std::string(), std::string(kAccessDenied)));
    const Sandbox none("read line", {"--bus-fault", "none"});
    EXPECT_EQ(NameAndEventOn(none.Address()), std::pair(std::string(), std::string(kArrived)));
}

TEST(BusFaultTest, DeniesTheServerItsEvents)
{
    const Outcome outcome = RunScript(
        "fifo=$(dirname \"$KIV_SYSTEM_INFO_FILE\")/events; mkfifo \"$fifo\"\n"
        "kivctl monitor >\"$fifo\" 2>&1 & exec 3<\"$fifo\"; read ready <&3\n"
        "id=$(control show | sed -n 's/.*\"id\": \"\\(tv_.*\\)\".*/\\1/p')\n"
        "control event 0x7 --client \"$id\" || echo $?; control event 0x7 || echo $?; control atmos on || echo $?\n"
        "control bus-fault none; control event 0x7 --client \"$id\" && control event 0x7 && echo told",
        {"--bus-fault", "deny-events", "--simulator-log"});
    EXPECT_EQ(outcome.output, "1\n1\n1\ntold\n");
    EXPECT_THAT(
        outcome.errors, ContainsRegex("kiv-sandbox control: client tv_[0-9]+: .*AccessDenied: Rejected send message"));
}

TEST(BusFaultTest, DoctorFindsThem)
{
    EXPECT_EQ(RunScript("kivctl stop --type 7", {"--bus-fault", "deny-name"}).output, "the server answered 7\n");
    for (const auto& [fault, problem, reason] :
         {std::tuple("deny-name", "problem  client name ", kAccessDenied),
          std::tuple("deny-events", "problem  events ", kAccessDenied),
          std::tuple("hang", "problem  bus ", "no answer within 8 s")}) {
        const Outcome outcome = RunScript("kivctl doctor", {"--bus-fault", fault});
        EXPECT_EQ(outcome.exitCode, 1) << fault;
        EXPECT_THAT(outcome.output, AllOf(HasSubstr(problem), HasSubstr(reason))) << fault;
    }
}

TEST(BusFaultTest, IsReplacedWhileTheCommandRuns)
{
    const Outcome outcome =
        RunScript("control bus-fault hang; kivctl --timeout 1 stop; echo $?; control show; echo $?\n"
                  "control bus-fault deny-name; kivctl stop --type 3; kivctl doctor | grep -c AccessDenied\n"
                  "control bus-fault none; kivctl doctor | grep -c AccessDenied");
    EXPECT_EQ(outcome.output, "4\n1\nthe server answered 3\n1\n0\n");
    EXPECT_THAT(
        outcome.errors,
        HasSubstr("kiv-sandbox control: the bus hangs; \"kiv-sandbox control bus-fault none\" makes it go on\n"));
}

TEST(BusFaultTest, IsPrinted)
{
    const Outcome outcome = RunScript("control bus-fault\nfor fault in deny-name deny-events hang gone none; do\n"
                                      "    control bus-fault $fault; control bus-fault\ndone");
    EXPECT_EQ(outcome.output, "none\ndeny-name\ndeny-events\nhang\ngone\nnone\n");
    EXPECT_EQ(RunScript("control bus-fault", {"--bus-fault", "deny-name"}).output, "deny-name\n");
}

TEST(BusFaultTest, ASandboxWhoseBusHangsOrIsGoneEnds)
{
    for (const std::string fault : {"hang", "gone"}) {
        const Outcome outcome = RunSandbox({"--bus-fault", fault, "--trace", "--", "echo", "done"});
        EXPECT_EQ(outcome.exitCode, 0) << fault;
        EXPECT_EQ(outcome.output, "done\n") << fault;
    }
}

TEST(BusFaultTest, ABusThatIsGoneIsStartedAgain)
{
    const Outcome outcome = RunScript(
        "kivctl stop --type 3; control bus-fault gone; control bus-fault gone\n"
        "kivctl stop --type 4 2>/dev/null; echo $?; control show; echo $?\n"
        "control bus-fault none; kivctl stop --type 5; control bus-fault",
        {"--trace"});
    EXPECT_EQ(outcome.output, "the server answered 3\n1\n1\nthe server answered 5\nnone\n");
    EXPECT_THAT(
        outcome.errors,
        AllOf(
            HasSubstr("control: the bus is gone; \"kiv-sandbox control bus-fault none\" starts it again\n"),
            HasSubstr("StopNetworkSpeaker(3)"), HasSubstr("StopNetworkSpeaker(5)")));
}

TEST(BusFaultTest, NeedsNoServer)
{
    const Outcome outcome = RunScript("control bus-fault hang && control bus-fault none", {"--no-server"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST(BusFaultTest, IsForTheBusOfASandboxOnly)
{
    const Outcome other =
        RunScript("export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere/system_bus_socket; control bus-fault hang");
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_EQ(
        other.errors, "kiv-sandbox control: the address must be that of a sandbox's bus, got "
                      "\"unix:path=/nowhere/system_bus_socket\"\n");
    const Outcome gone =
        RunScript("export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nowhere/kiv-sandbox-1/bus; control bus-fault hang");
    EXPECT_EQ(gone.exitCode, 1);
    EXPECT_THAT(gone.errors, HasSubstr("no connection to unix:path=/nowhere/kiv-sandbox-1/bus: "));
    EXPECT_EQ(RunScript("control bus-fault perhaps").exitCode, 2);
}

} // namespace

} // namespace kiv::sandbox::bus_fault_test
