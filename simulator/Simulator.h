#pragma once

#include "simulator/ClientLink.h"
#include "simulator/Scenario.h"
#include "simulator/Trace.h"
#include "simulator/World.h"

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

namespace kiv::simulator {

// The stand-in for the network-speaker server on the system bus. It lives until the process ends.
//
// A crash ends the connection to the bus, and with it the calls that are not answered, as the end of a server would.
// The world outlasts it. The control's name goes over to the next connection, so that callers of the control do not
// notice.
class Simulator {
public:
    using Outage = std::chrono::milliseconds;
    using OnDone = std::function<void()>;

    // Connects to the system bus, and takes the name of the control. Calls onReady when the server is on the bus for
    // the first time. Throws std::runtime_error, with the reason, if there is no bus, or if the name cannot be owned.
    Simulator(World& world, Trace trace, OnDone onReady);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    ~Simulator();

    // Serves until it is told to leave, or until the bus is gone. The server is away first, for the time of the outage.
    // Throws std::runtime_error, with the reason, if the name of the server cannot be owned.
    void Run(Outage outage);

private:
    // The server is away, due on the bus, on the bus, or to crash. The process is to end when it has left.
    //
    //   Away -> Due            the outage has passed
    //   Away or Due -> Away    a change begins another outage
    //   Due -> Open            Open() has taken the server's name
    //   Open -> Crashing       a change lets the server crash
    //   Crashing -> Away       Crash() has replaced the connection
    //   any -> Left            it was told to leave, or the bus is gone
    //
    // Run() makes the steps from Due and from Crashing. Callbacks of the main loop make all others.
    enum class State { kAway, kDue, kOpen, kCrashing, kLeft };
    struct Presence;

    // Runs the main loop once. Returns whether there was something to do.
    bool Iterate(gboolean mayWait);
    void StayAway(Outage outage);
    void Open();
    void Crash();
    void Leave(const OnDone& onAnnounced);
    void Apply(const Scenario& scenario, const ClientLink::OnPushed& onApplied);
    void MakeInTime(const Change& change);
    void Make(const Change& change, const ClientLink::OnPushed& onMade);
    void Finish(const Change& change, const OnDone& onMade);
    void AwaitServer(const OnDone& onOpen);

    static int OnSignal(void* self);

    World& world_;
    Trace trace_;
    OnDone onReady_;
    State state_ = State::kAway;
    bool isLeaving_ = false;
    // The life of the current outage. Another outage replaces it.
    std::shared_ptr<void> outage_;
    std::vector<OnDone> awaitingServer_;
    // The length of the next outage, and the end of the change that makes the server crash.
    Outage crashOutage_{0};
    OnDone onCrashed_;
    std::unique_ptr<Presence> presence_;
};

// Returns true if another simulator is on the bus and its server was away, and waits until that server is back. While
// it is away, the bus starts a further simulator for a client that calls it.
bool AwaitServerOfOther();

} // namespace kiv::simulator
