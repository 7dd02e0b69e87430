#pragma once

#include "KivServiceInterface.h"

namespace kiv::settings {

// The shared bodies of the volume functions for one speaker, and of those for a list. Log lines name these functions,
// not the exported ones.

enum VolumeStep { kUp = 0, kDown = 1, kReset = 2 };

// Asks for a step of a speaker's volume. Any other value than those of VolumeStep is a reset.
void m_SetSpkVolume(const unsigned char* pMac, int nIP, int op);

// Calls the method with the records of all the speakers.
void TransformNetSpkList(const std::vector<STNetSpkConfig>& list, const char* methodName);

} // namespace kiv::settings
