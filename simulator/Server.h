#pragma once

#include "simulator/BusObject.h"
#include "simulator/CallRecord.h"
#include "simulator/ClientLink.h"
#include "simulator/Clients.h"
#include "simulator/Faults.h"
#include "simulator/Home.h"
#include "simulator/Methods.h"
#include "simulator/Trace.h"

namespace kiv::simulator {

/** The server object: answers from the home, unless a fault prevents it, and records what it was called. */
class Server {
public:
    Server(
        GDBusConnection* connection, Home& home, Clients& clients, Faults& faults, const ClientLink& link, Trace trace);

    CallRecord& Calls() { return calls_; }

private:
    BusObject::Handlers Handlers();
    void Serve(const Call& call, const Method& method);
    void Answer(const Call& call, const Method& method, const Fault& fault) const;
    /** To subscribers, after the answer of the call that gave rise to it. */
    void ReportVolumes() const;

    Home& home_;
    Clients& clients_;
    Faults& faults_;
    const ClientLink& link_;
    Trace trace_;
    CallRecord calls_;
    BusObject object_;
};

} // namespace kiv::simulator
