#pragma once

#include "simulator/Speaker.h"
#include "simulator/Wire.h"

#include <optional>
#include <string>
#include <vector>

namespace kiv::simulator {

// The byte layouts of arrays. Reading returns nothing if the length is wrong, because the bytes come from clients.
// Records are written as a whole, with zeros behind their fields.

// A speaker that a client names, in 86 bytes.
struct SpeakerConfig {
    std::int32_t value;
    Mac mac;
};

// The sound mode that a client sets for a soundbar.
struct SoundbarSetting {
    Mac mac;
    Bytes data;
};

// Speakers that can be chosen together.
struct SpeakerGroup {
    int number;
    std::string name;
    std::vector<Speaker> speakers;
};

std::optional<std::vector<SpeakerConfig>> ReadConfigs(const Bytes& bytes);
std::optional<std::vector<Mac>> ReadMacList(const Bytes& bytes);
std::optional<Mac> ReadMac(const Bytes& bytes);
// Reads a message that a mobile device sends by way of the TV: a MAC address, and any bytes behind it.
std::optional<Mac> ReadMobileMessage(const Bytes& bytes);
// Reads a MAC address, an IP address, and any bytes behind them.
std::optional<SoundbarSetting> ReadSoundbarSetting(const Bytes& bytes);

// Writes name, type and count, and 183 bytes for each speaker.
Bytes WriteActiveGroup(const std::string& name, const std::vector<Speaker>& speakers);
// Writes 1086 bytes.
Bytes WriteList(const SpeakerGroup& group);
// Writes 134 bytes.
Bytes WriteNode(const Speaker& speaker);
// Writes 14 bytes.
Bytes WriteVolume(const Speaker& speaker);
// Writes a MAC address, an IP address and a value, in 14 bytes.
Bytes WriteIdentity(const Mac& mac, const Ip& ip, std::int32_t value);

} // namespace kiv::simulator
