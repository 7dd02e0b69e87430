#pragma once

#include "tools/sandbox/Keeper.h"

#include <sys/types.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

namespace kiv::sandbox {

// A program that the bus starts when its name is called and has no owner.
struct Service {
    std::string name;
    std::vector<std::string> command;
};

struct BusOptions {
    std::vector<Service> services = {};
    std::string extraConfig = {}; // XML that ends the daemon's configuration and overrides it: policies, limits
};

// A private system bus: a dbus-daemon on a socket in a new temporary directory.
//
// All processes may own, send and receive everything, and only the given services can be started. Services inherit the
// environment of this process, with DBUS_SYSTEM_BUS_ADDRESS set to this bus. Their output goes to stderr.
//
// When the object is destroyed, or this process dies, all processes and files of the bus are removed. Failures are
// thrown as std::runtime_error. One thread at a time may use the object.
class PrivateBus {
public:
    explicit PrivateBus(const BusOptions& options = {});

    const std::string& Address() const { return address_; }
    // Returns the directory of this bus, which is removed with it. Callers may put files there.
    const std::filesystem::path& Directory() const { return directory_; }
    pid_t DaemonPid() const { return keeper_.Pid(); } // 0 after Kill()

    // Ends the daemon by SIGKILL, and returns when it has ended. Services that it started go on without a bus.
    void Kill();
    // Resumes a daemon that was stopped by SIGSTOP.
    void Resume() { keeper_.Signal(SIGCONT); }
    // Readable when the daemon has ended. Not valid after Kill().
    int Fd() const { return keeper_.Fd(); }
    // Starts the daemon again, on the same address. A daemon that still runs is killed first.
    void Start();

    // Adds or changes a service, also while the bus runs.
    void WriteService(const Service& service);
    void RemoveService(const std::string& name);
    // Makes the bus start a service, and returns when its name has an owner.
    void Activate(const std::string& name);

    // Makes the daemon read its configuration again, with the files that it includes.
    void ReloadConfig() const;

private:
    std::filesystem::path directory_;
    std::string address_;
    Keeper keeper_;
};

// Returns the directory of the private bus at an address. Throws std::runtime_error for the address of another bus.
std::filesystem::path PrivateBusDirectory(const std::string& address);

} // namespace kiv::sandbox
