#pragma once

#include "link/Owners.h"

namespace kiv::link {

// Prepares a function that does not wait for an absent server. Returns the connection to call over, or null if no call
// can be made. If the server was not reached, a background thread then makes the bus start it.
ConnectionOwner s_pre_checking();

// Starts that thread. Returns 1 on success, 0 on failure.
int m_CreateThread();

// The thread's body. Makes six attempts. Each s_pre_checking() that does not reach the server resets the count.
void* m_MainLaunchPro(void* unused);

} // namespace kiv::link
