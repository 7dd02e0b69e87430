#pragma once

#include "link/Owners.h"

namespace kiv::link {

// The prologue of functions that do not wait for an absent server. Gives the connection over which calls can be made;
// null if they cannot, while a background thread tries to bring the server up.
ConnectionOwner s_pre_checking();

// Starts that thread; 1 on success, 0 on failure.
int m_CreateThread();

// Its body: six attempts, and six more each time that s_pre_checking() fails meanwhile.
void* m_MainLaunchPro(void* unused);

} // namespace kiv::link
