// Runs dbus-broker for a caller that starts a dbus-daemon. Takes the options of dbus-daemon that PrivateBus uses, and
// passes the listening socket to dbus-broker-launch as systemd does. Stands in for systemd when the launcher asks it to
// start services.

#include <fcntl.h>
#include <gio/gio.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

constexpr int kFirstPassedFd = 3; // defined by sd_listen_fds(3)
constexpr const char* kName = "org.freedesktop.systemd1";
constexpr const char* kPath = "/org/freedesktop/systemd1";
constexpr const char* kManager = "org.freedesktop.systemd1.Manager";

// The part of systemd's interface that dbus-broker-launch uses.
constexpr const char* kInterface = R"xml(<node><interface name="org.freedesktop.systemd1.Manager">
  <method name="LoadUnit"><arg type="s" direction="in"/><arg type="o" direction="out"/></method>
  <method name="StartTransientUnit">
    <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="a(sv)" direction="in"/>
    <arg type="a(sa(sv))" direction="in"/><arg type="o" direction="out"/>
  </method>
</interface></node>)xml";

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what);
}

void Check(const GError* error)
{
    if (error != nullptr) {
        Fail(error->message);
    }
}

std::string ListenAddress(const std::string& configuration)
{
    std::ifstream file(configuration);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string opening = "<listen>";
    const std::size_t begin = text.find(opening);
    const std::size_t end = text.find("</listen>");
    if (begin == std::string::npos || end == std::string::npos) {
        Fail(configuration + ": has no <listen> element");
    }
    return text.substr(begin + opening.size(), end - begin - opening.size());
}

int Listen(const std::string& address)
{
    const std::string scheme = "unix:path=";
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    const std::string path = address.starts_with(scheme) ? address.substr(scheme.size()) : "";
    if (path.empty() || path.size() >= sizeof name.sun_path) {
        Fail("the address must be " + scheme + "PATH with a short path, got '" + address + "'");
    }
    std::memcpy(name.sun_path, path.c_str(), path.size());
    unlink(path.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&name), sizeof name) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        Fail("cannot listen on " + path + ": " + std::strerror(errno));
    }
    return listener;
}

// Stands in for systemd: starts a service as a transient unit.
class ServiceManager {
public:
    explicit ServiceManager(const std::string& address) : address_(address)
    {
        GError* error = nullptr;
        constexpr auto kFlags = static_cast<GDBusConnectionFlags>(
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        bus_ = g_dbus_connection_new_for_address_sync(address.c_str(), kFlags, nullptr, nullptr, &error);
        Check(error);
        GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(kInterface, &error);
        Check(error);
        static constexpr GDBusInterfaceVTable kTable{OnCall, nullptr, nullptr, {}};
        g_dbus_connection_register_object(bus_, kPath, node->interfaces[0], &kTable, this, nullptr, &error);
        Check(error);
        g_variant_unref(g_dbus_connection_call_sync(
            bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", kName, 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error));
        Check(error);
    }

    [[noreturn]] static void Run()
    {
        for (;;) {
            g_main_context_iteration(nullptr, TRUE);
        }
    }

private:
    struct Unit {
        ServiceManager* manager;
        std::string path;
    };

    static std::string UnitPath(const char* unit)
    {
        std::string path = std::string(kPath) + "/unit/";
        for (const char* letter = unit; *letter != '\0'; ++letter) {
            path += g_ascii_isalnum(*letter) != FALSE ? *letter : '_';
        }
        return path;
    }

    static void OnCall(
        GDBusConnection* /*bus*/, const char* /*sender*/, const char* /*path*/, const char* /*interface*/,
        const char* method, GVariant* arguments, GDBusMethodInvocation* call, gpointer manager)
    {
        if (std::strcmp(method, "StartTransientUnit") == 0) {
            static_cast<ServiceManager*>(manager)->StartUnit(arguments, call);
        } else { // LoadUnit
            const char* unit = nullptr;
            g_variant_get(arguments, "(&s)", &unit);
            g_dbus_method_invocation_return_value(call, g_variant_new("(o)", UnitPath(unit).c_str()));
        }
    }

    void StartUnit(GVariant* arguments, GDBusMethodInvocation* call)
    {
        const char* unit = nullptr;
        GVariant* properties = nullptr;
        g_variant_get(arguments, "(&s&s@a(sv)@a(sa(sv)))", &unit, nullptr, &properties, nullptr);
        const std::string job = std::string(kPath) + "/job/" + std::to_string(++jobs_);
        g_dbus_method_invocation_return_value(call, g_variant_new("(o)", job.c_str()));
        const bool started = Start(properties, UnitPath(unit));
        Emit(
            kPath, kManager, "JobRemoved",
            g_variant_new("(uoss)", jobs_, job.c_str(), unit, started ? "done" : "failed"));
        g_variant_unref(properties);
    }

    bool Start(GVariant* properties, const std::string& unitPath)
    {
        gchar** environment = g_environ_setenv(g_get_environ(), "DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), TRUE);
        const gchar** command = nullptr;
        GVariantIter all;
        g_variant_iter_init(&all, properties);
        const char* key = nullptr;
        GVariant* value = nullptr;
        while (g_variant_iter_loop(&all, "(&sv)", &key, &value) != FALSE) {
            if (std::strcmp(key, "ExecStart") == 0) {
                g_variant_get_child(value, 0, "(&s^asb)", nullptr, &command, nullptr);
            }
        }
        GPid pid = 0;
        const bool started =
            command != nullptr && g_spawn_async(
                                      nullptr, const_cast<gchar**>(command), environment,
                                      static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH),
                                      nullptr, nullptr, &pid, nullptr) != FALSE;
        if (started) {
            g_child_watch_add(pid, OnEnd, new Unit{this, unitPath});
        }
        g_strfreev(const_cast<gchar**>(command));
        g_strfreev(environment);
        return started;
    }

    static void OnEnd(GPid /*pid*/, gint status, gpointer data)
    {
        const std::unique_ptr<Unit> unit(static_cast<Unit*>(data));
        GVariantBuilder changed;
        g_variant_builder_init(&changed, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(
            &changed, "{sv}", "ActiveState", g_variant_new_string(status == 0 ? "inactive" : "failed"));
        unit->manager->Emit(
            unit->path.c_str(), "org.freedesktop.DBus.Properties", "PropertiesChanged",
            g_variant_new("(sa{sv}as)", "org.freedesktop.systemd1.Unit", &changed, nullptr));
    }

    void Emit(const char* path, const char* interface, const char* signal, GVariant* arguments)
    {
        g_dbus_connection_emit_signal(bus_, nullptr, path, interface, signal, arguments, nullptr);
    }

    std::string address_;
    GDBusConnection* bus_ = nullptr;
    guint jobs_ = 0;
};

struct Options {
    std::string configuration;
    int reportFd = -1; // the caller reads the address from it when the bus answers
};

Options Parse(int argc, char** argv)
{
    Options options;
    for (int index = 1; index < argc; ++index) {
        const std::string argument = argv[index];
        const std::string value = argument.substr(argument.find('=') + 1);
        if (argument.starts_with("--config-file=")) {
            options.configuration = value;
        } else if (argument.starts_with("--print-address=")) {
            options.reportFd = std::stoi(value);
        }
    }
    if (options.configuration.empty() || options.reportFd < 0) {
        Fail("expected --config-file=PATH and --print-address=FD");
    }
    return options;
}

[[noreturn]] void RunManager(const std::string& address, int reportFd)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const ServiceManager manager(address);
    dprintf(reportFd, "%s\n", address.c_str());
    close(reportFd);
    ServiceManager::Run();
}

[[noreturn]] void RunLauncher(const std::string& address, const std::string& configuration, int listener)
{
    dup2(listener, kFirstPassedFd);
    setenv("LISTEN_FDS", "1", 1);
    setenv("LISTEN_FDNAMES", "dbus.socket", 1);
    setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
    // The launcher calls systemd on the system bus, which is the bus that it starts.
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    execlp("dbus-broker-launch", "dbus-broker-launch", "--config-file", configuration.c_str(), nullptr);
    Fail(std::string("cannot run dbus-broker-launch, of the package dbus-broker: ") + std::strerror(errno));
}

} // namespace

// The launcher replaces this process, so that the caller ends it as it would end a dbus-daemon.
int main(int argc, char** argv)
{
    const pid_t launcher = getpid();
    try {
        const Options options = Parse(argc, argv);
        const std::string address = ListenAddress(options.configuration);
        const int listener = Listen(address);
        const int reportFd = fcntl(options.reportFd, F_DUPFD_CLOEXEC, kFirstPassedFd + 1);
        if (fork() == 0) {
            close(listener);
            RunManager(address, reportFd);
        }
        RunLauncher(address, options.configuration, listener);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "dbus-daemon for dbus-broker: %s\n", error.what());
        if (getpid() != launcher) {
            kill(launcher, SIGKILL); // otherwise the caller would wait for an address forever
        }
    }
    return EXIT_FAILURE;
}
