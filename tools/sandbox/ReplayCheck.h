#pragma once

#include "simulator/Replay.h"
#include "tools/sandbox/BusTrace.h"

#include <cstdint>
#include <map>
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
    // The calls that were not in the recording, by caller and serial. The text says why not, and is empty if the
    // simulator has said so. A fault answers such a call without a word.
    std::map<std::pair<std::string, std::uint32_t>, std::string> notRecorded_;
};

} // namespace kiv::sandbox
