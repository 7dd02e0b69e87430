#include "simulator/Home.h"

#include "simulator/Answer.h"

#include <nlohmann/json.hpp>

#include <utility>

namespace kiv::simulator {

bool Home::Apply(HomeChange change)
{
    settingMode_ = change.settingMode.value_or(settingMode_);
    tavrinUiMode_ = change.tavrinUiMode.value_or(tavrinUiMode_);
    if (change.speakers) {
        speakers_.Replace(std::move(*change.speakers));
        surround_ = speakers_.Playing() > 0 && settingMode_ != kMultiRoomMode;
    }
    if (change.soundbars) {
        soundbars_.Replace(std::move(*change.soundbars));
    }
    surround_ = change.surround.value_or(surround_);
    return change.receiverHasAtmos && SetReceiverAtmos(*change.receiverHasAtmos);
}

int Home::SetSettingMode(int mode, int startReason)
{
    settingMode_ = mode;
    startReason_ = startReason;
    tavrinPreSelected_ = false;
    return kDone;
}

int Home::StartSpeakers(const Bytes& configs)
{
    const auto wanted = ReadConfigs(configs);
    if (!wanted) {
        return kRefused;
    }
    std::vector<Speaker*> chosen;
    for (const SpeakerConfig& config : *wanted) {
        if (Speaker* speaker = speakers_.Connected(config.mac)) {
            speaker->channel = config.value;
            chosen.push_back(speaker);
        }
    }
    return Start(chosen);
}

int Home::StartSpeakerById(const SpeakerId& id, int channel, int mode, int startReason)
{
    Speaker* speaker = speakers_.Find(id);
    if (speaker == nullptr) {
        return kRefused;
    }
    speaker->channel = channel;
    SetSettingMode(mode, startReason);
    return Start({speaker});
}

int Home::StartSpeakerNode(int node, int mode, int startReason)
{
    Speaker* speaker = speakers_.Find(node);
    if (speaker == nullptr) {
        return kRefused;
    }
    SetSettingMode(mode, startReason);
    return Start({speaker});
}

int Home::StartGroup(int group)
{
    const std::vector<Speaker*> members = speakers_.OfGroup(group);
    return members.empty() ? kRefused : Start(members);
}

int Home::Start(const std::vector<Speaker*>& chosen)
{
    speakers_.Play(chosen);
    surround_ = settingMode_ != kMultiRoomMode;
    return speakers_.Playing();
}

int Home::StopSpeakers(int stopType)
{
    speakers_.Play({});
    surround_ = false;
    return stopType;
}

int Home::DisableSurround()
{
    surround_ = false;
    return kDone;
}

int Home::SetTavrinUiMode(int mode)
{
    tavrinUiMode_ = mode;
    return mode;
}

bool Home::PreSelectTavrin()
{
    tavrinPreSelected_ = CanSelectTavrin();
    return tavrinPreSelected_;
}

nlohmann::json Home::ToJson() const
{
    nlohmann::json json = speakers_.ToJson();
    json.update({
        {"settingMode", settingMode_},
        {"startReason", startReason_},
        {"tavrinUiMode", tavrinUiMode_},
        {"tavrinPreSelected", tavrinPreSelected_},
        {"surround", surround_},
        {"surroundChannels", SurroundChannels()},
        {"receiverHasAtmos", atmos_},
        {"soundbars", soundbars_.ToJson()},
    });
    return json;
}

} // namespace kiv::simulator
