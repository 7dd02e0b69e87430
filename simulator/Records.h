#pragma once

#include "simulator/Speaker.h"
#include "simulator/Wire.h"

#include <optional>
#include <string>
#include <vector>

namespace kiv::simulator {

/*
 * The byte layouts that travel in arrays. What is read comes from clients and is nothing if its length is wrong. What
 * is written is complete and padded with zeros.
 */

/** A speaker that a client names, 86 bytes. */
struct SpeakerConfig {
    std::int32_t value;
    Mac mac;
};

struct SoundModeSetting {
    Mac mac;
    Bytes data;
};

struct SoundModeSupport {
    Mac mac;
    std::int32_t supported;
};

/** Speakers that can be chosen together. */
struct SpeakerGroup {
    int number;
    std::string name;
    std::vector<Speaker> speakers;
};

std::optional<std::vector<SpeakerConfig>> ReadConfigs(const Bytes& bytes);
std::optional<std::vector<Mac>> ReadMacList(const Bytes& bytes);
std::optional<Mac> ReadMac(const Bytes& bytes);
/** The content of a message that a mobile device sends by way of the TV: a MAC address, and what else it likes. */
std::optional<Mac> ReadMobileMessage(const Bytes& bytes);
std::optional<SoundModeSetting> ReadSoundModeSetting(const Bytes& bytes);
std::optional<SoundModeSupport> ReadSoundModeSupport(const Bytes& bytes);

/** Name, type and count, and 183 bytes for each speaker. */
Bytes WriteActiveGroup(const std::string& name, const std::vector<Speaker>& speakers);
/** 1086 bytes. */
Bytes WriteList(const SpeakerGroup& group);
/** 134 bytes. */
Bytes WriteNode(const Speaker& speaker);
/** 14 bytes. */
Bytes WriteVolume(const Speaker& speaker);
/** MAC, IP and a value, 14 bytes. */
Bytes WriteIdentity(const Mac& mac, const Ip& ip, std::int32_t value);

} // namespace kiv::simulator
