#pragma once

#include "BusTrace.h"
#include "simulator/Replay.h"

#include <string>
#include <utility>

namespace kiv::sandbox {

/// Compares the calls of the server that pass on the bus with those of the recording that is replayed. Wants every
/// message, in the order of the bus.
class ReplayCheck {
public:
    explicit ReplayCheck(simulator::Replay replay) : replay_(std::move(replay)) {}

    void Add(const Message& message);
    /// Lines for stderr: the calls that were not recorded, and the recorded ones that were not made. Empty if there
    /// are none.
    std::string Complaints() const;

private:
    simulator::Replay replay_;
    unsigned notRecorded_ = 0;
};

} // namespace kiv::sandbox
