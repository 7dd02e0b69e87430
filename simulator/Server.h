#pragma once

#include "simulator/BusObject.h"
#include "simulator/CallRecord.h"
#include "simulator/Clients.h"
#include "simulator/Faults.h"
#include "simulator/Home.h"
#include "simulator/Trace.h"

#include <functional>

namespace kiv::simulator {

/** The server object: answers from the home, unless a fault prevents it, and records what it was called. */
class Server {
public:
    Server(GDBusConnection* connection, Home& home, Clients& clients, Faults& faults, Trace trace);

    CallRecord& Calls() { return calls_; }

private:
    /** Makes the tuple that answers the call. */
    using Method = std::function<GVariant*(const Call&)>;

    BusObject::Handlers Handlers();
    void Serve(const Call& call, const Method& method);
    void Answer(const Call& call, const Method& method, const Fault& fault) const;

    Home& home_;
    Clients& clients_;
    Faults& faults_;
    Trace trace_;
    CallRecord calls_;
    BusObject object_;
};

} // namespace kiv::simulator
