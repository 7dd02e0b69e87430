#pragma once

#include "KivServiceInterface.h"

namespace kiv::settings {

// What the functions for one speaker and those for a list of speakers have in common, under names of their own in the
// log.

// Sends a step of a speaker's volume: 0 up, 1 down, any other value back to the default.
void m_SetSpkVolume(const unsigned char* pMac, int nIP, int op);

// Sends a list of speakers to a method of the server.
void TransformNetSpkList(const std::vector<STNetSpkConfig>& list, const char* methodName);

} // namespace kiv::settings
