#pragma once

#include "simulator/Glib.h"

#include <nlohmann/json_fwd.hpp>

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace kiv::simulator {

using Mac = std::array<std::uint8_t, 6>;
using Ip = std::array<std::uint8_t, 4>;

struct Speaker {
    int node;
    std::string name;
    std::string type;
    Mac mac;
    Ip ip;
    int volume;
    int channel;
    bool active = false;
    bool watched = true;
};

struct Soundbar {
    std::string name;
    Mac mac;
    Ip ip;
};

/** A home with a TV, a soundbar and speakers, as the server knows it. */
class Home {
public:
    Home();

    int SetSettingMode(int mode, int startReason);
    int StartSpeakers(const Bytes& records);
    int StopSpeakers(int stopType);
    int DisableSurround();
    int SurroundChannels() const;
    int StopWatching(int node);

    bool ReceiverHasAtmos() const { return atmos_; }
    /** Returns whether this was a change. */
    bool SetReceiverAtmos(bool supported);

    nlohmann::json ToJson() const;

private:
    Speaker* Find(const Mac& mac);
    void Silence();
    int ActiveSpeakers() const;

    std::vector<Speaker> speakers_;
    Soundbar soundbar_;
    int settingMode_;
    int startReason_ = 0;
    bool surround_ = false;
    bool atmos_ = false;
};

} // namespace kiv::simulator
