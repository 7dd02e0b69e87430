#include "simulator/Speaker.h"

#include <nlohmann/json.hpp>

namespace kiv::simulator {

NLOHMANN_JSON_SERIALIZE_ENUM(
    Connection, {{Connection::kNone, "none"}, {Connection::kNetwork, "network"}, {Connection::kDirect, "direct"}})

static void to_json(nlohmann::json& json, const SpeakerTest& test)
{
    json = {{"parameter", test.parameter}, {"channelType", test.channelType}, {"extra", test.extra}};
}

SpeakerId Speaker::Id() const
{
    constexpr char kHex[] = "0123456789ABCDEF";
    const std::uint8_t last = mac.back();
    return {'K', 'I', 'V', static_cast<std::uint8_t>(kHex[last >> 4]), static_cast<std::uint8_t>(kHex[last & 0xf])};
}

void Speaker::Plug(bool plugged)
{
    if (plugged && IsConnected()) {
        return;
    }
    connection = plugged ? Connection::kNetwork : Connection::kNone;
    active = false;
    test.reset();
}

void to_json(nlohmann::json& json, const Speaker& speaker)
{
    const SpeakerId id = speaker.Id();
    json = {
        {"node", speaker.node},
        {"group", speaker.group},
        {"id", std::string(id.begin(), id.end())},
        {"name", speaker.name},
        {"type", speaker.type},
        {"mac", Text(speaker.mac)},
        {"ip", Text(speaker.ip)},
        {"volume", speaker.volume},
        {"connection", speaker.connection},
        {"channel", speaker.channel},
        {"active", speaker.active},
        {"watched", speaker.watched},
        {"test", speaker.test ? nlohmann::json(*speaker.test) : nlohmann::json()},
    };
}

} // namespace kiv::simulator
