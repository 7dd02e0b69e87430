#pragma once

#include "simulator/Glib.h"
#include "simulator/Soundbar.h"
#include "simulator/Speakers.h"
#include "simulator/Volumes.h"

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <utility>
#include <vector>

namespace kiv::simulator {

// A change of a home.
struct HomeChange {
    std::optional<SpeakerSet> speakers;
    std::optional<std::vector<Soundbar>> soundbars;
    std::optional<int> settingMode;
    std::optional<int> tavrinUiMode;
    std::optional<bool> surround;
    std::optional<bool> receiverHasAtmos;

    bool IsEmpty() const
    {
        return !speakers && !soundbars && !settingMode && !tavrinUiMode && !surround && !receiverHasAtmos;
    }
};

// The state of a home with a TV, soundbars and speakers, as the server knows it.
class Home {
public:
    static constexpr int kSurroundMode = 80;
    static constexpr int kMultiRoomMode = 81;

    Home() = default;
    Home(const Home&) = delete;
    Home& operator=(const Home&) = delete;

    // Returns whether the receiver supports Atmos now and did not before.
    bool Apply(HomeChange change);

    int SetSettingMode(int mode, int startReason);
    int SettingMode() const { return settingMode_; }

    int StartSpeakers(const Bytes& configs);
    int StartSpeakerById(const SpeakerId& id, int channel, int mode, int startReason);
    int StartSpeakerNode(int node, int mode, int startReason);
    int StartGroup(int group);
    int StopSpeakers(int stopType);
    int DisableSurround();
    int SurroundChannels() const { return surround_ ? speakers_.Playing() : 0; }

    // Sets the mode that the settings screen of Tavrin, the multi-room feature, shows. Returns the mode.
    int SetTavrinUiMode(int mode);
    int TavrinUiMode() const { return tavrinUiMode_; }
    bool CanSelectTavrin() const { return settingMode_ != kMultiRoomMode; }
    bool PreSelectTavrin();
    bool CanCancelTavrin() const { return tavrinPreSelected_ || settingMode_ == kMultiRoomMode; }
    bool CanEnterTavrinSettings() const { return SurroundChannels() == 0; }

    bool ReceiverHasAtmos() const { return atmos_; }
    // Returns whether the receiver supports Atmos now and did not before.
    bool SetReceiverAtmos(bool supported) { return !std::exchange(atmos_, supported) && supported; }

    simulator::Speakers& Speakers() { return speakers_; }
    simulator::Volumes& Volumes() { return volumes_; }
    simulator::Soundbars& Soundbars() { return soundbars_; }

    nlohmann::json ToJson() const;

private:
    int Start(const std::vector<Speaker*>& chosen);

    simulator::Speakers speakers_;
    simulator::Volumes volumes_{speakers_};
    simulator::Soundbars soundbars_;
    int settingMode_ = kSurroundMode;
    int startReason_ = 0;
    int tavrinUiMode_ = kSurroundMode;
    bool tavrinPreSelected_ = false;
    bool surround_ = false;
    bool atmos_ = false;
};

} // namespace kiv::simulator
