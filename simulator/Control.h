#pragma once

#include "simulator/BusObject.h"
#include "simulator/ClientLink.h"
#include "simulator/World.h"

#include <functional>
#include <optional>
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

    // Answers the calls that wait for a change, if the state has changed. The main loop calls this each time before it
    // sleeps, so that code that changes the state need not report it. It costs nothing while no call waits.
    void AnswerWaiting();

private:
    struct Waiting {
        Call call;
        std::string known;
    };

    BusObject::Handlers Handlers();
    // Throws BusError if the server answers from a recording, which does not have what the request needs.
    void RefuseInReplay(const char* reason) const;
    std::vector<std::string> Addressed(const std::string& clientId) const;

    // Gives every process this id, or each its own.
    void UseClientId(std::optional<std::string> id) const;
    void Calls(const Call& call) const;
    void Apply(const Call& call, const Scenario& scenario) const;
    void Push(const Call& call, const Variant& payload) const;
    void SendPayloads(const Call& call) const;
    void CallClient(const Call& call) const;
    void Volume(const Call& call) const;
    void Plug(const Call& call) const;
    std::string State() const;

    World& world_;
    ClientLink link_;
    Actions actions_;
    std::vector<Waiting> waiting_;
    BusObject object_;
};

} // namespace kiv::simulator
