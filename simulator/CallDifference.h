#pragma once

#include "simulator/Glib.h"

#include <cstddef>
#include <string>

namespace kiv::simulator {

/** Tells people where two calls of a method differ. */
struct CallDifference {
    /** Name of the argument, or the part of it: "records[1]". */
    std::string name;
    /** Its values in the two calls, shortened. */
    std::string first;
    std::string second;
};

/** Counts the arguments that are equal in two calls. */
std::size_t CountEqualArguments(GVariant* first, GVariant* second);

/** The first argument that differs. The two tuples are not equal. */
CallDifference FirstDifference(const std::string& method, GVariant* first, GVariant* second);

} // namespace kiv::simulator
