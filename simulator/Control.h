#pragma once

#include "simulator/BusObject.h"
#include "simulator/ClientLink.h"
#include "simulator/Clients.h"
#include "simulator/Faults.h"
#include "simulator/Home.h"
#include "simulator/Server.h"

#include <functional>
#include <string>

namespace kiv::simulator {

/** The object through which tests and people watch and disturb the server. */
class Control {
public:
    /** Ends the simulator, and says when everybody who is to know has been told. */
    using Leave = std::function<void(const std::function<void()>& onAnnounced)>;

    Control(
        GDBusConnection* connection, Home& home, Clients& clients, Faults& faults, Server& server,
        const ClientLink& link, Leave leave);

private:
    BusObject::Handlers Handlers();
    std::vector<std::string> Addressed(const std::string& clientId) const;

    void Calls(const Call& call) const;
    void SetAtmos(const Call& call);
    void Push(const Call& call, const Variant& payload) const;
    void SendPayloads(const Call& call) const;
    void CallClient(const Call& call) const;
    void Model(const Call& call) const;

    Home& home_;
    Clients& clients_;
    Faults& faults_;
    Server& server_;
    const ClientLink& link_;
    Leave leave_;
    BusObject object_;
};

} // namespace kiv::simulator
