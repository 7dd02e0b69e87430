#include "simulator/Soundbar.h"

#include "simulator/Answer.h"
#include "simulator/Records.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <nlohmann/json.hpp>

namespace kiv::simulator {

namespace {

constexpr std::size_t kMostSoundModeData = 20;
constexpr int kProtocolVersion = 2;
constexpr char kProtocolText[] = "KIV sound mode 2.0";
constexpr std::size_t kProtocolTextSize = 20;

} // namespace

Soundbar::Soundbar()
    : name_("Soundbar"), mac_{0x02, 0x4b, 0x49, 0x56, 0x00, 0xb0}, ip_{192, 168, 0, 20}, soundMode_{1, 0, 0, 0, 0}
{
}

int Soundbar::SetSoundMode(const Bytes& setting)
{
    const auto wanted = ReadSoundModeSetting(setting);
    if (!wanted || wanted->mac != mac_ || wanted->data.size() > kMostSoundModeData) {
        return kRefused;
    }
    soundMode_ = wanted->data;
    return kDone;
}

Bytes Soundbar::SoundMode() const
{
    const Bytes identity = WriteIdentity(mac_, ip_, static_cast<int>(soundMode_.size()));
    return Writer().Append(identity).Append(soundMode_).ToSize(identity.size() + kMostSoundModeData).Written();
}

Bytes Soundbar::DeviceInfo() const
{
    return WriteIdentity(mac_, ip_, supported_);
}

int Soundbar::SetSupportsSoundMode(const Bytes& support)
{
    const auto wanted = ReadSoundModeSupport(support);
    if (!wanted || wanted->mac != mac_) {
        return kRefused;
    }
    supported_ = wanted->supported;
    return kDone;
}

bool Soundbar::SupportsSoundMode(const Bytes& mac) const
{
    return ReadMac(mac) == mac_ && supported_ != 0;
}

Bytes Soundbar::ProtocolVersion(const Bytes& mac) const
{
    if (ReadMac(mac) != mac_) {
        return {};
    }
    return Writer().Int32(kProtocolVersion).Text(kProtocolText, kProtocolTextSize).Written();
}

nlohmann::json Soundbar::ToJson() const
{
    return {
        {"name", name_},
        {"mac", Text(mac_)},
        {"ip", Text(ip_)},
        {"soundMode", fmt::format("{:02x}", fmt::join(soundMode_, " "))},
        {"supportsSoundMode", supported_},
        {"protocolVersion", kProtocolVersion},
    };
}

} // namespace kiv::simulator
