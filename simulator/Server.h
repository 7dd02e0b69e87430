#pragma once

#include "simulator/BusObject.h"
#include "simulator/ClientLink.h"
#include "simulator/Methods.h"
#include "simulator/Replay.h"
#include "simulator/Trace.h"
#include "simulator/World.h"

#include <memory>
#include <vector>

namespace kiv::simulator {

/** The server object: answers from the home or a recording, unless a fault prevents it, and records what it was called.
 */
class Server {
public:
    Server(GDBusConnection* connection, World& world, ClientLink link, Trace trace);

private:
    BusObject::Handlers Handlers();
    void Serve(const Call& call, const Method& method);
    /** A call that was not recorded, or not so often, gets an error, which goes to stderr as well. */
    RecordedAnswer Recorded(const Call& call) const;
    void Answer(const Call& call, const Method& method, const Fault& fault) const;
    void PushRecorded(const std::vector<RecordedEvent>& events) const;

    World& world_;
    ClientLink link_;
    Trace trace_;
    BusObject object_;
    /** Of what waits on the main loop for its time. */
    std::shared_ptr<void> life_ = std::make_shared<int>();
};

} // namespace kiv::simulator
