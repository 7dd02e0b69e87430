#pragma once

#include "link/Log.h"

#include <cxxabi.h>

namespace kiv::link {

// The event dispatch passes events to these, on the monitor thread. notify/ provides them; their lines are logged on
// behalf of the dispatch.

void CallAtmosCallbacks(const Here& here);
void CallSubscribers(const Here& here, int eventId, void* data, int length);

// At unload only.
void ForgetAtmosCallbacks();
void ForgetSubscribers();

// Calls a host's function; an exception ends there, with a line in the log. The C library ends a thread by an exception
// that refers to no object, which the sanitizer for null references would report.
template <typename Function>
__attribute__((no_sanitize("null"))) void CallHost(const Here& here, Function&& function)
{
    try {
        function();
    } catch (const abi::__forced_unwind&) {
        throw; // the host ends the thread: the C library aborts the process if somebody catches that
    } catch (...) {
        KIV_LOG_AT(here, kLogError, "[%s] exception from a callback dropped", kApiTag);
    }
}

} // namespace kiv::link
