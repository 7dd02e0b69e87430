#pragma once

#include "simulator/Glib.h"

#include <cstddef>
#include <string>

namespace kiv::simulator {

// Shows where two calls of a method differ.
struct CallDifference {
    // The name of the argument, or of a part of it: "records[1]".
    std::string name;
    // The argument's values in the two calls, shortened.
    std::string first;
    std::string second;
};

// Counts the arguments that are equal in two calls.
std::size_t CountEqualArguments(GVariant* first, GVariant* second);

// Returns the first argument that differs. The two tuples must not be equal.
CallDifference FirstDifference(const std::string& method, GVariant* first, GVariant* second);

} // namespace kiv::simulator
