#pragma once

#include "src/link/Owners.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace kiv::ctl {

using testing::_;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

using Json = nlohmann::json;
using Arguments = std::vector<std::string>;
using Environment = std::vector<std::pair<std::string, std::string>>;

struct Ended {
    int exitCode;
    std::string out;
    std::string err;
};

// Matches the end of a program.
testing::Matcher<Ended>
Ends(int exitCode, const testing::Matcher<std::string>& out, const testing::Matcher<std::string>& err);

std::vector<std::string> LinesOf(const std::string& text);

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

    // Return the next line without its end, or an empty text at the end of the stream.
    std::string OutLine() { return ReadLine(out_.get()); }
    // Passes over the line with which monitor remarks on a busy machine that it still waits. AnyErrLine() returns it.
    std::string ErrLine();
    std::string AnyErrLine() { return ReadLine(err_.get()); }

    void Signal(int number) { g_subprocess_send_signal(process_.get(), number); }

    // Waits for the end of the program. Returns the output that has not been read yet.
    Ended Wait();

private:
    static std::string ReadLine(GDataInputStream* stream);
    static std::string ReadRest(GDataInputStream* stream);

    link::ObjectOwner<GSubprocess> process_;
    link::ObjectOwner<GDataInputStream> out_; // null if stdout is a descriptor
    link::ObjectOwner<GDataInputStream> err_;
};

inline constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";

// Speakers that the simulated TV is connected with. Their bytes are in GVariant's text form.
inline const std::string kLeft = "02:4b:49:56:00:01";
inline const std::string kRight = "02:4b:49:56:00:02";
inline const std::string kLeftBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0x01";
inline const std::string kRightBytes = "0x02, 0x4b, 0x49, 0x56, 0x00, 0x02";

// A rule of the bus's policy, for Forbid().
inline constexpr const char* kDenyClientName = R"(<deny own_prefix="org.lumra.tv.networkspeaker.client"/>)";

// The reason that kivctl gives for a request that Break() has broken.
inline const std::string kBroken = "the server answered with the error org.example.Broken";

// Returns the 86 bytes of a speaker in GVariant's text form.
std::string Record(std::int32_t config, const std::string& mac);

// Returns an array with this number of bytes of one value, in GVariant's text form.
std::string ByteArray(size_t size, int value);

// Runs the real kivctl with the simulator, on a bus of the test's own.
class KivctlTest : public testing::Test {
protected:
    KivctlTest();

    Ended Run(const Arguments& arguments, const Environment& environment = {}) const;

    // Runs a line of a shell, in which kivctl is the tested one.
    Ended RunInShell(const std::string& line) const;

    // Returns the text that kivctl writes to a terminal. Expects that it succeeds.
    std::string RunOnTerminal(const Arguments& arguments) const;

    // Expects exit code 0 and this output.
    void ExpectOutput(const Arguments& arguments, const std::string& out) const;

    // Does the same with --json. The object also has the command's name, with which the arguments begin.
    void ExpectJson(Arguments arguments, const Json& fields) const;

    // Expects this exit code, and one line with the reason on stderr or, with --json, one object on stdout.
    void ExpectFailure(Arguments arguments, int exitCode, const std::string& reason) const;

    // Expects that the server got these calls: see Calls().
    void ExpectCalls(const std::vector<std::string>& calls) const;

    // Expects exit code 2 with the reason of each case, and that the server gets no call.
    struct Refusal {
        Arguments arguments;
        std::string reason;
    };
    void ExpectRefused(const std::vector<Refusal>& cases) const;

    // Writes a file of the test's own. Returns its path.
    std::string WriteFile(const std::string& contents) const;

    // By default, the device has network speakers.
    void SwitchFeatureOff() const;
    void RemoveFeature() const;

    // Replaces the rules at the end of the bus's policy.
    void Forbid(const std::string& rules) const;

    // Calls the simulator's control interface. Starts the simulator if it does not run.
    link::VariantOwner Control(const char* method, GVariant* arguments = nullptr) const;
    void SetFault(const std::string& method, const char* key, const std::string& value) const;
    // Makes the server answer calls of the method with the error org.example.Broken.
    void Break(const std::string& method) const;
    void SetClientId(const std::string& id) const;
    void SwitchAtmosOn() const;
    void SendEvent(int id, const std::string& data) const;
    void SendPayload(const std::string& payload) const;

    // Returns the state of the home, the clients and the faults, as the simulator describes it.
    Json State() const;

    // Returns the calls that the server got, such as "StopNetworkSpeaker(3,)", without check_dbus_connection.
    std::vector<std::string> Calls() const;

    sandbox::PrivateBus bus_;
};

} // namespace kiv::ctl
