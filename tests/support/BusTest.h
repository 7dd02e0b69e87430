#pragma once

#include "KivServiceInterface.h"
#include "support/Platform.h"
#include "support/Server.h"
#include "tools/sandbox/BusTrace.h"
#include "tools/sandbox/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kiv::test {

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines& b);
Lines operator+(Lines a, const std::string& line);

// Expects exactly these lines of the test's own thread. The other arguments name the line of the test.
void ExpectLog(const Lines& expected, const char* file = __builtin_FILE(), int line = __builtin_LINE());

// Options of a bus that carries the longest messages of D-Bus. A system bus has a lower limit.
inline const std::string kLongMessages = "<limit name=\"max_message_size\">134217728</limit>";

// The XML that the library passes to CNSGdbus::GetProxy(), without the methods that nobody calls.
inline constexpr const char* kClientXml =
    "<node><interface name='org.lumra.tv.networkspeaker.client.interface.%s'>"
    "<method name='nam_notify_subscriber'><arg name='param' type='ay' direction='in'/></method>"
    "</interface></node>";

// Tests the library on a system bus of the test's own. The library keeps state for the life of the process, so each
// test is a process.
class BusTest : public ::testing::Test {
protected:
    explicit BusTest(const sandbox::BusOptions& options = {});
    ~BusTest() override;

    void StartServer(const std::string& setUp = "") { server_.emplace(setUp); }
    void StartAndConnect();
    // Kills the server, and returns when the bus has noticed that.
    void KillServer();
    // Ends the bus, and returns when the library's connection is closed.
    void LoseBus();
    // Starts the bus and the server after the bus was lost.
    void BringBusBack();
    // Ends the bus, starts it again, and forgets what was logged meanwhile.
    void LoseAndFindBus();
    // Closes a connection, and returns when it is marked as closed. GIO's own function may return a moment before that.
    static void Close(GDBusConnection* connection);
    // Sends a signal to the processes of the bus. SIGSTOP makes the bus hang.
    void SignalBus(int signal) const;
    // Makes the bus start the server when it is called. The server does not run yet.
    void MakeServerActivatable(const std::string& setUpFile = "");

    // Makes the library's first call to the server, waits until events can arrive, and forgets everything that was
    // logged and sent until then.
    void Connect();
    void ForgetTraffic();
    // Does the same if no server runs.
    void ForgetTrafficOnly();

    // Makes a call read the device feature, and log that.
    static void ReadFeature();
    // When the test's own thread next logs this line, it runs the action before it goes on.
    static void AtLine(const std::string& shortForm, const std::function<void()>& action);

    // Returns the method calls that the library sent, in order: "NameHasOwner('org...')".
    Lines Sent();
    std::vector<sandbox::Message> SentMessages();
    // Expects that one call of the server was sent, "StopNetworkSpeaker(3)", with arguments of this signature.
    void ExpectSent(
        const std::string& call, const std::string& signature, const char* file = __builtin_FILE(),
        int line = __builtin_LINE());
    // Makes the call while the server is absent, and then on a device without the feature. Expects the lines of the
    // function that it has then, whatever its arguments are.
    void ExpectUnreached(const std::string& function, const Lines& first, const std::function<void()>& call);

    // Returns the id that the server gives to this process.
    static std::string ClientId();
    static std::string ClientBusName();
    static std::string ClientPath();
    static std::string ClientInterface();

    sandbox::PrivateBus bus_;
    std::optional<sandbox::BusTrace> trace_;
    std::optional<Server> server_;
    ServerControl control_;
    CNSGdbus& client_ = *CNSGdbus::m_pInstance;
};

// A fixture whose tests begin with a running server and a connected library.
template <typename Fixture>
class Connected : public Fixture {
protected:
    Connected() { this->StartAndConnect(); }
    explicit Connected(const sandbox::BusOptions& options) : Fixture(options) { this->StartAndConnect(); }
};

// Names a test after its parameter.
struct NameOf {
    template <typename Param>
    std::string operator()(const ::testing::TestParamInfo<Param>& test) const
    {
        return test.param.name;
    }
};

// Every call sends these before its own method: owner, id, owner.
inline const std::string kOwnerQuery = "NameHasOwner('org.lumra.tv.networkspeaker.server')";
std::string IdQuery();
Lines SentByCall(const std::string& call);

// Lines of the log. A call logs kEnter before each method of the server.
inline const std::string kEnter = "D MethodCall: [NAM_API] Enter";
inline const std::string kAbsentLine = "E m_IsExistedBusname: !!! ERROR org.lumra.tv.networkspeaker.server not exist ";
inline const std::string kNoIdLine = "E GetProxy: !!! ERROR [NAM_API] m_GetProxyObj fail";
std::string StartLine(const std::string& function);
// Returns the first lines of a call when the server answers the query for the id.
Lines PrologueLines(const std::string& function);
// The lines of a call that does not reach the server: it launches the server, and gives up.
std::string LaunchLine(const std::string& function);
std::string GivenUpLine(const std::string& function);
// Returns the line about a call that ended with this error.
std::string ErrorLine(const std::string& method, const std::string& error);
// Returns the lines of a call on a device without the feature.
Lines DisabledLines(const std::string& function);
// Return the bus's own errors in GIO's words: the server's name has no owner and the server cannot be started; the
// server dies in a call. Each bus daemon has texts of its own.
std::string NoServerError();
std::string DeadServerError();
// Returns the lines of a call when the server's name has no owner and the server cannot be started.
Lines UnreachableLines(const std::string& function);

} // namespace kiv::test
