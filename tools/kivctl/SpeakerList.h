#pragma once

#include <KivServiceInterface.h>

#include <string>
#include <vector>

namespace kiv::ctl {

// MAC[=CONFIG], such as "a4:11:22:33:44:55=3". Throws BadArguments.
STNetSpkConfig ParseSpeaker(const std::string& text);

// A JSON array of {"mac": "...", "config": N} and "MAC[=CONFIG]". Throws BadArguments.
std::vector<STNetSpkConfig> ReadSpeakerFile(const std::string& path);

} // namespace kiv::ctl
