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

/**
 * The stand-in for the network-speaker server, on the system bus. It ends with a crash of the server, after which the
 * next one carries on in the same world.
 */
class Simulator {
public:
    using Outage = std::chrono::milliseconds;

    /** Throws std::runtime_error, with the reason, if there is no bus. */
    Simulator(World& world, Trace trace);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    /** Leaves the bus. */
    ~Simulator();

    /** Throws std::runtime_error, with the reason, if the name of the control is not to be had. */
    void OwnControl();
    /** After a crash: gives up the names, of which the next gets the control's. */
    void HandOverTo(Simulator& next);
    /** The server is on the bus when the outage has passed. */
    void Open(Outage outage, std::function<void()> onOpen);

    /**
     * Serves until told to leave, or until the bus is gone. Returns how long the server is to be away if it was told to
     * crash. Throws std::runtime_error, with the reason, if the name of the server is not to be had.
     */
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
    /** Of an outage; another outage takes its place. */
    std::shared_ptr<void> opening_;
    OnDone onOpen_ = [] {};
    std::optional<Outage> crash_;
    OnDone onHandedOver_;
    std::exception_ptr failure_;
    bool leaving_ = false;
    bool left_ = false;
    /** Of what waits on the main loop for its time. */
    std::shared_ptr<void> life_ = std::make_shared<int>();
};

/**
 * Whether a simulator was on the bus whose server was away. Returns then when that is back: the bus starts another
 * simulator for whoever calls the server meanwhile.
 */
bool AwaitServerOfOther();

} // namespace kiv::simulator
