#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace kiv::sandbox {

class Keeper;

/// A program that the bus starts when its name is called and nobody owns it.
struct Service {
    std::string name;
    std::vector<std::string> command;
};

struct BusOptions {
    std::vector<Service> services = {};
    std::string extraConfig = {}; ///< XML that ends the daemon's configuration and overrides it: policies, limits
};

/**
 * A system bus of one's own: a dbus-daemon on a socket in a fresh temporary directory.
 *
 * Everybody may own, send and receive everything, and only the services given here can be started. They inherit the
 * environment of this process, with DBUS_SYSTEM_BUS_ADDRESS set to this bus; what they print goes to stderr.
 *
 * Neither process nor file outlasts the object, nor this process if it dies without destroying the object.
 * Failures are reported as std::runtime_error. The object may be used by one thread at a time.
 */
class PrivateBus {
public:
    explicit PrivateBus(const BusOptions& options = {});
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return address_; }
    /// Private to this bus and removed with it; others may put files here.
    const std::filesystem::path& Directory() const { return directory_; }
    pid_t DaemonPid() const; ///< 0 after Kill()

    /// Ends the daemon by SIGKILL and returns when it is gone. Services that it started live on without a bus.
    void Kill();
    /// Has a daemon go on that was stopped by SIGSTOP.
    void Resume();
    /// Readable when the daemon has ended; not any more after Kill().
    int Fd() const;
    /// Starts the daemon again, on the same address; one that still runs is killed first.
    void Start();

    /// Adds a service or changes it, on the running bus too.
    void WriteService(const Service& service);
    void RemoveService(const std::string& name);
    /// Has the bus start a service, and returns when its name is owned.
    void Activate(const std::string& name);

    /// Has the daemon read its configuration again, and files that this includes.
    void ReloadConfig() const;

private:
    std::filesystem::path directory_;
    std::string address_;
    std::unique_ptr<Keeper> keeper_;
};

/// Returns the directory of the private bus at an address. Throws std::runtime_error for the address of another bus.
std::filesystem::path PrivateBusDirectory(const std::string& address);

} // namespace kiv::sandbox
