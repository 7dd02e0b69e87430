#pragma once

#include "simulator/Glib.h"
#include "simulator/Speakers.h"

#include <functional>

namespace kiv::simulator {

// Reads and changes the volumes of connected speakers, and collects the volumes to report.
class Volumes {
public:
    explicit Volumes(Speakers& speakers) : speakers_(speakers) {}

    int Get(const Mac& mac);
    int Set(const Mac& mac, int ip, int volume);
    int Increase(const Mac& mac);
    int Decrease(const Mac& mac);
    int Reset(const Mac& mac);

    int GetList(const Bytes& configs);
    int IncreaseList(const Bytes& configs);
    int DecreaseList(const Bytes& configs);
    int ResetList(const Bytes& configs);
    int ResetAll();

    // Returns the data of the event that is due, or nothing if no event is due.
    Bytes TakeReport();

private:
    using Change = std::function<int(int volume)>;

    int Apply(const Change& change, const Mac& mac);
    int Apply(const Change& change, const Bytes& configs);
    int Apply(const Change& change, const std::vector<Speaker*>& speakers);

    Speakers& speakers_;
    Writer report_;
};

} // namespace kiv::simulator
