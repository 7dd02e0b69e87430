#pragma once

#include "simulator/Glib.h"
#include "simulator/Wire.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace kiv::simulator {

/** The home's soundbar and its sound mode. Clients name it by its MAC address. */
class Soundbar {
public:
    Soundbar();

    int SetSoundMode(const Bytes& setting);
    Bytes SoundMode() const;
    Bytes DeviceInfo() const;

    int SetSupportsSoundMode(const Bytes& support);
    bool SupportsSoundMode(const Bytes& mac) const;
    Bytes ProtocolVersion(const Bytes& mac) const;

    nlohmann::json ToJson() const;

private:
    std::string name_;
    Mac mac_;
    Ip ip_;
    Bytes soundMode_;
    int supported_ = 1;
};

} // namespace kiv::simulator
