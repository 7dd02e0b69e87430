#pragma once

#include <KivServiceInterface.h>

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace kiv::ctl {

// The meaning of the server's answer to a start.
inline constexpr const char* kPlaying = "number of speakers that play now";
inline constexpr const char* kNonePlays =
    "none plays now; a speaker that is only seen must be connected first: kivctl connect new MAC";

// Speakers on the command line, each as MAC[=CONFIG] such as "02:4b:49:56:00:01=3". Or they are in a file with a JSON
// array of {"mac": "...", "config": N} and "MAC[=CONFIG]".
struct SpeakerArguments {
    std::vector<std::string> speakers;
    std::string file;
};

void AddSpeakers(CLI::App& app, SpeakerArguments& arguments);

// Returns the speakers. Throws BadArguments if they are not valid.
std::vector<STNetSpkConfig> SpeakersOf(const SpeakerArguments& arguments);

} // namespace kiv::ctl
