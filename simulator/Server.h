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

// The server object. It records calls, and answers them from the home or from a recording, unless a fault prevents
// that.
class Server {
public:
    Server(GDBusConnection* connection, World& world, ClientLink link, Trace trace);

private:
    BusObject::Handlers Handlers();
    void Serve(const Call& call, const Method& method);
    // Returns an error for a call that was not recorded, or not so often, and prints that to stderr.
    RecordedAnswer Recorded(const Call& call) const;
    void Answer(const Call& call, const Method& method, const Fault& fault) const;
    void PushRecorded(const std::vector<RecordedEvent>& events) const;

    World& world_;
    ClientLink link_;
    Trace trace_;
    BusObject object_;
    // Expires when this object ends, for actions that wait on the main loop.
    std::shared_ptr<void> life_ = std::make_shared<int>();
};

} // namespace kiv::simulator
