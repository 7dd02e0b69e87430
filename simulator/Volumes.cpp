#include "simulator/Volumes.h"

#include "simulator/Answer.h"

#include <algorithm>
#include <utility>

namespace kiv::simulator {

namespace {

constexpr int kSoftest = 0;
constexpr int kLoudest = 100;
constexpr int kStep = 1;
constexpr int kResetVolume = 25;

int Same(int volume)
{
    return volume;
}

int Louder(int volume)
{
    return volume + kStep;
}

int Softer(int volume)
{
    return volume - kStep;
}

int Initial(int)
{
    return kResetVolume;
}

} // namespace

int Volumes::Get(const Mac& mac)
{
    return Apply(Same, mac);
}

int Volumes::Set(const Mac& mac, int /*ip*/, int volume)
{
    return Apply([volume](int) { return volume; }, mac);
}

int Volumes::Increase(const Mac& mac)
{
    return Apply(Louder, mac);
}

int Volumes::Decrease(const Mac& mac)
{
    return Apply(Softer, mac);
}

int Volumes::Reset(const Mac& mac)
{
    return Apply(Initial, mac);
}

int Volumes::GetList(const Bytes& configs)
{
    return Apply(Same, configs);
}

int Volumes::IncreaseList(const Bytes& configs)
{
    return Apply(Louder, configs);
}

int Volumes::DecreaseList(const Bytes& configs)
{
    return Apply(Softer, configs);
}

int Volumes::ResetList(const Bytes& configs)
{
    return Apply(Initial, configs);
}

int Volumes::ResetAll()
{
    return Apply(Initial, speakers_.Connected());
}

Bytes Volumes::TakeReport()
{
    return std::exchange(report_, {}).Written();
}

int Volumes::Apply(const Change& change, const Mac& mac)
{
    Speaker* speaker = speakers_.Connected(mac);
    if (speaker == nullptr) {
        return kRefused;
    }
    Apply(change, std::vector{speaker});
    return speaker->volume;
}

int Volumes::Apply(const Change& change, const Bytes& configs)
{
    const auto named = ReadConfigs(configs);
    return named ? Apply(change, speakers_.Connected(*named)) : kRefused;
}

int Volumes::Apply(const Change& change, const std::vector<Speaker*>& speakers)
{
    for (Speaker* speaker : speakers) {
        speaker->volume = std::clamp(change(speaker->volume), kSoftest, kLoudest);
        report_.Append(WriteVolume(*speaker));
    }
    return static_cast<int>(speakers.size());
}

} // namespace kiv::simulator
