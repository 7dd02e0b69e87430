#include "simulator/HomeText.h"

#include "simulator/Home.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <glib.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace kiv::simulator {

namespace {

using nlohmann::json;

// The widths of the columns whose texts have any length.
struct Columns {
    std::size_t name = 17;
    std::size_t group = 11;
};

std::string GroupOf(const json& home, const json& speaker)
{
    return home.at("groups").at(speaker.at("group").get<std::size_t>() - 1).get<std::string>();
}

Columns ColumnsOf(const json& home)
{
    Columns columns;
    for (const char* const list : {"speakers", "discovered", "soundbars"}) {
        for (const json& device : home.at(list)) {
            columns.name = Widened(columns.name, device.at("name"));
            if (device.contains("group")) {
                columns.group = Widened(columns.group, GroupOf(home, device));
            }
        }
    }
    return columns;
}

std::string DescribeSpeaker(const json& home, const json& speaker, const Columns& columns)
{
    constexpr std::size_t kOtherColumns = 39;
    std::string line = fmt::format(
        "{:<{}} {:<{}} {} {:<7} volume {}", speaker.at("name").get<std::string>(), columns.name, GroupOf(home, speaker),
        columns.group, speaker.at("mac").get<std::string>(), speaker.at("connection").get<std::string>(),
        speaker.at("volume").get<int>());
    if (speaker.at("active")) {
        line = fmt::format(
            "{:<{}} channel {}", line, columns.name + columns.group + kOtherColumns, speaker.at("channel").get<int>());
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

// Returns the number of columns of a terminal that a text takes, as fmt counts them.
std::size_t DisplayWidth(const std::string& text)
{
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();
         at += static_cast<unsigned char>(g_utf8_skip[static_cast<unsigned char>(text[at])])) {
        width += g_unichar_iswide(g_utf8_get_char(&text[at])) != FALSE ? 2U : 1U;
    }
    return width;
}

} // namespace

std::size_t Widened(std::size_t width, const std::string& text)
{
    return std::max(width, DisplayWidth(text));
}

std::vector<std::string> DescribeHome(const json& home)
{
    const Columns columns = ColumnsOf(home);
    std::vector<std::string> lines;
    for (const char* const list : {"speakers", "discovered"}) {
        for (const json& speaker : home.at(list)) {
            lines.push_back(DescribeSpeaker(home, speaker, columns));
        }
    }
    for (const json& soundbar : home.at("soundbars")) {
        lines.push_back(fmt::format(
            "{:<{}} {:<{}} {} sound mode {}", soundbar.at("name").get<std::string>(), columns.name, "soundbar",
            columns.group, soundbar.at("mac").get<std::string>(), soundbar.at("soundMode").get<std::string>()));
    }
    lines.push_back(fmt::format("{:<{}} {}", "Playing", columns.name, PlayingNames(home)));
    lines.push_back(fmt::format(
        "{:<{}} {} Dolby Atmos", "Receiver", columns.name, home.at("receiverHasAtmos") ? "with" : "without"));
    lines.push_back(
        fmt::format("{:<{}} {} channels", "Surround", columns.name, home.at("surroundChannels").get<int>()));
    lines.push_back(fmt::format("{:<{}} {}", "Setting mode", columns.name, ModeText(home.at("settingMode"))));
    lines.push_back(fmt::format(
        "{:<{}} mode {}{}", "Settings screen", columns.name, ModeText(home.at("tavrinUiMode")),
        home.at("tavrinPreSelected") ? ", multi-room preselected" : ""));
    return lines;
}

} // namespace kiv::simulator
