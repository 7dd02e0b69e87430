#pragma once

#include "link/Owners.h"

namespace kiv::link {

// The prologue of functions that do not wait for an absent server. Gives the connection over which calls can be made;
// null if they cannot, while a background thread tries to bring the server up.
ConnectionOwner s_pre_checking();

// Starts that thread; 1 on success, 0 on failure.
int m_CreateThread();

// The thread's body. It makes six attempts; each s_pre_checking() that fails meanwhile starts the count anew.
void* m_MainLaunchPro(void* unused);

} // namespace kiv::link
