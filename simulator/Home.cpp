#include "simulator/Home.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstring>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr int kDone = 0;
constexpr int kRefused = -1;

constexpr int kSurroundMode = 80;
constexpr int kMultiRoomMode = 81;

/** The record that names a speaker to start. */
struct StartRecord {
    static constexpr std::size_t kSize = 86;
    static constexpr std::size_t kConfigAt = 4;
    static constexpr std::size_t kMacAt = 8;

    std::int32_t config;
    Mac mac;

    explicit StartRecord(const std::uint8_t* bytes)
    {
        std::memcpy(&config, bytes + kConfigAt, sizeof(config));
        std::memcpy(mac.data(), bytes + kMacAt, mac.size());
    }
};

std::string Text(const Mac& mac)
{
    return fmt::format("{:02x}", fmt::join(mac, ":"));
}

std::string Text(const Ip& ip)
{
    return fmt::format("{}", fmt::join(ip, "."));
}

} // namespace

static void to_json(nlohmann::json& json, const Speaker& speaker)
{
    json = {
        {"node", speaker.node},       {"name", speaker.name},     {"type", speaker.type},
        {"mac", Text(speaker.mac)},   {"ip", Text(speaker.ip)},   {"volume", speaker.volume},
        {"channel", speaker.channel}, {"active", speaker.active}, {"watched", speaker.watched},
    };
}

static void to_json(nlohmann::json& json, const Soundbar& soundbar)
{
    json = {{"name", soundbar.name}, {"mac", Text(soundbar.mac)}, {"ip", Text(soundbar.ip)}};
}

Home::Home()
    : speakers_{
          {1, "Living room left", "Shelf", {0x02, 0x4b, 0x49, 0x56, 0x00, 0x01}, {192, 168, 0, 21}, 20, 0},
          {2, "Living room right", "Shelf", {0x02, 0x4b, 0x49, 0x56, 0x00, 0x02}, {192, 168, 0, 22}, 20, 0},
          {3, "Subwoofer", "Subwoofer", {0x02, 0x4b, 0x49, 0x56, 0x00, 0x03}, {192, 168, 0, 23}, 15, 0},
          {4, "Kitchen", "Compact", {0x02, 0x4b, 0x49, 0x56, 0x00, 0xa4}, {192, 168, 0, 24}, 10, 0},
      },
      soundbar_{"Soundbar", {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0}, {192, 168, 0, 20}}, settingMode_(kSurroundMode)
{
}

int Home::SetSettingMode(int mode, int startReason)
{
    settingMode_ = mode;
    startReason_ = startReason;
    return kDone;
}

int Home::StartSpeakers(const Bytes& records)
{
    if (records.size() % StartRecord::kSize != 0) {
        return kRefused;
    }
    Silence();
    for (std::size_t at = 0; at < records.size(); at += StartRecord::kSize) {
        const StartRecord record(records.data() + at);
        if (Speaker* speaker = Find(record.mac)) {
            speaker->active = true;
            speaker->channel = record.config;
        }
    }
    surround_ = settingMode_ != kMultiRoomMode;
    return ActiveSpeakers();
}

int Home::StopSpeakers(int stopType)
{
    Silence();
    surround_ = false;
    return stopType;
}

int Home::DisableSurround()
{
    surround_ = false;
    return kDone;
}

int Home::SurroundChannels() const
{
    return surround_ ? ActiveSpeakers() : 0;
}

int Home::StopWatching(int node)
{
    const auto speaker =
        std::ranges::find_if(speakers_, [node](const Speaker& s) { return s.node == node && s.watched; });
    if (speaker == speakers_.end()) {
        return 0;
    }
    speaker->watched = false;
    return 1;
}

bool Home::SetReceiverAtmos(bool supported)
{
    return std::exchange(atmos_, supported) != supported;
}

Speaker* Home::Find(const Mac& mac)
{
    const auto speaker = std::ranges::find(speakers_, mac, &Speaker::mac);
    return speaker == speakers_.end() ? nullptr : &*speaker;
}

void Home::Silence()
{
    for (Speaker& speaker : speakers_) {
        speaker.active = false;
    }
}

int Home::ActiveSpeakers() const
{
    return static_cast<int>(std::ranges::count(speakers_, true, &Speaker::active));
}

nlohmann::json Home::ToJson() const
{
    return {
        {"settingMode", settingMode_}, {"startReason", startReason_},
        {"surround", surround_},       {"surroundChannels", SurroundChannels()},
        {"receiverHasAtmos", atmos_},  {"speakers", speakers_},
        {"soundbar", soundbar_},
    };
}

} // namespace kiv::simulator
