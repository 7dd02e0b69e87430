#pragma once

#include "sandbox/Processes.h"
#include "simulator/Glib.h"
#include "simulator/Wire.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv::simulator {

// Parses GVariant text.
inline Variant Value(const std::string& text)
{
    return ParseValue(text);
}

// A process of the simulator on the system bus of the environment.
class Program {
public:
    Program(const std::vector<std::string>& arguments, const std::filesystem::path& errorFile);

    // Returns the output on the ready descriptor. Waits until the simulator closes it.
    std::string Ready() { return child_.ReadOutput(); }
    // Waits for the end. Returns the exit code, or 128 and the signal if it was killed.
    int ExitCode();
    // Returns the output on stderr.
    std::string Errors() const { return sandbox::ReadFile(errorFile_); }
    void Signal(int number) const { child_.Signal(number); }

private:
    std::filesystem::path errorFile_;
    sandbox::Child child_;
};

// A client's object on the bus, which keeps the calls that it gets.
class FakeClient {
public:
    enum class Manner { kAnswers, kRefuses, kIsSilent };

    /** The error is that of one who refuses. */
    FakeClient(
        const std::string& address, const std::string& id, Manner manner = Manner::kAnswers,
        const std::string& error = "org.example.Refused");

    std::string BusName() const { return connection_.UniqueName(); }
    // Calls a server method with the process id, as the client itself would.
    void Tell(const char* method, int pid) const;
    // Calls a server method with arguments as GVariant text, and waits for the answer.
    void Ask(const char* method, const std::string& arguments) const;

    // Returns the payloads. Waits until there are at least this number.
    std::vector<Bytes> Payloads(std::size_t atLeast = 0) const;
    // Returns every call as "method(arguments)".
    std::vector<std::string> Calls() const;
    // Returns "event" and "answer" in the order of their arrival.
    std::vector<std::string> Arrivals() const;

private:
    struct Record;

    std::shared_ptr<Record> record_;
    sandbox::Connection connection_;
};

// A bus with a caller on it, and with the simulator if it is started.
class SimulatorTest : public ::testing::Test {
protected:
    SimulatorTest();

    // Starts the simulator and waits until it is ready.
    void Start(const std::vector<std::string>& arguments = {});
    // Starts the simulator with a scenario of this content.
    Program WithScenario(const std::string& scenario);

    // Call a method with arguments as GVariant text. They return the answer as GVariant text, or "error name: message".
    std::string Server(const std::string& method, const std::string& arguments = "()");
    std::string Control(const std::string& method, const std::string& arguments = "()");

    // Sends a call to the server without waiting for the answer. Returns the serial number.
    unsigned SendToServer(
        const std::string& method, const std::string& arguments, GDBusMessageFlags flags = G_DBUS_MESSAGE_FLAGS_NONE);
    // Returns whether the answer to this call has arrived.
    bool IsAnswered(unsigned serial) const;
    void AwaitAnswer(unsigned serial);

    bool HasOwner(const std::string& name);
    nlohmann::json State();

    sandbox::PrivateBus bus_;
    std::optional<sandbox::Connection> connection_;
    std::optional<Program> program_;

private:
    struct Answers;

    std::string Call(
        const char* name, const char* path, const char* interface, const std::string& method,
        const std::string& arguments);

    std::shared_ptr<Answers> answers_;
};

// Returns the content of an answer in text form, if it is one byte array.
std::optional<Bytes> AnsweredBytes(const std::string& answer);

// Returns the MAC address of a speaker of the home.
Mac SpeakerMac(std::uint8_t lastByte);
// Returns the same address as six arguments.
std::string MacArguments(std::uint8_t lastByte);
Bytes Joined(const std::vector<Bytes>& parts);
// Returns a record of the list of speakers to start.
Bytes StartRecord(int config, std::uint8_t lastMacByte);
// Returns the argument of StartNetworkSpeaker.
std::string Records(const std::vector<Bytes>& records);

} // namespace kiv::simulator
