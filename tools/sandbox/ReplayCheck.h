#pragma once

#include "simulator/Replay.h"
#include "tools/sandbox/BusTrace.h"

#include <string>
#include <utility>

namespace kiv::sandbox {

// Compares the calls of the server on the bus with those of the recording that is replayed. Must get every message, in
// the order of the bus.
class ReplayCheck {
public:
    explicit ReplayCheck(simulator::Replay replay) : replay_(std::move(replay)) {}

    void Add(const Message& message);
    // Returns lines for stderr about calls that were not recorded, and about recorded calls that were not made. Empty
    // if there are none.
    std::string Complaints() const;

private:
    simulator::Replay replay_;
    unsigned notRecorded_ = 0;
};

} // namespace kiv::sandbox
