#pragma once

#include "simulator/Wire.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <optional>
#include <string>

namespace kiv::simulator {

// The ways in which the TV reaches a speaker. The values are those of the connection-type answers.
enum class Connection { kNone = 0, kNetwork = 1, kDirect = 2, kMixed = 3 };

struct SpeakerTest {
    int parameter;
    int channelType;
    int extra;
};

// The five characters on a speaker's label.
using SpeakerId = std::array<std::uint8_t, 5>;

// Returns the address of a speaker that is given none.
constexpr Ip DefaultIp(int node)
{
    return {192, 168, 0, static_cast<std::uint8_t>(20 + node)};
}

struct Speaker {
    int node;
    int group;
    std::string name;
    std::string type;
    Mac mac;
    Ip ip;
    int volume;
    Connection connection;
    int channel = 0;
    bool active = false;
    bool watched = true;
    std::optional<SpeakerTest> test = std::nullopt;

    bool IsConnected() const { return connection != Connection::kNone; }
    // Returns "KIV" and the last byte of the MAC address in hexadecimal.
    SpeakerId Id() const;
    // Connects the speaker to the home's network, or disconnects it. A disconnected speaker does not play.
    void Plug(bool plugged);
};

void to_json(nlohmann::json& json, const Speaker& speaker);

} // namespace kiv::simulator
