#pragma once

#include "link/Log.h"

#include <cxxabi.h>

namespace kiv::link {

// EventDispatch.cpp calls these functions for each event, on the monitor thread. notify/ defines them. Their log lines
// name the function at here.

void CallAtmosCallbacks(const Here& here);
void CallSubscribers(const Here& here, int eventId, void* data, int length);

// Called at unload only.
void ForgetAtmosCallbacks();
void ForgetSubscribers();

// Calls a function of the host. Catches an exception that it throws, and logs that. The C library ends a thread by an
// exception without an object: the reference below is null then, which the sanitizer for null references would report.
template <typename Function>
__attribute__((no_sanitize("null"))) void CallHost(const Here& here, Function&& function)
{
    try {
        function();
    } catch (const abi::__forced_unwind&) {
        throw; // the host ends the thread; without this, the C library would abort the process
    } catch (...) {
        KIV_LOG_AT(here, kLogError, "[%s] exception from a callback dropped", kApiTag);
    }
}

} // namespace kiv::link
