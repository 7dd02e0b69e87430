#pragma once

#include "simulator/ClientLink.h"
#include "simulator/Control.h"
#include "simulator/Scenario.h"
#include "simulator/Server.h"
#include "simulator/Trace.h"
#include "simulator/World.h"

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kiv::simulator {

// The stand-in for the network-speaker server on the system bus. An object serves until the server crashes, and the
// next object goes on in the same world.
class Simulator {
public:
    using Outage = std::chrono::milliseconds;

    // Connects to the system bus. Throws std::runtime_error, with the reason, if there is no bus.
    Simulator(World& world, Trace trace);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    // Leaves the bus.
    ~Simulator();

    // Takes the name of the control. Throws std::runtime_error, with the reason, if it cannot be owned.
    void OwnControl();
    // Gives up the names after a crash. The next object gets the control's name.
    void HandOverTo(Simulator& next);
    // Makes the server appear on the bus when the outage has passed.
    void Open(Outage outage, std::function<void()> onOpen);

    // Serves until it is told to leave, or until the bus is gone. If it is told to crash, returns how long the server
    // is to be away. Throws std::runtime_error, with the reason, if the name of the server cannot be owned.
    std::optional<Outage> Run();

private:
    using OnDone = std::function<void()>;

    void FollowTimetable();
    unsigned RequestName(const char* name, unsigned flags);
    void ReleaseName(const char* name);
    void OwnName(const char* name);
    void OpenNow();
    void Leave(const OnDone& onAnnounced);
    void Apply(const Scenario& scenario, const ClientLink::OnPushed& onApplied);
    void MakeInTime(const Change& change);
    void Make(const Change& change, const ClientLink::OnPushed& onMade);
    void Finish(const Change& change, const OnDone& onMade);
    void AwaitServer(const OnDone& onOpen);

    static int OnSignal(void* self);
    static void OnClosed(Simulator* self);
    static void OnNameOwnerChanged(
        GDBusConnection*, const char* sender, const char* path, const char* interface, const char* signal,
        GVariant* arguments, void* self);

    World& world_;
    Trace trace_;
    std::shared_ptr<GMainLoop> loop_;
    ObjectRef<GDBusConnection> connection_;
    ClientLink link_;
    Server server_;
    Control control_;
    std::vector<unsigned> signals_;
    unsigned nameWatch_;
    bool isOpen_ = false;
    std::vector<OnDone> awaitingServer_;
    // The life of the current outage. Another outage replaces it.
    std::shared_ptr<void> opening_;
    OnDone onOpen_ = [] {};
    std::optional<Outage> crash_;
    OnDone onHandedOver_;
    std::exception_ptr failure_;
    bool leaving_ = false;
    bool left_ = false;
    // Expires when this object ends, for actions that wait on the main loop.
    std::shared_ptr<void> life_ = std::make_shared<int>();
};

// Returns true if another simulator is on the bus and its server was away, and waits until that server is back. While
// it is away, the bus starts a further simulator for a client that calls it.
bool AwaitServerOfOther();

} // namespace kiv::simulator
