#pragma once

#include "simulator/ClientLink.h"
#include "simulator/Clients.h"
#include "simulator/Control.h"
#include "simulator/Faults.h"
#include "simulator/Home.h"
#include "simulator/Server.h"
#include "simulator/Trace.h"

#include <functional>
#include <string>

namespace kiv::simulator {

/** What the simulator starts with. */
struct World {
    World();

    Home home;
    Clients clients;
    Faults faults;
};

/** The stand-in for the network-speaker server, on the system bus. */
class Simulator {
public:
    /** Throws std::runtime_error, with the reason, if there is no bus. */
    Simulator(World& world, Trace trace);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    /** Throws std::runtime_error, with the reason, if a name is not to be had. */
    void OwnNames();

    /** Serves until told to leave, or until the bus is gone. */
    void Run() { g_main_loop_run(loop_.get()); }

private:
    void OwnName(const char* name);
    void Leave(const std::function<void()>& onAnnounced);

    static int OnSignal(void* self);
    static void OnClosed(Simulator* self);
    static void OnNameOwnerChanged(
        GDBusConnection*, const char* sender, const char* path, const char* interface, const char* signal,
        GVariant* arguments, void* self);

    World& world_;
    std::shared_ptr<GMainLoop> loop_;
    ObjectRef<GDBusConnection> connection_;
    ClientLink link_;
    Server server_;
    Control control_;
    unsigned nameWatch_;
    bool leaving_ = false;
    bool left_ = false;
};

} // namespace kiv::simulator
