#pragma once

#include "KivServiceInterface.h"

namespace kiv::settings {

// What the functions for one speaker and those for a list of speakers have in common, under names of their own in the
// log.

enum VolumeStep { kUp = 0, kDown = 1, kReset = 2 };

// Asks for a step of a speaker's volume; what is no step is a reset.
void m_SetSpkVolume(const unsigned char* pMac, int nIP, int op);

// Asks for what the method does to each of the speakers.
void TransformNetSpkList(const std::vector<STNetSpkConfig>& list, const char* methodName);

} // namespace kiv::settings
