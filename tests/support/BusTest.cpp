#include "support/BusTest.h"

#include "support/Wait.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>

namespace kiv::test {

namespace {

int g_tests = 0;

// The name of the bus daemon's process.
std::string g_bus;

std::string ProcessName(pid_t process)
{
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return name;
}

bool IsDbusBroker()
{
    return g_bus.starts_with("dbus-broker");
}

void WaitUntilClosed(GDBusConnection* connection)
{
    WaitUntil("the connection to be closed", [&] { return g_dbus_connection_is_closed(connection) != FALSE; });
}

} // namespace

Lines operator+(Lines a, const Lines& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Lines operator+(Lines a, const std::string& line)
{
    a.push_back(line);
    return a;
}

void ExpectLog(const Lines& expected, const char* file, int line)
{
    const ::testing::ScopedTrace place(file, line, "the expected log");
    EXPECT_THAT(platform_log::OfTestThread(), ::testing::ElementsAreArray(expected));
}

BusTest::BusTest(const sandbox::BusOptions& options)
    : bus_(options), control_((setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.Address().c_str(), 1), bus_.Address()))
{
    if (++g_tests > 1) {
        std::cerr << "This program runs one test a process: give one test with --gtest_filter, or run ctest"
                  << std::endl;
        std::_Exit(EXIT_FAILURE); // in this process, the library has its states of the test before
    }
    g_bus = ProcessName(bus_.DaemonPid());
    std::cout << "Bus: " << g_bus << std::endl;
    trace_.emplace(bus_.Address());
}

BusTest::~BusTest()
{
    CNSGdbus::m_pInstance->m_DestroyMessageMonitor();
}

void BusTest::StartAndConnect()
{
    StartServer();
    Connect();
}

void BusTest::KillServer()
{
    server_.reset();
    control_.WaitForNoOwner(kServerName);
}

void BusTest::LoseBus()
{
    server_.reset();
    trace_.reset();
    bus_.Kill();
    if (GDBusConnection* connection = CNSGdbus::m_pInstance->m_pConnection) {
        WaitUntilClosed(connection);
    }
}

void BusTest::BringBusBack()
{
    bus_.Start();
    StartServer();
}

void BusTest::LoseAndFindBus()
{
    LoseBus();
    BringBusBack();
    platform_log::Clear();
}

void BusTest::Close(GDBusConnection* connection)
{
    g_dbus_connection_close_sync(connection, nullptr, nullptr);
    WaitUntilClosed(connection);
}

void BusTest::SignalBus(int signal) const
{
    const std::string pid = std::to_string(bus_.DaemonPid());
    // dbus-broker-launch leaves the messages to a child.
    std::ifstream children("/proc/" + pid + "/task/" + pid + "/children");
    for (pid_t child = 0; IsDbusBroker() && children >> child;) {
        kill(child, signal);
    }
    kill(bus_.DaemonPid(), signal);
}

void BusTest::MakeServerActivatable(const std::string& setUpFile)
{
    std::vector<std::string> command{KIV_SIMULATOR};
    if (!setUpFile.empty()) {
        command.insert(command.end(), {"--scenario", setUpFile});
    }
    bus_.WriteService({kServerName, command});
}

void BusTest::Connect()
{
    StopNetworkSpeaker(0);
    platform_log::WaitForEndpoint();
    control_.WaitForOwner(ClientBusName());
    ForgetTraffic();
}

void BusTest::ForgetTraffic()
{
    control_.ForgetCalls();
    ForgetTrafficOnly();
}

void BusTest::ForgetTrafficOnly()
{
    platform_log::Clear();
    trace_->Clear();
}

void BusTest::ReadFeature()
{
    GetWhetherKivDisabled();
    platform_log::Clear();
}

void BusTest::AtLine(const std::string& shortForm, const std::function<void()>& action)
{
    platform_log::OnLine([=](const LogLine& line) {
        if (line.ofTestThread && line.Short() == shortForm) {
            platform_log::OnLine(nullptr);
            action();
        }
    });
}

std::vector<sandbox::Message> BusTest::SentMessages()
{
    std::vector<sandbox::Message> messages = trace_->Messages();
    std::erase_if(messages, [](const auto& message) { return message.type != G_DBUS_MESSAGE_TYPE_METHOD_CALL; });
    // Only the library asks for the owner of that name.
    std::set<std::string> library;
    for (const auto& message : messages) {
        if (message.member + message.BodyText() == "NameHasOwner('" + std::string(kServerName) + "',)" ||
            message.destination == kServerName) {
            library.insert(message.sender);
        }
    }
    std::erase_if(messages, [&](const auto& message) { return !library.contains(message.sender); });
    return messages;
}

Lines BusTest::Sent()
{
    Lines sent;
    for (const auto& message : SentMessages()) {
        std::string body = message.BodyText();
        // GVariant's text of a tuple with one member is ('x',).
        if (body.ends_with(",)")) {
            body.erase(body.size() - 2, 1);
        }
        // Hello is left out, because GIO's own thread decides when a dropped connection is released, and so whether
        // another is opened.
        if (message.member != "Hello") {
            sent.push_back(message.member + body);
        }
    }
    return sent;
}

void BusTest::ExpectSent(const std::string& call, const std::string& signature, const char* file, int line)
{
    const ::testing::ScopedTrace place(file, line, "the expected call");
    EXPECT_THAT(Sent(), ::testing::ElementsAreArray(SentByCall(call)));
    EXPECT_EQ(SentMessages().back().signature, signature);
}

void BusTest::ExpectUnreached(const std::string& function, const Lines& first, const std::function<void()>& call)
{
    KillServer();
    ForgetTrafficOnly();
    call();
    ExpectLog(first + UnreachableLines(function));

    g_KivDisabled = true;
    ForgetTrafficOnly();
    call();
    ExpectLog(first + DisabledLines(function));
    EXPECT_THAT(Sent(), ::testing::IsEmpty());
}

std::string BusTest::ClientId()
{
    return "tv_" + std::to_string(getpid());
}

std::string BusTest::ClientBusName()
{
    return "org.lumra.tv.networkspeaker.client." + ClientId();
}

std::string BusTest::ClientPath()
{
    return "/org/lumra/tv/networkspeaker/client/" + ClientId();
}

std::string BusTest::ClientInterface()
{
    return "org.lumra.tv.networkspeaker.client.interface." + ClientId();
}

std::string IdQuery()
{
    return "check_dbus_connection(" + std::to_string(getpid()) + ")";
}

Lines SentByCall(const std::string& call)
{
    return {kOwnerQuery, IdQuery(), kOwnerQuery, call};
}

std::string StartLine(const std::string& function)
{
    return "I " + function + ": >>> API Start ";
}

Lines PrologueLines(const std::string& function)
{
    return {StartLine(function), kEnter};
}

std::string LaunchLine(const std::string& function)
{
    return "E " + function + ": !!! ERROR ns_proxy.GetProxy() return error, request launch kiv-service";
}

std::string GivenUpLine(const std::string& function)
{
    return "E " + function + ": !!! ERROR ns_proxy.GetProxy() return error, return";
}

std::string ErrorLine(const std::string& method, const std::string& error)
{
    return "E MethodCall: [NAM_API] Error: method [" + method + "],[" + error + "]...";
}

Lines DisabledLines(const std::string& function)
{
    return {
        "I GetWhetherKivDisabled: GetWhetherKivDisabled g_KivDisabled=[1]",
        "E " + function + ": [NAM_API] GetWhetherKivDisabled failed"};
}

std::string NoServerError()
{
    const std::string error = "GDBus.Error:org.freedesktop.DBus.Error.ServiceUnknown: ";
    return IsDbusBroker() ? error + "The name is not activatable"
                          : error + "The name " + kServerName + " was not provided by any .service files";
}

std::string DeadServerError()
{
    const std::string error = "GDBus.Error:org.freedesktop.DBus.Error.NoReply: ";
    return error + (IsDbusBroker() ? "Remote peer disconnected"
                                   : "Message recipient disconnected from message bus without replying");
}

Lines UnreachableLines(const std::string& function)
{
    return {
        StartLine(function),
        kAbsentLine,
        kNoIdLine,
        LaunchLine(function),
        kEnter,
        ErrorLine("check_dbus_connection", NoServerError()),
        kNoIdLine,
        kAbsentLine,
        kNoIdLine,
        GivenUpLine(function)};
}

} // namespace kiv::test
