#pragma once

#include "simulator/Glib.h"
#include "simulator/Wire.h"

#include <nlohmann/json_fwd.hpp>

#include <string>
#include <utility>
#include <vector>

namespace kiv::simulator {

struct Soundbar {
    std::string name;
    Mac mac;
    Ip ip;
    Bytes soundMode = {1, 0, 0, 0, 0};
    int supportsSoundMode = 1;
    int protocolVersion = 2;
};

void to_json(nlohmann::json& json, const Soundbar& soundbar);

// The home's soundbars and their sound modes. A client names a soundbar by its MAC address; some methods take the first
// one.
class Soundbars {
public:
    static constexpr std::size_t kMostSoundModeData = 20;

    Soundbars();

    // Replaces all soundbars.
    void Replace(std::vector<Soundbar> soundbars) { soundbars_ = std::move(soundbars); }

    int SetSoundMode(const Bytes& setting);
    // SoundMode() and DeviceInfo() return no bytes in a home without a soundbar.
    Bytes SoundMode() const;
    Bytes DeviceInfo() const;

    int SetSupportsSoundMode(const Bytes& support);
    bool SupportsSoundMode(const Bytes& mac) const;
    Bytes ProtocolVersion(const Bytes& mac) const;

    nlohmann::json ToJson() const;

private:
    Soundbar* Find(const Mac& mac);
    const Soundbar* Find(const Bytes& mac) const;

    std::vector<Soundbar> soundbars_;
};

} // namespace kiv::simulator
