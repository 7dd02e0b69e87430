#pragma once

#include "simulator/BusObject.h"
#include "simulator/ClientLink.h"
#include "simulator/StateWatch.h"
#include "simulator/World.h"

#include <functional>
#include <string>
#include <vector>

namespace kiv::simulator {

/** The object through which tests and people watch and disturb the server. */
class Control {
public:
    /** What concerns the whole simulator. Each says when it is done. */
    struct Actions {
        using OnDone = std::function<void()>;

        std::function<void(const OnDone&)> leave;
        /** It also says what came of the events. */
        std::function<void(const Scenario&, const ClientLink::OnPushed&)> apply;
        std::function<void(const OnDone&)> awaitServer;
    };

    Control(GDBusConnection* connection, World& world, ClientLink link, Actions actions);

private:
    BusObject::Handlers Handlers();
    /** Throws BusError if the server answers from a recording, which lacks something for the request. */
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
