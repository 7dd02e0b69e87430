#pragma once

#include "KivServiceInterface.h"
#include "support/Platform.h"
#include "support/Server.h"
#include "tools/sandbox/BusTrace.h"
#include "tools/sandbox/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace kiv::test {

using Lines = std::vector<std::string>;

Lines operator+(Lines a, const Lines& b);

// The options of a bus that carries messages of the greatest length that D-Bus allows. A system bus has a lower limit
// of its own.
inline const std::string kLongMessages = "<limit name=\"max_message_size\">134217728</limit>";

/*
 * The library on a system bus of the test's own. The library keeps state for the life of the process, so each test is
 * a process.
 */
class BusTest : public ::testing::Test {
protected:
    explicit BusTest(const sandbox::BusOptions& options = {});
    ~BusTest() override;

    // Expects the head that every line of the log has.
    void TearDown() override;

    void StartServer(const std::string& setUp = "") { server_.emplace(setUp); }
    // Returns when the bus knows that the server is gone.
    void KillServer();
    // Returns when the library's connection is closed.
    void LoseBus();
    // Returns when the connection says that it is closed, which GIO's own function may do a moment before that.
    static void Close(GDBusConnection* connection);
    // Sends a signal to the processes of the bus, such as SIGSTOP: it hangs then.
    void SignalBus(int signal) const;
    // The server is not running; the bus starts it when it is called.
    void MakeServerActivatable(const std::string& setUpFile = "");

    // Has the library make its first call to the server, waits until events can come, and forgets all that was
    // logged and sent until then.
    void Connect();
    void ForgetTraffic();
    // The same where no server runs that could forget anything.
    void ForgetTrafficOnly();

    // The method calls that the library sent, in order: "NameHasOwner('org...')".
    Lines Sent();
    std::vector<sandbox::Message> SentMessages();

    // The id that the server gives to this process.
    static std::string ClientId();
    static std::string ClientBusName();

    sandbox::PrivateBus bus_;
    std::optional<sandbox::BusTrace> trace_;
    std::optional<Server> server_;
    ServerControl control_;
};

// Every call sends these before its own method, in this order: owner, id, owner.
inline const std::string kOwnerQuery = "NameHasOwner('org.lumra.tv.networkspeaker.server')";
std::string IdQuery();
// The bus's own answers, as GIO words the errors: nobody owns the server's name and nobody can be started; the server
// dies in a call. Each bus daemon has texts of its own.
std::string NoServerError();
std::string DeadServerError();
// The lines of a call when nobody owns the server's name and nobody can be started.
Lines UnreachableLines(const std::string& function);

} // namespace kiv::test
