// A service that only owns the name in its first argument. With "stubborn" as its second argument, it leaves its parent
// and its session, and outlives SIGTERM and the bus, like a broken daemon.

#include <gio/gio.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

namespace {

void BecomeStubborn()
{
    if (fork() != 0) {
        _exit(EXIT_SUCCESS);
    }
    setsid();
    std::signal(SIGTERM, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
}

} // namespace

int main(int argc, char** argv)
{
    const bool stubborn = argc > 2 && argv[2] == std::string("stubborn");
    if (stubborn) {
        BecomeStubborn();
    }
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr);
    g_dbus_connection_set_exit_on_close(bus, stubborn ? FALSE : TRUE);
    g_bus_own_name_on_connection(bus, argv[1], G_BUS_NAME_OWNER_FLAGS_NONE, nullptr, nullptr, nullptr, nullptr);
    g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
