#pragma once

#include "tools/sandbox/Connection.h"
#include "tools/sandbox/PrivateBus.h"

#include <gio/gio.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <utility>
#include <vector>

namespace kiv::ctl {

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;
using Environment = std::vector<std::pair<std::string, std::string>>;

struct Ended {
    int exitCode;
    std::string out;
    std::string err;
};

// A kivctl that runs on the test's bus.
class Running {
public:
    // The environment is what it has besides; an empty value removes a variable.
    // Its stdout is the descriptor, if there is one, which it takes.
    Running(
        const sandbox::PrivateBus& bus, const Arguments& arguments, const Environment& environment = {},
        int output = -1, const char* program = KIV_CTL);
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
    GDataInputStream* out_; // none if stdout is a descriptor
    GDataInputStream* err_;
};

// Speakers that the simulator is connected with, and their bytes as GVariant prints them.
inline const std::string kLeft = "02:4b:49:56:00:01";
inline const std::string kRight = "02:4b:49:56:00:02";
inline const std::string kLeftBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0x01";
inline const std::string kRightBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0x02";

// One speaker's 86 bytes, as GVariant prints them.
std::string Record(const std::string& config, const std::string& mac);

// An array of so many bytes of that value, in GVariant's text form.
std::string ByteArray(size_t size, int value);

// The real kivctl against the simulator, on a bus of the test's own.
class KivctlTest : public testing::Test {
protected:
    KivctlTest();

    Ended Run(const Arguments& arguments, const Environment& environment = {}) const;

    // Runs a line of a shell, in which kivctl is this one.
    Ended RunInShell(const std::string& line) const;

    // Gives the text that kivctl writes to a terminal. Expects it to succeed.
    std::string RunOnTerminal(const Arguments& arguments) const;

    // Exits with 0 and says that.
    void ExpectOutput(const Arguments& arguments, const std::string& out) const;

    // The same with --json; the command's name is left out of the object.
    void ExpectJson(Arguments arguments, const Json& fields) const;

    // Exits with that code, says one line about it on stderr, or, for scripts, in one object on stdout.
    void ExpectFailure(Arguments arguments, int exitCode, const std::string& reason) const;

    // A file of the test's own. Returns its path.
    std::string WriteFile(const std::string& contents) const;

    // Without this the device has network speakers.
    void SwitchFeatureOff() const;
    void RemoveFeature() const;

    // Has the bus's policy end with these rules, in place of what this was given before.
    void Forbid(const std::string& rules) const;

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
