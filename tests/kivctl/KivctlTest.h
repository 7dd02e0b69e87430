#pragma once

#include "tools/sandbox/Connection.h"
#include "tools/sandbox/PrivateBus.h"

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;

struct Ended {
    int exitCode;
    std::string out;
    std::string err;
};

// A kivctl that runs on the test's bus.
class Running {
public:
    Running(const sandbox::PrivateBus& bus, const Arguments& arguments);
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    // The next line, without its end. Empty at the end of the stream.
    std::string OutLine() { return ReadLine(out_); }
    std::string ErrLine() { return ReadLine(err_); }

    void Signal(int number) { g_subprocess_send_signal(process_, number); }

    // Waits for its end; the output is what has not been read yet.
    Ended Wait();

private:
    static std::string ReadLine(GDataInputStream* stream);
    static std::string ReadRest(GDataInputStream* stream);

    GSubprocess* process_;
    GDataInputStream* out_;
    GDataInputStream* err_;
};

// The real kivctl against the simulator, on a bus of the test's own.
class KivctlTest : public testing::Test {
protected:
    KivctlTest();

    Ended Run(const Arguments& arguments) const;

    // Without this the device has network speakers.
    void SwitchFeatureOff() const;

    // Calls the simulator's control interface, and starts the simulator if it does not run.
    GVariant* Control(const char* method, GVariant* arguments) const;
    void SetFault(const char* method, const char* key, const char* value) const;
    void SendEvent(int id, const std::string& data) const;
    void SendPayload(const std::string& payload) const;

    // Calls that the server got, such as "StopNetworkSpeaker(3,)", without check_dbus_connection.
    std::vector<std::string> Calls() const;

    sandbox::PrivateBus bus_;
};

} // namespace kiv::ctl
