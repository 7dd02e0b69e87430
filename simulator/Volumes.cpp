#include "simulator/Volumes.h"

#include "simulator/Answer.h"

#include <algorithm>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr int kSoftest = 0;
constexpr int kLoudest = 100;

} // namespace

Bytes Volumes::TakeReport()
{
    return std::exchange(report_, {}).Written();
}

int Volumes::Apply(VolumeChange change, const Mac& mac)
{
    Speaker* speaker = speakers_.Connected(mac);
    if (speaker == nullptr) {
        return kRefused;
    }
    Apply(change, std::vector{speaker});
    return speaker->volume;
}

int Volumes::Apply(VolumeChange change, const Bytes& configs)
{
    const auto named = ReadConfigs(configs);
    return named ? Apply(change, speakers_.Connected(*named)) : kRefused;
}

int Volumes::Apply(VolumeChange change, const std::vector<Speaker*>& speakers)
{
    for (Speaker* speaker : speakers) {
        const int wanted = change.volume.value_or(speaker->volume + change.step);
        speaker->volume = std::clamp(wanted, kSoftest, kLoudest);
        report_.Append(WriteVolume(*speaker));
    }
    return static_cast<int>(speakers.size());
}

} // namespace kiv::simulator
