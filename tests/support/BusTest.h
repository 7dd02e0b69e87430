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

// Options of a bus that carries the longest messages of D-Bus. A system bus has a lower limit.
inline const std::string kLongMessages = "<limit name=\"max_message_size\">134217728</limit>";

// Tests the library on a system bus of the test's own. The library keeps state for the life of the process, so each
// test is a process.
class BusTest : public ::testing::Test {
protected:
    explicit BusTest(const sandbox::BusOptions& options = {});
    ~BusTest() override;

    // Expects that every line of the log has the right head.
    void TearDown() override;

    void StartServer(const std::string& setUp = "") { server_.emplace(setUp); }
    // Kills the server, and returns when the bus has noticed that.
    void KillServer();
    // Ends the bus, and returns when the library's connection is closed.
    void LoseBus();
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

    // Returns the method calls that the library sent, in order: "NameHasOwner('org...')".
    Lines Sent();
    std::vector<sandbox::Message> SentMessages();

    // Returns the id that the server gives to this process.
    static std::string ClientId();
    static std::string ClientBusName();

    sandbox::PrivateBus bus_;
    std::optional<sandbox::BusTrace> trace_;
    std::optional<Server> server_;
    ServerControl control_;
};

// Every call sends these before its own method: owner, id, owner.
inline const std::string kOwnerQuery = "NameHasOwner('org.lumra.tv.networkspeaker.server')";
std::string IdQuery();
// Return the bus's own errors in GIO's words: the server's name has no owner and the server cannot be started; the
// server dies in a call. Each bus daemon has texts of its own.
std::string NoServerError();
std::string DeadServerError();
// Returns the lines of a call when the server's name has no owner and the server cannot be started.
Lines UnreachableLines(const std::string& function);

} // namespace kiv::test
