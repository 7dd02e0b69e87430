#pragma once

#include "simulator/Clients.h"
#include "simulator/Faults.h"

#include <stdexcept>
#include <string>

namespace kiv::simulator {

class SetUpError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** Applies a set-up file. Throws SetUpError, with the reason, for one that cannot be used. */
void ApplySetUp(const std::string& file, Clients& clients, Faults& faults);

} // namespace kiv::simulator
