#include "tools/kivctl/Command.h"
#include <KivServiceInterface.h>

#include <fmt/format.h>

namespace kiv::ctl {
namespace {

struct OlderFunction {
    const char* name;
    int (*call)(...);
};

constexpr OlderFunction kFunctions[] = {
    {"get_size_of_spk_list_info_s", get_size_of_spk_list_info_s},
    {"get_size_of_spk_info_s", get_size_of_spk_info_s},
    {"GetLastConnectSatIdx", GetLastConnectSatIdx},
    {"SPK_IsConnectToTV", SPK_IsConnectToTV},
    {"SPK_NotifySpkVolumeTable", SPK_NotifySpkVolumeTable},
    {"SPK_NotifyAudioCtrl", SPK_NotifyAudioCtrl},
    {"SPK_GetGroupInfo", SPK_GetGroupInfo},
    {"SPK_GetSelfAndAllCandidateNodeInfo", SPK_GetSelfAndAllCandidateNodeInfo},
    {"SPK_GetMacFromDi", SPK_GetMacFromDi},
    {"SPK_GetSourceExtraNodeInfo", SPK_GetSourceExtraNodeInfo},
    {"SPK_SetBTModeDelay", SPK_SetBTModeDelay},
    {"SPK_getSelfAndAllNodeInfo", SPK_getSelfAndAllNodeInfo},
    {"SPK_GetSelfAndAllNodeInfo", SPK_GetSelfAndAllNodeInfo},
    {"SPK_SendCalData", SPK_SendCalData},
    {"SPK_UnGroupHts", SPK_UnGroupHts},
    {"SPK_GetGroupHts", SPK_GetGroupHts},
    {"SPK_SetHtsVolume", SPK_SetHtsVolume},
    {"SPK_SetHtsMute", SPK_SetHtsMute},
    {"SPK_GetHtsVolume", SPK_GetHtsVolume},
    {"SPK_GetHtsMute", SPK_GetHtsMute},
    {"SPK_NotifySounbarSettings", SPK_NotifySounbarSettings},
    {"SPK_getAllNodeInfo", SPK_getAllNodeInfo},
    {"SPK_GetAllNodeInfo", SPK_GetAllNodeInfo},
    {"SPK_GetNumberOfNode", SPK_GetNumberOfNode},
    {"SPK_NotifyPlayStatus", SPK_NotifyPlayStatus},
    {"SPK_NotifyMasterStatusLED", SPK_NotifyMasterStatusLED},
    {"SPK_NotifyAlarmVolume", SPK_NotifyAlarmVolume},
    {"SPK_NotifySleepMode", SPK_NotifySleepMode},
    {"SPK_ChangeVolume", SPK_ChangeVolume},
    {"SPK_NotifySpkVolume", SPK_NotifySpkVolume},
    {"SPK_NotifySpkMute", SPK_NotifySpkMute},
    {"SPK_SetKivMode_singleTV", SPK_SetKivMode_singleTV},
    {"SPK_SetKivMode_Lastmemory", SPK_SetKivMode_Lastmemory},
    {"SPK_SetKivMode", SPK_SetKivMode},
    {"SPK_SetSpkProperty", SPK_SetSpkProperty},
    {"SPK_UnGroup", SPK_UnGroup},
    {"SPK_SetMultiSpkGroup", SPK_SetMultiSpkGroup},
    {"SPK_SetMultiChGroup", SPK_SetMultiChGroup},
    {"SPK_SetMute", SPK_SetMute},
    {"SPK_SetVolume", SPK_SetVolume},
};

} // namespace

std::vector<Command> OlderFunctions()
{
    std::vector<Command> commands;
    for (const OlderFunction& function : kFunctions) {
        const auto call = [function] {
            const int result = function.call();
            return Done(fmt::format("{}", result), {{"result", result}});
        };
        commands.push_back(
            {function.name, "A function of an older interface, which asks nobody and always returns the same value",
             Plain(call), Asks::kNobody});
    }
    return commands;
}

} // namespace kiv::ctl
