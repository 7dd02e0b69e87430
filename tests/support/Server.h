#pragma once

#include "tools/sandbox/Connection.h"

#include <gio/gio.h>
#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kiv::test {

struct ServerCall {
    std::string sender;
    std::string method;
    unsigned flags;
    std::string arguments; // as GVariant text
    std::shared_ptr<GVariant> body;
};

// Runs the simulated network-speaker server in a process of its own, and calls its control interface. Faults are
// GVariant text, such as "{'error': <'org.example.Refused'>, 'message': <'no'>}".
class Server {
public:
    // Starts a process on the system bus of the environment, and returns when it owns its names. The set-up is a
    // scenario as JSON.
    explicit Server(const std::string& setUp = "");
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    pid_t Pid() const { return pid_; }
    void Kill();

private:
    pid_t pid_ = 0;
};

// Calls the control interface of the simulator on a bus, however it was started.
class ServerControl {
public:
    explicit ServerControl(const std::string& busAddress) : connection_(busAddress) {}

    std::vector<ServerCall> Calls();
    // Returns the methods called, in order.
    std::vector<std::string> Methods();
    void ForgetCalls();
    void SetFault(const std::string& method, const std::string& fault);
    // Makes a method answer with a byte array, "(ay)".
    void SetReply(const std::string& method, const std::vector<unsigned char>& bytes);
    void ClearFaults();
    void SetClientId(const std::string& id);
    void ResetClientId();
    void SetAtmos(bool supported);
    void SendEvent(int eventId, const std::vector<unsigned char>& data);
    void SendPayload(const std::vector<unsigned char>& payload);
    unsigned SendPayloads(const std::vector<unsigned char>& payload, unsigned count);

    struct ClientAnswer {
        bool answered;
        std::string error;
        std::string reply;
    };
    ClientAnswer
    CallClient(const std::string& client, const std::string& method, const std::string& arguments, unsigned timeoutMs);

    // Returns whether a client's object answers an event.
    bool Reaches(const std::string& client);

    // Returns when the name has an owner, or has none any more.
    void WaitForOwner(const std::string& name);
    void WaitForNoOwner(const std::string& name);

private:
    std::shared_ptr<GVariant> Call(const char* method, GVariant* arguments);
    void WaitForOwner(const std::string& name, bool owned);

    sandbox::Connection connection_;
};

inline constexpr const char* kServerName = "org.lumra.tv.networkspeaker.server";

// Returns an event's payload as the server sends it.
std::vector<unsigned char> Payload(std::int32_t eventId, std::int32_t length, const std::vector<unsigned char>& data);

} // namespace kiv::test
