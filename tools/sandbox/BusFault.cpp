#include "tools/sandbox/BusFault.h"

#include "simulator/Interfaces.h"
#include "src/link/Owners.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/Files.h"
#include "tools/sandbox/PrivateBus.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gio/gio.h>
#include <sys/file.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <optional>
#include <stdexcept>

namespace kiv::sandbox {

namespace {

constexpr auto kFaultFile = "fault.conf";
constexpr auto kNone = "none";
constexpr auto kHang = "hang";
constexpr auto kGone = "gone";

// While this file exists, a SetBusFault() waits for the sandbox to start the bus again.
constexpr auto kRestartFile = "restart";
constexpr int kRestartSeconds = 10;

// Rules of the context "mandatory" override all others.
constexpr auto kFaultConfiguration = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <policy context="mandatory">
    {}
  </policy>
</busconfig>
)";

std::string DeniedBy(const std::string& fault)
{
    if (fault == "deny-name") {
        return R"(<deny own_prefix="org.lumra.tv.networkspeaker.client"/>)";
    }
    if (fault == "deny-events") {
        return R"(<deny send_path="*" send_member="nam_notify_subscriber"/>)";
    }
    return "";
}

using StreamOwner = link::ObjectOwner<GIOStream>;

// Connects to the socket of a bus. Returns null for an error.
StreamOwner ConnectTo(const std::string& address, GError** error = nullptr)
{
    return StreamOwner(g_dbus_address_get_stream_sync(address.c_str(), nullptr, nullptr, error));
}

// Returns the process that listens at an address, as the kernel knows it, so it also finds a daemon that is stopped.
// Returns nothing for an address that is not a socket of this machine.
std::optional<pid_t> DaemonAt(const std::string& address)
{
    link::ErrorOwner error;
    const StreamOwner stream = ConnectTo(address, error.Out());
    if (stream == nullptr) {
        // When a sandbox ends, its folder is removed with the socket in it.
        const bool isGone = g_error_matches(error.get(), G_IO_ERROR, G_IO_ERROR_NOT_FOUND) != FALSE;
        throw std::runtime_error(
            fmt::format("{}no connection to {}: {}", isGone ? "the sandbox has ended: " : "", address, error->message));
    }
    GSocket* const socket = g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream.get()));
    const link::ObjectOwner<GCredentials> credentials(g_socket_get_credentials(socket, nullptr));
    const pid_t pid = credentials == nullptr ? -1 : g_credentials_get_unix_pid(credentials.get(), nullptr);
    return pid > 0 ? std::optional(pid) : std::nullopt;
}

// Waits until the condition holds. Throws after ten seconds; the failure begins the message.
template <typename Condition>
void Await(const Condition& condition, const char* failure)
{
    constexpr int kLooksInASecond = 100;
    for (int i = 0; !condition(); ++i) {
        if (i == kRestartSeconds * kLooksInASecond) {
            throw std::runtime_error(fmt::format("{} within {} s", failure, kRestartSeconds));
        }
        g_usleep(G_USEC_PER_SEC / kLooksInASecond);
    }
}

void SendSignal(pid_t process, int number)
{
    if (kill(process, number) != 0) {
        ThrowErrno(fmt::format("cannot send a signal to the bus, process {}", process));
    }
}

// Makes commands that set faults wait for each other. While one ends the bus, another could still connect to it. Does
// nothing if the bus's folder is gone, and with it the bus.
class FaultLock {
public:
    explicit FaultLock(const std::filesystem::path& busDirectory)
        : directory_(open(busDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (directory_ >= 0) {
            flock(directory_, LOCK_EX);
        }
    }
    ~FaultLock()
    {
        if (directory_ >= 0) {
            close(directory_);
        }
    }
    FaultLock(const FaultLock&) = delete;
    FaultLock& operator=(const FaultLock&) = delete;

private:
    int directory_;
};

} // namespace

const std::vector<std::string> kBusFaults = {kNone, "deny-name", "deny-events", kHang, kGone};

const std::string kBusFaultConfig = fmt::format(R"(<include ignore_missing="yes">{}</include>)", kFaultFile);

void SetBusFault(const std::string& address, const std::string& fault)
{
    const std::filesystem::path directory = PrivateBusDirectory(address);
    const FaultLock lock(directory);
    if (BusIsGone(address)) {
        if (fault == kGone) {
            return;
        }
        WriteFile(directory / kRestartFile, "");
        Await([&directory] { return !IsRestartWanted(directory); }, "the sandbox has not started its bus again");
    }
    const pid_t daemon = DaemonAt(address).value();
    SendSignal(daemon, SIGCONT);
    WriteFile(directory / kFaultFile, fmt::format(kFaultConfiguration, DeniedBy(fault)));
    Connection(address).CallDaemon(simulator::kBusName, "ReloadConfig");
    if (fault == kHang) {
        SendSignal(daemon, SIGSTOP);
    } else if (fault == kGone) {
        SendSignal(daemon, SIGKILL);
        Await([&address] { return BusIsGone(address); }, "the bus has not ended");
    }
}

std::string BusFault(const std::string& address)
{
    const std::filesystem::path directory = PrivateBusDirectory(address);
    if (BusIsGone(address)) {
        return kGone;
    }
    if (BusHangs(address)) {
        return kHang;
    }
    const std::string configuration = ReadFile(directory / kFaultFile);
    const auto isInForce = [&configuration](const std::string& fault) {
        const std::string denied = DeniedBy(fault);
        return !denied.empty() && configuration.find(denied) != std::string::npos;
    };
    const auto fault = std::ranges::find_if(kBusFaults, isInForce);
    return fault == kBusFaults.end() ? kNone : *fault;
}

bool BusHangs(const std::string& address)
{
    const auto daemon = DaemonAt(address);
    return daemon && IsStopped(*daemon);
}

bool BusIsGone(const std::string& address)
{
    try {
        return ConnectTo(address) == nullptr && std::filesystem::exists(PrivateBusDirectory(address));
    } catch (const std::runtime_error&) {
        return false; // the address of another bus
    }
}

void RequireAnsweringBus(const std::string& address)
{
    if (BusIsGone(address)) {
        throw std::runtime_error("the bus is gone; \"kiv-sandbox control bus-fault none\" starts it again");
    }
    if (BusHangs(address)) {
        throw std::runtime_error("the bus hangs; \"kiv-sandbox control bus-fault none\" makes it go on");
    }
}

bool IsRestartWanted(const std::filesystem::path& busDirectory)
{
    return std::filesystem::exists(busDirectory / kRestartFile);
}

void ConfirmRestart(const std::filesystem::path& busDirectory)
{
    std::filesystem::remove(busDirectory / kRestartFile);
}

bool IsStopped(pid_t process)
{
    // The text is "pid (name) state ...". The name can have any character.
    const std::string stat = ReadFile(fmt::format("/proc/{}/stat", process));
    const std::size_t nameEnd = stat.rfind(')');
    return nameEnd != std::string::npos && stat.compare(nameEnd, 3, ") T") == 0;
}

} // namespace kiv::sandbox
