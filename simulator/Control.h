#pragma once

#include "simulator/BusObject.h"
#include "simulator/ClientLink.h"
#include "simulator/StateWatch.h"
#include "simulator/World.h"

#include <functional>
#include <string>
#include <vector>

namespace kiv::simulator {

// The object by which tests and people watch the server and disturb it.
class Control {
public:
    // Actions of the whole simulator. Each calls its last argument when it is done.
    struct Actions {
        using OnDone = std::function<void()>;

        std::function<void(const OnDone&)> leave;
        // The last argument gets the result of pushing the scenario's events.
        std::function<void(const Scenario&, const ClientLink::OnPushed&)> apply;
        std::function<void(const OnDone&)> awaitServer;
    };

    Control(GDBusConnection* connection, World& world, ClientLink link, Actions actions);

private:
    BusObject::Handlers Handlers();
    // Throws BusError if the server answers from a recording, which does not have what the request needs.
    void RefuseInReplay(const char* reason) const;
    std::vector<std::string> Addressed(const std::string& clientId) const;

    void Calls(const Call& call) const;
    void Apply(const Call& call, const Scenario& scenario) const;
    void Feature(const Call& call) const;
    void Atmos(const Call& call) const;
    void Away(const Call& call) const;
    void Push(const Call& call, const Variant& payload) const;
    void SendPayloads(const Call& call) const;
    void CallClient(const Call& call) const;
    void Volume(const Call& call) const;
    void Plug(const Call& call) const;
    std::string State() const;

    World& world_;
    ClientLink link_;
    Actions actions_;
    StateWatch watch_;
    BusObject object_;
};

} // namespace kiv::simulator
