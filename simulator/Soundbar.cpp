#include "simulator/Soundbar.h"

#include "simulator/Answer.h"
#include "simulator/Records.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace kiv::simulator {

namespace {

constexpr std::size_t kProtocolTextSize = 20;

} // namespace

void to_json(nlohmann::json& json, const Soundbar& soundbar)
{
    json = {
        {"name", soundbar.name},
        {"mac", Text(soundbar.mac)},
        {"ip", Text(soundbar.ip)},
        {"soundMode", fmt::format("{:02x}", fmt::join(soundbar.soundMode, " "))},
        {"supportsSoundMode", soundbar.supportsSoundMode},
        {"protocolVersion", soundbar.protocolVersion},
    };
}

Soundbars::Soundbars() : soundbars_{{"Soundbar", {0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0}, {192, 168, 0, 20}}} {}

Soundbar* Soundbars::Find(const Mac& mac)
{
    const auto found = std::ranges::find(soundbars_, mac, &Soundbar::mac);
    return found == soundbars_.end() ? nullptr : &*found;
}

const Soundbar* Soundbars::Find(const Bytes& mac) const
{
    const auto found = std::ranges::find(soundbars_, ReadMac(mac), &Soundbar::mac);
    return found == soundbars_.end() ? nullptr : &*found;
}

int Soundbars::SetSoundMode(const Bytes& setting)
{
    const auto wanted = ReadSoundbarSetting(setting);
    Soundbar* soundbar = wanted ? Find(wanted->mac) : nullptr;
    if (soundbar == nullptr || wanted->data.size() > kMostSoundModeData) {
        return kRefused;
    }
    soundbar->soundMode = wanted->data;
    return kDone;
}

Bytes Soundbars::SoundMode() const
{
    if (soundbars_.empty()) {
        return {};
    }
    const Soundbar& first = soundbars_.front();
    const Bytes identity = WriteIdentity(first.mac, first.ip, static_cast<int>(first.soundMode.size()));
    return Writer().Append(identity).Append(first.soundMode).ToSize(identity.size() + kMostSoundModeData).Written();
}

Bytes Soundbars::DeviceInfo() const
{
    if (soundbars_.empty()) {
        return {};
    }
    const Soundbar& first = soundbars_.front();
    return WriteIdentity(first.mac, first.ip, first.supportsSoundMode);
}

int Soundbars::SetSupportsSoundMode(const Bytes& support)
{
    const auto wanted = ReadSoundbarSetting(support);
    Soundbar* soundbar = wanted ? Find(wanted->mac) : nullptr;
    if (soundbar == nullptr || wanted->data.size() != sizeof soundbar->supportsSoundMode) {
        return kRefused;
    }
    soundbar->supportsSoundMode = Reader(wanted->data).Int32();
    return kDone;
}

bool Soundbars::SupportsSoundMode(const Bytes& mac) const
{
    const Soundbar* soundbar = Find(mac);
    return soundbar != nullptr && soundbar->supportsSoundMode != 0;
}

Bytes Soundbars::ProtocolVersion(const Bytes& mac) const
{
    const Soundbar* soundbar = Find(mac);
    if (soundbar == nullptr) {
        return {};
    }
    const int version = soundbar->protocolVersion;
    return Writer().Int32(version).Text(fmt::format("KIV sound mode {}.0", version), kProtocolTextSize).Written();
}

nlohmann::json Soundbars::ToJson() const
{
    return soundbars_;
}

} // namespace kiv::simulator
