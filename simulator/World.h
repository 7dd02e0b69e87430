#pragma once

#include "simulator/CallRecord.h"
#include "simulator/Clients.h"
#include "simulator/Faults.h"
#include "simulator/Home.h"
#include "simulator/Replay.h"
#include "simulator/Scenario.h"
#include "simulator/Timetable.h"

#include <optional>
#include <string>

namespace kiv::simulator {

// The state that outlasts a crash of the server.
struct World {
    explicit World(const Scenario& scenario = {});

    // Makes the parts of a change that need no bus. Returns whether the receiver supports Atmos now and did not before.
    // Throws BusError if the feature cannot be written.
    bool Apply(const Change& change);

    Home home;
    Clients clients;
    Faults faults;
    CallRecord calls;
    Timetable timetable;
    std::optional<Replay> replay;
    // The file from which the TV's programs read its features, or empty if it is not to be written.
    std::string featureFile;
};

} // namespace kiv::simulator
