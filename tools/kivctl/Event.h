#pragma once

#include "tools/kivctl/Layout.h"
#include "tools/kivctl/Output.h"

#include <string>

namespace kiv::ctl {

// An event of the server as kivctl shows it.
struct EventTexts {
    std::string text;
    Json fields;
};

// Decodes the data if the layout knows the event. With raw, also shows all of its bytes.
EventTexts DescribeEvent(int id, Bytes data, int length, const Layout& layout, bool raw);

// Returns the event's data from the arguments of a callback, or none if the length is not positive.
Bytes EventData(const void* data, int length);

} // namespace kiv::ctl
