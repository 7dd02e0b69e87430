#pragma once

#include "link/Log.h"

namespace kiv::link {

// What the event dispatch passes events to, on the monitor thread. Provided by notify/; their lines are logged on
// behalf of the dispatch.

void CallAtmosCallbacks(const Here& here);
void CallSubscribers(const Here& here, int eventId, void* data, int length);

// Calls a host's function; what it throws ends there, with a line in the log.
template <typename Function>
void CallHost(const Here& here, Function&& function)
{
    try {
        function();
    } catch (...) {
        KIV_LOG_AT(here, kLogError, "[%s] exception from a callback dropped", kApiTag);
    }
}

} // namespace kiv::link
