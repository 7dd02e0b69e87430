#include "tools/sandbox/PrivateBus.h"

#include "simulator/Glib.h"
#include "simulator/Interfaces.h"
#include "src/link/Owners.h"
#include "tools/sandbox/Connection.h"
#include "tools/sandbox/Files.h"

#include <fmt/format.h>
#include <gio/gio.h>
#include <sys/un.h>

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace kiv::sandbox {

namespace {

using simulator::TakeText;

constexpr auto kAddressHead = "unix:path=";
constexpr auto kDirectoryHead = "kiv-sandbox-";
constexpr auto kSocket = "bus";

// The limits are those of a session bus, because a test may reach those of a system bus, and a runaway program cannot
// harm other users here. The length of a message is that of the system bus, so that a message that is too long for a TV
// is too long here.
constexpr auto kConfiguration = R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>{address}</listen>
  <auth>EXTERNAL</auth>
  <servicedir>{services}</servicedir>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_pending_service_starts">10000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
{extra}
</busconfig>
)";

// Makes a directory in the folder for temporary files, or in /tmp if a socket's path would be too long there.
std::filesystem::path MakeDirectory()
{
    constexpr std::size_t kLongestSocketPath = sizeof(sockaddr_un::sun_path) - 1;
    const std::string name = std::string(kDirectoryHead) + "XXXXXX";
    std::string path = TemporaryFolder() / name;
    if ((std::filesystem::path(path) / kSocket).native().size() > kLongestSocketPath) {
        path = std::filesystem::path("/tmp") / name;
    }
    if (mkdtemp(path.data()) == nullptr) {
        ThrowErrno(path);
    }
    return path;
}

std::vector<std::string> DaemonCommand(const std::filesystem::path& configuration)
{
    // The daemon writes its messages to the system log, because stderr belongs to its services.
    return {"dbus-daemon",   "--config-file=" + configuration.string(),
            "--nofork",      "--nopidfile",
            "--syslog-only", "--print-address=" + std::to_string(Keeper::kReportFd)};
}

std::filesystem::path ConfigurationFile(const std::filesystem::path& directory)
{
    return directory / "bus.conf";
}

std::filesystem::path ServicesDirectory(const std::filesystem::path& directory)
{
    return directory / "services";
}

std::filesystem::path ServiceFile(const std::filesystem::path& directory, const std::string& name)
{
    return ServicesDirectory(directory) / (name + ".service");
}

void WriteServiceFile(const std::filesystem::path& directory, const Service& service)
{
    std::string commandLine;
    for (const std::string& word : service.command) {
        commandLine += (commandLine.empty() ? "" : " ") + TakeText(g_shell_quote(word.c_str()));
    }
    const link::KeyFileOwner file(g_key_file_new());
    g_key_file_set_string(file.get(), "D-BUS Service", "Name", service.name.c_str());
    g_key_file_set_string(file.get(), "D-BUS Service", "Exec", commandLine.c_str());
    WriteFile(ServiceFile(directory, service.name), TakeText(g_key_file_to_data(file.get(), nullptr, nullptr)));
}

} // namespace

PrivateBus::PrivateBus(const BusOptions& options)
    : directory_(MakeDirectory()),
      address_(kAddressHead + TakeText(g_dbus_address_escape_value((directory_ / kSocket).c_str()))),
      keeper_(DaemonCommand(ConfigurationFile(directory_)), Keeper::Place::kBackground, directory_)
{
    std::filesystem::create_directory(ServicesDirectory(directory_));
    for (const Service& service : options.services) {
        WriteServiceFile(directory_, service);
    }
    WriteFile(
        ConfigurationFile(directory_),
        fmt::format(
            kConfiguration, fmt::arg("address", address_),
            fmt::arg("services", TakeText(g_markup_escape_text(ServicesDirectory(directory_).c_str(), -1))),
            fmt::arg("extra", options.extraConfig)));
    Start();
}

void PrivateBus::Kill()
{
    if (keeper_.Pid() != 0) {
        keeper_.Signal(SIGKILL);
        keeper_.WaitForEnd();
    }
}

void PrivateBus::Start()
{
    Kill();
    try {
        keeper_.Start();
        // The daemon prints its address when it listens.
        if (!keeper_.ReadLine()) {
            throw std::runtime_error("dbus-daemon did not start; it gives the reason on stderr or in the system log");
        }
    } catch (const std::system_error& error) {
        throw std::runtime_error("cannot run dbus-daemon, of the package dbus-daemon: " + error.code().message());
    }
}

void PrivateBus::WriteService(const Service& service)
{
    WriteServiceFile(directory_, service);
    ReloadConfig();
}

void PrivateBus::RemoveService(const std::string& name)
{
    std::filesystem::remove(ServiceFile(directory_, name));
    ReloadConfig();
}

void PrivateBus::Activate(const std::string& name)
{
    Connection(address_).CallDaemon(simulator::kBusName, "StartServiceByName", g_variant_new("(su)", name.c_str(), 0U));
}

void PrivateBus::ReloadConfig() const
{
    if (keeper_.Pid() != 0) {
        Connection(address_).CallDaemon(simulator::kBusName, "ReloadConfig");
    }
}

std::filesystem::path PrivateBusDirectory(const std::string& address)
{
    const std::string head = kAddressHead;
    const link::TextOwner socket(
        address.starts_with(head) ? g_uri_unescape_string(address.c_str() + head.size(), "") : nullptr);
    std::filesystem::path directory = std::filesystem::path(socket == nullptr ? "" : socket.get()).parent_path();
    if (!directory.filename().string().starts_with(kDirectoryHead)) {
        throw std::runtime_error(fmt::format("the address must be that of a sandbox's bus, got \"{}\"", address));
    }
    return directory;
}

} // namespace kiv::sandbox
