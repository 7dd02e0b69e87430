#pragma once

#include "simulator/Glib.h"
#include "simulator/Speakers.h"

#include <optional>

namespace kiv::simulator {

// A new volume, or a step from the current one.
struct VolumeChange {
    std::optional<int> volume = std::nullopt;
    int step = 0;
};

// Reads and changes the volumes of connected speakers, and collects the volumes to report.
class Volumes {
public:
    explicit Volumes(Speakers& speakers) : speakers_(speakers) {}

    // These return the volume, or refuse a speaker that is not connected.
    int Get(const Mac& mac) { return Apply(kNone, mac); }
    int Set(const Mac& mac, int /*ip*/, int volume) { return Apply({.volume = volume}, mac); }
    int Increase(const Mac& mac) { return Apply(kLouder, mac); }
    int Decrease(const Mac& mac) { return Apply(kSofter, mac); }
    int Reset(const Mac& mac) { return Apply(kReset, mac); }

    // These return the number of speakers, and leave out those that are not connected.
    int GetList(const Bytes& configs) { return Apply(kNone, configs); }
    int IncreaseList(const Bytes& configs) { return Apply(kLouder, configs); }
    int DecreaseList(const Bytes& configs) { return Apply(kSofter, configs); }
    int ResetList(const Bytes& configs) { return Apply(kReset, configs); }
    int ResetAll() { return Apply(kReset, speakers_.Connected()); }

    // Returns the data of the event that is due, or nothing if no event is due.
    Bytes TakeReport();

private:
    static constexpr VolumeChange kNone = {};
    static constexpr VolumeChange kLouder = {.step = 1};
    static constexpr VolumeChange kSofter = {.step = -1};
    static constexpr VolumeChange kReset = {.volume = 25};

    int Apply(VolumeChange change, const Mac& mac);
    int Apply(VolumeChange change, const Bytes& configs);
    int Apply(VolumeChange change, const std::vector<Speaker*>& speakers);

    Speakers& speakers_;
    Writer report_;
};

} // namespace kiv::simulator
