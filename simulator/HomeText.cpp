#include "simulator/HomeText.h"

#include "simulator/Home.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace kiv::simulator {

namespace {

using nlohmann::json;

std::string DescribeSpeaker(const json& home, const json& speaker)
{
    std::string line = fmt::format(
        "{:<17} {:<11} {} {:<7} volume {}", speaker.at("name").get<std::string>(),
        home.at("groups").at(speaker.at("group").get<std::size_t>() - 1).get<std::string>(),
        speaker.at("mac").get<std::string>(), speaker.at("connection").get<std::string>(),
        speaker.at("volume").get<int>());
    if (speaker.at("active")) {
        line = fmt::format("{:<67} channel {}", line, speaker.at("channel").get<int>());
    }
    return line;
}

std::string PlayingNames(const json& home)
{
    std::vector<std::string> names;
    for (const json& speaker : home.at("speakers")) {
        if (speaker.at("active")) {
            names.push_back(speaker.at("name"));
        }
    }
    return names.empty() ? "none" : fmt::format("{}", fmt::join(names, ", "));
}

// Returns a mode in the form that kivctl prints: "80 (surround)".
std::string ModeText(int mode)
{
    switch (mode) {
    case Home::kSurroundMode:
        return fmt::format("{} (surround)", mode);
    case Home::kMultiRoomMode:
        return fmt::format("{} (multiroom)", mode);
    default:
        return fmt::format("{}", mode);
    }
}

} // namespace

std::vector<std::string> DescribeHome(const json& home)
{
    std::vector<std::string> lines;
    for (const char* const list : {"speakers", "discovered"}) {
        for (const json& speaker : home.at(list)) {
            lines.push_back(DescribeSpeaker(home, speaker));
        }
    }
    for (const json& soundbar : home.at("soundbars")) {
        lines.push_back(fmt::format(
            "{:<17} {:<11} {} sound mode {}", soundbar.at("name").get<std::string>(), "soundbar",
            soundbar.at("mac").get<std::string>(), soundbar.at("soundMode").get<std::string>()));
    }
    lines.push_back(fmt::format("{:<17} {}", "Playing", PlayingNames(home)));
    lines.push_back(fmt::format("{:<17} {} Dolby Atmos", "Receiver", home.at("receiverHasAtmos") ? "with" : "without"));
    lines.push_back(fmt::format("{:<17} {} channels", "Surround", home.at("surroundChannels").get<int>()));
    lines.push_back(fmt::format("{:<17} {}", "Setting mode", ModeText(home.at("settingMode"))));
    lines.push_back(fmt::format(
        "{:<17} mode {}{}", "Settings screen", ModeText(home.at("tavrinUiMode")),
        home.at("tavrinPreSelected") ? ", multi-room preselected" : ""));
    return lines;
}

} // namespace kiv::simulator
