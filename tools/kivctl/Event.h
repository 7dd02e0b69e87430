#pragma once

#include "Layout.h"
#include "Output.h"

#include <string>

namespace kiv::ctl {

// An event of the server as it is shown.
struct EventTexts {
    std::string text;
    Json fields;
};

// The data is decoded if the layout knows the event. Raw: its bytes are shown besides, and whole.
EventTexts DescribeEvent(int id, Bytes data, int length, const Layout& layout, bool raw);

// The event's data as a callback gets them; none if the length is not positive.
Bytes EventData(const void* data, int length);

} // namespace kiv::ctl
